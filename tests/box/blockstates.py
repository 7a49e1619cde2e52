# SPDX-License-Identifier: MIT
"""The states that a power cut can leave of a disk whose writes and flushes are logged.

Writes before a completed flush are on the disk. Any subset of the writes after it may be, down to
single sectors of one write, in any order.
"""

import hashlib

import writelog

BLOCK = 4096


class Image:
    """The bytes of a disk, or of a part of it; stores only blocks that are not all zero."""

    def __init__(self, size, blocks=None):
        self.size = size
        self._blocks = {} if blocks is None else blocks

    @classmethod
    def load(cls, path, offset, size):
        """Reads `size` bytes of a file, starting at `offset`."""
        image = cls(size)
        with open(path, "rb") as file:
            file.seek(offset)
            for number in range(size // BLOCK):
                block = file.read(BLOCK)
                if block.strip(b"\0"):
                    image._blocks[number] = block
        return image

    def copy(self):
        """Returns another image with the same bytes."""
        return Image(self.size, dict(self._blocks))

    def read(self, offset, length):
        """Returns bytes of one block."""
        start = offset % BLOCK
        return self._blocks.get(offset // BLOCK, bytes(BLOCK))[start:start + length]

    def write(self, offset, data):
        """Replaces bytes; ignores those outside the image."""
        while data:
            number, start = divmod(offset, BLOCK)
            piece = data[:BLOCK - start]
            if 0 <= offset < self.size:
                old = self._blocks.get(number, bytes(BLOCK))
                self._blocks[number] = old[:start] + piece + old[start + len(piece):]
            offset, data = offset + len(piece), data[len(piece):]

    def store(self, path):
        """Writes a sparse file."""
        with open(path, "wb") as file:
            file.truncate(self.size)
            for number, block in self._blocks.items():
                file.seek(number * BLOCK)
                file.write(block)

    def digest(self):
        """Returns a digest of the bytes."""
        digest = hashlib.blake2b(digest_size=16)
        for number, block in sorted(self._blocks.items()):
            digest.update(b"%d:" % number + block)
        return digest.digest()


def _intervals(entries):
    """Returns (start, end) of the entries between two flushes; the flush is entry `end`."""
    start, found = 0, []
    for position, (flags, *_) in enumerate(entries):
        if flags & writelog.FLUSH:
            found.append((start, position))
            start = position + 1
    return [*found, (start, len(entries))]


def _subset(image, writes, random):
    """Applies the writes since a flush that may have reached the disk."""
    keep = random.choice([0.2, 0.5, 0.9, 1.0])
    torn = random.choice([0.0, 0.3, 1.0])
    for flags, offset, data in writes:
        if flags & writelog.FUA or random.random() < keep:
            image.write(offset, data)
        elif random.random() < torn:
            for at in range(0, len(data), writelog.SECTOR):
                if random.random() < 0.5:
                    image.write(offset + at, data[at:at + writelog.SECTOR])


def points(entries, base, wanted, random, every_flush=False, useful=lambda position: True):
    """Yields (position, Image): the power is cut before the entry at that position.

    `wanted` points in all, half of them at the flushes and the others between them; with
    `every_flush` all of the flushes, and `wanted` others. Positions that are not `useful`, and
    flushes that do not affect the image, are skipped.
    """
    intervals = _intervals(entries)
    writes = [sum(0 <= offset < base.size for _, offset, data in entries[start:end] if data)
              for start, end in intervals]
    flushed = [i for i, (_, end) in enumerate(intervals) if writes[i] and useful(end)]
    # Also where the image is not written: missing data there may have been acknowledged.
    weights = [max(writes[i], end > start) for i, (start, end) in enumerate(intervals)]
    if not every_flush and len(flushed) > wanted // 2:
        flushed = random.sample(flushed, wanted // 2)
    inside = [0] * len(intervals)
    for chosen in random.choices(range(len(intervals)), weights,
                                 k=wanted if every_flush else wanted - len(flushed)):
        inside[chosen] += 1
    durable = base.copy()
    for number, (start, end) in enumerate(intervals):
        for _ in range(inside[number]):
            position = random.randint(start + 1, end)
            if useful(position):
                image = durable.copy()
                _subset(image, entries[start:position], random)
                yield position, image
        for _, offset, data in entries[start:end]:
            durable.write(offset, data)
        if number in flushed:
            yield end, durable.copy()
