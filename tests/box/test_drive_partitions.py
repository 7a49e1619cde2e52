# SPDX-License-Identifier: MIT
"""Partition tables written to a real disk, and the kernel's view of them."""

import pytest

from box.hardware import MIB, Disk
from driveprobe import box, probe, probe_box, system  # noqa: F401

DISK_MB = 2048
REST = -1


@pytest.fixture(scope="module")
def drive_box(box_image):
    with probe_box([Disk(size=DISK_MB * MIB)]) as running:
        yield running


def kernel_partitions(box, disk="sda"):
    """Returns the name and bytes of each partition that the kernel knows."""
    text = box.check(f"""for size in /sys/block/{disk}/{disk}*/size; do
                             [ -e "$size" ] || continue
                             part=${{size%/size}}
                             echo "/dev/${{part##*/}} $(cat "$size")"
                         done""")
    return [(name, int(sectors) * 512) for name, sectors in map(str.split, text.splitlines())]


def library_partitions(probe):
    """Returns the library's list; every partition is a plain Linux partition."""
    listed = []
    for number in range(int(probe.call("partitions")[0])):
        name, size, kind, *_ = probe.call("describe", number)
        assert kind == str(0x83)
        listed.append((name, int(size)))
    return listed


# Sizes as given, and the resulting sizes in MB; the table uses the first MB of the disk.
TABLES = {
    "one over the whole disk": ([REST, 0, 0, 0], [DISK_MB - 1]),
    "nothing after the rest": ([REST, 100, 200, 300], [DISK_MB - 1]),
    "the rest after one": ([100, REST, 7, 7], [100, DISK_MB - 101]),
    "ended by 0": ([100, 200, 0, 300], [100, 200]),
    "ended by a negative size": ([100, 200, -2, 300], [100, 200]),
    "four": ([100, 200, 300, 400], [100, 200, 300, 400]),
    "four with the rest": ([100, 200, 300, REST], [100, 200, 300, DISK_MB - 601]),
    "one small": ([1, 0, 0, 0], [1]),
}


@pytest.mark.parametrize("sizes, expected", TABLES.values(), ids=TABLES)
def test_table(box, system, sizes, expected):
    assert system.call("partition", *sizes) is True
    listed = library_partitions(system)
    assert listed == kernel_partitions(box)
    assert [name for name, _ in listed] == [f"/dev/sda{n}" for n in range(1, len(expected) + 1)]
    assert [size // MIB for _, size in listed] == expected
    box.check(" && ".join(f"[ -b {name} ]" for name, _ in listed))


def test_one_big(box, system):
    assert system.call("one-big") is True
    assert library_partitions(system) == kernel_partitions(box)
    assert [size // MIB for _, size in library_partitions(system)] == [DISK_MB - 1]


def test_an_empty_table_is_refused_and_the_old_one_stays(box, system):
    assert system.call("partition", 300, 400, 0, 0) is True
    before = kernel_partitions(box)
    assert system.call("partition", 0, 100, 100, 100) is False
    assert kernel_partitions(box) == before == library_partitions(system)


def test_more_than_the_disk_holds_is_refused(box, system):
    assert system.call("partition", 300, 400, 0, 0) is True
    before = kernel_partitions(box)
    assert system.call("partition", 1000, 2000, 0, 0) is False
    assert kernel_partitions(box) == before == library_partitions(system)


def test_a_disk_in_use_is_refused(box, system):
    assert system.call("partition", 300, 400, 0, 0) is True
    before = kernel_partitions(box)
    box.check("mkfs.ext3 -q /dev/sda2 && mount -t ext3 /dev/sda2 /mnt")
    try:
        assert system.call("partition", 100, 100, 100, 0) is False
        assert kernel_partitions(box) == before
    finally:
        box.check("umount /mnt")


def test_a_table_of_the_same_places_keeps_the_file_systems(box, system):
    assert system.call("partition", 300, REST, 0, 0) is True
    box.check("mkfs.ext3 -q -L kept /dev/sda1 && mkfs.xfs -L kept-too -f -l lazy-count=0 /dev/sda2")
    assert system.call("partition", 300, REST, 0, 0) is True
    assert [system.call("describe", n)[3:] for n in (0, 1)] == [["ext3", "kept"], ["xfs", "kept-too"]]


def test_a_new_table_in_the_life_of_a_drive(box, system):
    """shut, partition, init: how the recording drive gets a new table."""
    assert system.call("shut") is True
    assert system.status() == ("none", 100)
    assert system.call("partition", 310, 320, 0, 0) is True
    assert system.call("init") is True
    assert library_partitions(system) == kernel_partitions(box)
    assert system.status()[0] == "not-formatted"


def test_partitions_that_are_not_for_linux_are_listed_unread(box, system):
    assert system.call("partition", 300, REST, 0, 0) is True
    box.check("mkfs.ext3 -q -L hidden /dev/sda1")
    box.check("/usr/lib/kestrova/tools/sfdisk --part-type /dev/sda 1 c")
    assert system.call("init") is True
    name, _, kind, filesystem, label = system.call("describe", 0)
    assert (name, kind, filesystem, label) == ("/dev/sda1", str(0x0c), "unknown", "-")


def test_standby_commands_on_the_drive(box, system):
    """hdparm reaches the drive; its report shows the command."""
    reports = {"spin-down-delayed": ["setting standby to 24"],
               "spin-down": ["setting standby to 24", "issuing standby command"],
               "spin-up": ["setting standby to 0"]}
    for command, expected in reports.items():
        mark = system.mark()
        assert system.call(command) is True
        told = [line.strip() for line in system.log(mark[0]).splitlines()
                if "standby" in line]
        assert [line.split(" (")[0] for line in told] == expected, command
