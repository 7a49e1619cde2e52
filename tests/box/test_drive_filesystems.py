# SPDX-License-Identifier: MIT
"""Formatting, checking, mounting and measuring with the real tools and kernel."""

import re

import pytest

from box.hardware import MIB, Disk
from driveprobe import box, probe, probe_box, throttle  # noqa: F401

GIB = 1024 * MIB
DIRECTORY = "/mnt/directory"


@pytest.fixture(scope="module")
def drive_box(box_image):
    with probe_box([Disk(size=2 * GIB), Disk(size=40 * GIB)]) as running:
        running.check(f"mkdir {DIRECTORY} /mnt/other")
        assert running.probe.call("use", "/dev/sda")[0] == "true"
        assert running.probe.call("partition", 600, -1, 0, 0) is True
        yield running


@pytest.fixture
def ext3(probe):
    """Partition 0 with ext3, recreated if a test has replaced it."""
    if probe.call("recognise", "/dev/sda1")[3:] != ["ext3", "Recordings"]:
        assert probe.call("ext3-format", 0, "Recordings")[0] == "true"
    yield 0
    if probe.call("is-mounted", 0)[0] == "true":
        assert probe.call("unmount", 0) is True


@pytest.fixture
def xfs(probe):
    """Partition 1 with XFS, recreated if a test has replaced it."""
    if probe.call("recognise", "/dev/sda2")[3:] != ["xfs", "DVRStorage12"]:
        assert probe.call("xfs-format", 1, "DVRStorage12") is True
    yield 1
    if probe.call("is-mounted", 1)[0] == "true":
        assert probe.call("unmount", 1) is True


@pytest.fixture
def slow_disk(box, probe):
    """A large second disk for the library."""
    disk = box.disks[1]
    assert probe.call("use", "/dev/sdb")[0] == "true"
    yield disk
    assert probe.call("use", "/dev/sda")[0] == "true"
    throttle(box, disk, 0)


def fresh(seen):
    """Returns the progress values, which never decrease, without that of the previous operation."""
    values = list(map(int, seen))
    if values[0] == 100000:
        values = values[1:]
    assert values == sorted(values) and values[-1] == 100000
    return values


def superblock(box, device):
    """Returns the fields of an ext3 superblock, as reported by dumpe2fs."""
    lines = box.check(f"dumpe2fs -h {device} 2>/dev/null").splitlines()
    return {key: value.strip() for key, value in
            (line.split(":", 1) for line in lines if ":" in line)}


def kernel_space(box, directory):
    """Returns block size, size and free space in bytes."""
    size, blocks, free = map(int, box.check(f"stat -f -c '%S %b %f' {directory}").split())
    return [str(size), str(size * blocks), str(size * free)]


def test_ext3_is_made_as_ordered(box, probe, ext3):
    fields = superblock(box, "/dev/sda1")
    assert fields["Filesystem volume name"] == "Recordings"
    assert "has_journal" in fields["Filesystem features"]
    assert "extent" not in fields["Filesystem features"]
    assert fields["Reserved block count"] == "0"
    bytes_an_inode = 600 * MIB / int(fields["Inode count"])
    # Whole inode tables are created, so there are a few more than one per 2 MiB.
    assert 1.5 * MIB < bytes_an_inode <= 2 * MIB
    box.check("fsck.ext3 -fn /dev/sda1")


def format_slowly(box, probe, disk, operations):
    """Formats on a disk of this many operations a second. Returns the polled and all reported values."""
    throttle(box, disk, operations)
    probe.call("begin", "ext3-format", 0, "slow")
    polled = [0]
    while polled[-1] < 70000 and len({*polled}) < 5:
        polled.append(int(probe.call("ext3-progress", 0)[0]))
    throttle(box, disk, 0)
    result, *seen = probe.call("end")
    assert result == "true"
    assert {0, 100000} <= set(fresh([0, *seen])) >= set(polled)
    return fresh(seen)


def test_ext3_progress_grows_with_the_tool(box, probe, slow_disk):
    """The tool reports its progress at most once a second, so its disk is made slow. How slow it must
    be depends on how much of the data the box's memory can cache."""
    assert probe.call("one-big") is True
    for operations in (40, 20, 10):
        seen = format_slowly(box, probe, slow_disk, operations)
        tables = [value for value in seen if 20000 < value < 70000]
        if len(tables) >= 2:
            break
    assert len(tables) >= 2, seen
    # Reported by the tool as "Writing inode tables:  17/320", here in thousandths of a per cent.
    groups = 320
    assert all((20000 - value) * groups % 50000 < groups for value in tables)


def test_xfs_is_made_as_ordered(box, probe, xfs):
    assert box.check("xfs_db -r -c label /dev/sda2") == 'label = "DVRStorage12"'
    version = box.check("xfs_db -r -c version /dev/sda2")
    assert "V4" in version and "LAZYSBCOUNT" not in version
    box.check("xfs_repair -n /dev/sda2")


def test_xfs_tool_is_echoed_to_the_log_with_its_end(probe):
    out = len(probe.job.output()[0])
    assert probe.call("xfs-format", 1, "echoed") is True
    text = probe.job.output((out, 0))[0]
    assert b"\nmeta-data=/dev/sda2 " in text
    assert b"lazy-count=0" in text
    assert text.endswith(b"\n\xff")


def test_labels_are_found_again(probe, ext3, xfs):
    assert probe.call("use", "/dev/sda")[0] == "true"
    assert probe.call("describe", 0)[3:] == ["ext3", "Recordings"]
    assert probe.call("describe", 1)[3:] == ["xfs", "DVRStorage12"]


def test_formats_replace_each_other(probe, ext3):
    """Old contents neither stop the tools nor remain visible."""
    assert probe.call("xfs-format", 0, "now-xfs") is True
    assert probe.call("recognise", "/dev/sda1")[3:] == ["xfs", "now-xfs"]
    assert probe.call("ext3-format", 0, "now-ext3")[0] == "true"
    assert probe.call("recognise", "/dev/sda1")[3:] == ["ext3", "now-ext3"]


def test_a_label_that_the_tool_refuses(probe):
    mark = probe.mark()
    assert probe.call("xfs-format", 1, "thirteen-long") is False
    assert "label" in probe.errors(mark[1])


def test_formatting_what_is_mounted_fails(box, probe, ext3, xfs):
    for number, kind in ((ext3, "ext3"), (xfs, "xfs")):
        assert probe.call("mount", number, DIRECTORY, kind) is True
        assert probe.call("is-mounted", number) == ["true", DIRECTORY]
        assert probe.call("xfs-format", number, "lost") is False
        result, *seen = probe.call("ext3-format", number, "lost")
        assert (result, seen[-1]) == ("false", "100000")
        assert probe.call("unmount", number) is True


def test_a_missing_tool(box, probe):
    mark = probe.mark()
    box.check("mv /sbin/mkfs.xfs /sbin/mkfs.xfs.away && mv /sbin/mkfs.ext3 /sbin/mkfs.ext3.away")
    try:
        assert probe.call("xfs-format", 1, "x") is False
        result, *seen = probe.call("ext3-format", 0, "x")
        assert (result, seen[-1]) == ("false", "100000")
    finally:
        box.check("cd /sbin && mv mkfs.xfs.away mkfs.xfs && mv mkfs.ext3.away mkfs.ext3")
    assert probe.errors(mark[1]) == (
        "Error spawning mkfs.xfs: No such file or directory\n"
        "Error spawning mkfs.ext3: No such file or directory\n")


def test_check_of_a_clean_file_system(box, probe, ext3):
    result, *seen = probe.call("check", 0)
    assert (result, seen[-1]) == ("true", "100000")


def test_check_repairs_and_says_so(box, probe, ext3):
    """The tool's status 1, errors corrected, is a failure; the next check succeeds."""
    box.check(f"mount -t ext3 /dev/sda1 {DIRECTORY} && echo data >{DIRECTORY}/file"
              f" && umount {DIRECTORY}")
    for request in ("clri file", "ssv state 2"):
        box.check(["debugfs", "-w", "-R", request, "/dev/sda1"])
    mark = probe.mark()
    result, *seen = probe.call("check", 0)
    assert (result, seen[-1]) == ("false", "100000")
    assert re.search(r"/dev/sda1: .*file.* \(CLEARED|Entry 'file'", probe.log(mark[0]))
    # More values than start and end; the tool repeats the last pass when it repairs.
    assert len(set(seen)) > 3
    assert probe.call("check", 0)[0] == "true"
    box.check("fsck.ext3 -fn /dev/sda1")


def test_check_of_another_file_system_fails(probe, xfs):
    assert probe.call("check", 1)[0] == "false"


def test_a_mounted_file_system_is_not_checked(box, probe, ext3):
    before = probe.call("check", 0)[-1]
    assert probe.call("mount", 0, DIRECTORY, "ext3") is True
    assert probe.call("check", 0) == ["true", before]


@pytest.mark.parametrize("number, kind", [(0, "ext3"), (1, "xfs")])
def test_mount_measure_unmount(box, probe, ext3, xfs, number, kind):
    assert probe.call("space", number) == ["0", "0", "0"]
    assert probe.call("mount", number, DIRECTORY, kind) is True
    assert f"/dev/sda{number + 1} {DIRECTORY} {kind} " in box.check("cat /proc/mounts")
    before = kernel_space(box, DIRECTORY)
    assert probe.call("space", number) == before
    box.check(f"dd if=/dev/zero of={DIRECTORY}/file bs=1M count=20 && sync")
    after = kernel_space(box, DIRECTORY)
    assert probe.call("space", number) == after
    assert 20 * MIB <= int(before[2]) - int(after[2]) < 21 * MIB
    assert probe.call("unmount", number) is True
    assert probe.call("space", number) == ["0", "0", "0"]
    assert probe.call("unmount", number) is False


def test_mounting_twice_and_elsewhere(box, probe, ext3):
    assert probe.call("mount", 0, DIRECTORY, "ext3") is True
    assert probe.call("mount", 0, DIRECTORY, "ext3") is True
    assert box.check("grep -c '^/dev/sda1 ' /proc/mounts") == "1"
    assert probe.call("mount", 0, "/mnt/other", "ext3") is True
    assert box.check("grep '^/dev/sda1 ' /proc/mounts").split()[1] == "/mnt/other"


def test_a_busy_file_system_is_not_moved(box, probe, ext3):
    assert probe.call("mount", 0, DIRECTORY, "ext3") is True
    assert probe.call("hold", DIRECTORY) is True
    mark = probe.mark()
    assert probe.call("mount", 0, "/mnt/other", "ext3") is False
    assert probe.call("is-mounted", 0) == ["true", DIRECTORY]
    assert probe.call("release") is True
    assert probe.errors(mark[1]) == "Umount failure: Device or resource busy\n"


def test_mount_options_reach_the_kernel(box, probe, ext3):
    assert probe.call("mount", 0, DIRECTORY, "ext3", "ro,noatime") is True
    options = box.check("grep '^/dev/sda1 ' /proc/mounts").split()[3].split(",")
    assert {"ro", "noatime"} <= set(options)


def test_what_cannot_be_mounted(box, probe, ext3):
    mark = probe.mark()
    assert probe.call("mount", 0, DIRECTORY, "xfs") is False
    assert probe.call("mount", 0, "/mnt/nowhere", "ext3") is False
    assert re.findall(r"Mount failed with code (\d+)\n", probe.log(mark[0])) == [
        str(32 << 8)] * 2
    assert probe.errors(mark[1]).count("Mount Failure: ") == 2
    assert probe.call("is-mounted", 0) == ["false", "-"]
