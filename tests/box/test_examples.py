# SPDX-License-Identifier: MIT
"""The examples on the box's real recording drive and software partition."""

import pytest

from box.hardware import MIB, Disk
from box.machine import Box, product_files
from box.software import DEVICE, software_disk
from driveprobe import BUILD

EXAMPLES = ["record", "setting", "table"]
FOLDER = "/usr/lib/kestrova/examples"


@pytest.fixture(scope="module")
def box(box_image):
    files = {BUILD / "examples" / name: f"{FOLDER}/{name}" for name in EXAMPLES}
    missing = [path for path in [*files, BUILD / "kestrova"] if not path.exists()]
    if missing:
        pytest.skip(f"{missing[0]} is not built")
    with Box(disks=[Disk(size=1024 * MIB), software_disk()],
             files={**product_files(BUILD), **files}) as running:
        yield running


def example(box, name, *arguments):
    """Runs one example. Returns its status and output as text."""
    result = box.run([f"{FOLDER}/{name}", *map(str, arguments)])
    return result.status, result.stdout.decode(), result.stderr.decode()


def test_a_drive_without_partitions_is_left_alone(box):
    before = box.check("head -c 1048576 /dev/sda | sha256sum")
    status, out, err = example(box, "record", "film", 1)
    assert (status, out) == (1, "")
    assert err.endswith("record: the drive is not ready; a new one has to be formatted first\n")
    assert box.check("head -c 1048576 /dev/sda | sha256sum") == before


def test_records_with_a_progress_display(box):
    box.check("kestrova drive partition 400 rest --yes && kestrova drive format --yes")
    status, _, err = example(box, "record", "film", 3)  # a tool of the drive prints as well
    assert status == 0, err
    shown = err.replace("\r", "\n").split("\n")
    assert shown.index("starting 100%") < shown.index("recording 1 of 3 MiB")
    assert "recording 3 of 3 MiB" in shown
    assert box.run("grep -q ^/dev/sda /proc/mounts").status == 1
    box.check("mount -t xfs -o ro /dev/sda2 /mnt")
    try:
        assert box.check("wc -c </mnt/film") == str(3 * MIB)
    finally:
        box.check("umount /mnt")


def test_a_full_drive_ends_the_recording(box):
    status, _, err = example(box, "record", "long", 1000)
    assert status == 1
    assert err.endswith("record: the recording could not be written\n")
    assert box.run("grep -q ^/dev/sda /proc/mounts").status == 1


def test_a_failed_start_leaves_nothing_mounted(box):
    # Magic and label stay, so that it is found; without a block size it cannot be mounted.
    box.check("dd if=/dev/sda2 of=/superblock bs=512 count=1 2>/dev/null")
    box.check("dd if=/dev/zero of=/dev/sda2 bs=1 seek=4 count=4 conv=notrunc 2>/dev/null")
    try:
        status, _, err = example(box, "record", "film", 1)
        assert (status, err.endswith("record: the drive could not be started\n")) == (1, True), err
        assert box.run("grep -q ^/dev/sda /proc/mounts").status == 1
    finally:
        box.check("dd if=/superblock of=/dev/sda2 bs=512 conv=notrunc 2>/dev/null")


def test_a_setting_is_kept(box):
    assert example(box, "setting", "language") == (0, "language is not set\n", "")
    kept = 'language is not set\nsaved\nlanguage is "deutsch"\n'
    assert example(box, "setting", "language", "deutsch") == (0, kept, "")
    assert example(box, "setting", "language") == (0, 'language is "deutsch"\n', "")
    assert box.check("kestrova vars get language") == "deutsch"


def test_the_table_names_the_software_partition_of_the_box(box):
    status, out, err = example(box, "table")
    assert (status, err) == (0, "")
    device, mount_point = out.split("\n")[0].split("\t")
    assert (device, mount_point) == (f"{DEVICE}-part1", "/boot-sw")
    assert box.run(["test", "-b", device]).status == 0
