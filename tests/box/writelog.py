# SPDX-License-Identifier: MIT
"""The log of a disk's writes that QEMU's blklogwrites records, and the results of a power cut.

A drive with a cache guarantees only what was written before a completed flush. Any sectors of the
writes after the last flush may be on the disk.
"""

import struct

SECTOR = 512
MAGIC = 0x6A736677736872
FLUSH, FUA, DISCARD = 1, 2, 4


def entries(path):
    """Yields the flags, the offset and the bytes of each write, in order."""
    with open(path, "rb") as log:
        magic, _, count, size = struct.unpack("<QQQI", log.read(28))
        if magic != MAGIC or size != SECTOR:
            raise ValueError(f"{path} is no log of writes")
        log.seek(SECTOR)
        for _ in range(count):
            sector, sectors, flags, _ = struct.unpack("<QQQQ", log.read(SECTOR)[:32])
            data = b"" if flags & DISCARD else log.read(sectors * SECTOR)
            yield flags, sector * SECTOR, data


def unflushed(log):
    """Splits a log into the entries up to the last flush and those after it."""
    everything = list(entries(log))
    last = max((i for i, (flags, *_) in enumerate(everything) if flags & FLUSH), default=-1)
    return everything[:last + 1], everything[last + 1:]


def cut(image, log, random):
    """Applies a power cut to the image; returns the number of uncertain and of lost sectors."""
    lasting, cached = unflushed(log)
    keep = random.choice([0.0, 0.5, 0.9, 1.0])
    doubtful = lost = 0
    with open(image, "r+b") as disk:
        for _, offset, data in lasting:
            disk.seek(offset)
            disk.write(data)
        for flags, offset, data in cached:
            for at in range(0, len(data), SECTOR):
                doubtful += 1
                if random.random() < keep:
                    disk.seek(offset + at)
                    disk.write(data[at:at + SECTOR])
                else:
                    lost += 1
    return doubtful, lost
