# SPDX-License-Identifier: MIT
"""The box's second disk: software (ext3) and data (XFS), partitioned and formatted.

Made once, in a box of its own and with the tools that the library drives; each box
works on the same image and its changes are lost with it.
"""

import fcntl
import os
import zlib

from box import image
from box.hardware import MIB, Disk
from box.machine import Box

SOFTWARE_MB = 64
SIZE = 160 * MIB
DEVICE = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0"
STEPS = [
    f"printf ',{SOFTWARE_MB}\\n;\\n' | sfdisk -q -L -uM /dev/sda",
    "mkfs.ext3 -q -L software -m 0 /dev/sda1",
    "mkfs.xfs -L data -f -l lazy-count=0 /dev/sda2",
    "sync",
]
# another recipe is another image
IMAGE = image.BUILD / f"software-{zlib.crc32(repr((SIZE, STEPS)).encode()):08x}.img"


def _make(path):
    blank = Disk(bus="scsi", path=path, model="SOFTWARE")
    with open(path, "wb") as file:
        file.truncate(SIZE)
    with Box(disks=[blank]) as box:
        for step in STEPS:
            box.check(step)
        box.power_off()


def software_disk():
    """A Disk with the two partitions; writes to it are lost with the box."""
    image.BUILD.mkdir(parents=True, exist_ok=True)
    with open(image.BUILD / "software.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not IMAGE.exists():
            fresh = IMAGE.with_suffix(".new")
            _make(fresh)
            os.replace(fresh, IMAGE)
    return Disk(bus="scsi", path=IMAGE, model="SOFTWARE", snapshot=True)
