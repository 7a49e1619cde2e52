# SPDX-License-Identifier: MIT
"""The boot variables on the box's real software partition, with the library and the command."""

import base64
import json
import shutil
import struct
import zlib

import pytest

from box.hardware import Disk
from box.software import DEVICE, software_disk
from driveprobe import BUILD, box, probe, probe_box  # noqa: F401

PART = f"{DEVICE}-part1"
MOUNT_POINT = "/boot-sw"
FILES = ["boot_env", "boot_env.bkp", "boot_env.tmp"]
STATES = [None, "ro", "rw"]


@pytest.fixture(scope="module")
def drive_box(box_image):
    if not (BUILD / "kestrova").exists():
        pytest.skip(f"{BUILD / 'kestrova'} is not built")
    with probe_box([software_disk()]) as running:
        yield running


@pytest.fixture
def variables(box, probe):
    """The application, started minimally, without variables and with the partition unmounted."""
    box.check(f"mount {PART} /mnt && rm -f /mnt/boot_env* && umount /mnt")
    probe.call("up", "minimal")
    yield probe
    probe.call("down")
    # A mount left behind by a failed test would affect the next one.
    box.run(f"umount {MOUNT_POINT}")


def mounts(box):
    """Returns the partition's mounts and their options, as reported by the kernel."""
    node = box.check(f"readlink -f {PART}")
    lines = map(str.split, box.check("cat /proc/mounts").splitlines())
    return [(line[1], line[3].split(",")) for line in lines if line[0] in (node, PART)]


def mounted_as(box, state):
    """Mounts the partition in one of STATES and returns the result of mounts()."""
    if state is not None:
        box.check(f"mount -t ext3 -o {state} {PART} {MOUNT_POINT}")
    return mounts(box)


def vars_command(box, *words, **options):
    return box.run(["kestrova", "vars", *words], **options)


def parsed(image):
    """Returns the variables of a file, parsed like the boot stage does."""
    flags, = struct.unpack("<I", image[:4])
    checksum, size = struct.unpack(">II", image[4:12])
    assert (flags, checksum, size) == (0x00ffffff, zlib.crc32(image[12:]), len(image) - 12)
    records = image[12:].split(b"\0\0")
    assert records.pop() == b""
    return dict(record.split(b"\0") for record in records)


def files(box):
    """Returns the variables of each existing file, read directly from the partition."""
    box.check(f"mount -o ro {PART} /mnt")
    try:
        there = {name: box.run(f"cat /mnt/{name}") for name in FILES}
    finally:
        box.check("umount /mnt")
    return {name: parsed(result.stdout) for name, result in there.items() if result.status == 0}


def test_the_library_sets_gets_lists_and_clears(box, variables):
    assert variables.call("vars-list") is True
    assert variables.call("vars-get", "language", 8) == ["false", "????????"]
    assert variables.call("vars-set", "region", "eu") is True
    assert variables.call("vars-set", "language", "deutsch") is True
    assert variables.call("vars-list") == ["true", "language=deutsch", "region=eu"]
    assert variables.call("vars-get", "language", 8) == ["true", "deutsch"]
    assert variables.call("vars-get", "language", 5) == ["true", "deut"]
    assert variables.call("vars-clear", "region") is True
    assert variables.call("vars-list") == ["true", "language=deutsch"]
    assert files(box) == {"boot_env": {b"language": b"deutsch"},
                          "boot_env.bkp": {b"language": b"deutsch", b"region": b"eu"}}


def test_the_library_keeps_bytes(box, variables):
    every = "".join(f"{byte:02x}" for byte in range(256))
    assert variables.call("vars-set-bytes", "key", every) is True
    assert variables.call("vars-get-bytes", "key", 256) == ["true", every]
    assert variables.call("vars-get-bytes", "key", 255) is False
    assert variables.call("vars-get-bytes", "none", 256) is False


def test_the_command_and_the_library_share_the_variables(box, variables):
    assert vars_command(box, "set", "from", "the command").status == 0
    assert variables.call("vars-get", "from", 64) == ["true", "the command"]
    assert variables.call("vars-set", "from", "the library") is True
    listed = vars_command(box, "list", "--json")
    assert json.loads(listed.stdout)["variables"] == [{"name": "from", "value": "the library"}]
    got = vars_command(box, "get", "from")
    assert (got.status, got.stdout) == (0, b"the library\n")
    assert vars_command(box, "clear", "from").status == 0
    assert variables.call("vars-list") is True
    assert vars_command(box, "get", "from").status == 3


def test_the_command_tells_what_is_wrong(box, variables):
    absent = vars_command(box, "list")
    assert absent.status == 3 and b"there is no boot environment yet" in absent.stderr
    box.check(f"mount {PART} /mnt && echo damaged, and nothing else > /mnt/boot_env && umount /mnt")
    damaged = vars_command(box, "get", "a")
    assert damaged.status == 1 and b"boot_env: bad flags" in damaged.stderr
    assert mounts(box) == []


def test_the_largest_environment_fits_and_one_byte_more_does_not(box, variables):
    most = 65524 - len("a") - 3
    box.check(f"head -c {most} /dev/zero | tr '\\0' v > /tmp/most")
    assert box.run('kestrova vars set a "$(cat /tmp/most)"').status == 0
    before = files(box)
    assert before == {"boot_env": {b"a": b"v" * most}}
    refused = box.run('kestrova vars set a "$(cat /tmp/most)v"')
    assert refused.status == 1
    assert files(box) == before
    box.check("rm /tmp/most")


def test_a_full_partition_keeps_the_old_variables(box, variables):
    """Files of the box's programs occupy all blocks; none is left for the new variables."""
    assert variables.call("vars-set", "a", "1") is True
    # Blocks that the driver reserves while a large file grows are left for small ones.
    box.check(f"mount {PART} /mnt && mkdir /mnt/filler && "
              "{ cat /dev/zero >/mnt/filler/large; sync; n=0; "
              "while echo 1 >/mnt/filler/$n; do n=$((n + 1)); done; umount /mnt; } 2>/dev/null")
    try:
        mark = variables.mark()
        assert variables.call("vars-set", "a", "2") is False
        assert "Failed to wirte environment file\n" in variables.log(mark[0])
        assert vars_command(box, "set", "b", "3").status == 1
        assert mounts(box) == []
        assert variables.call("vars-list") == ["true", "a=1"]
        kept = box.check(f"mount -o ro {PART} /mnt && cat /mnt/boot_env | base64; umount /mnt")
        assert parsed(base64.b64decode(kept)) == {b"a": b"1"}
    finally:
        box.check(f"mount {PART} /mnt && rm -r /mnt/filler && umount /mnt")
    assert variables.call("vars-set", "a", "2") is True
    assert files(box) == {"boot_env": {b"a": b"2"}, "boot_env.bkp": {b"a": b"1"}}


@pytest.mark.parametrize("state", STATES)
def test_the_partition_is_left_as_it_was_found(box, variables, state):
    before = mounted_as(box, state)
    assert len(before) == (0 if state is None else 1)
    assert variables.call("vars-set", "a", "1") is True
    assert mounts(box) == with_noexec(before, state == "ro")
    assert variables.call("vars-get", "a", 8) == ["true", "1"]
    assert vars_command(box, "get", "a").stdout == b"1\n"
    assert variables.call("vars-clear", "none") is True
    assert mounts(box) == with_noexec(before, state == "ro")


def with_noexec(before, remounted):
    """A partition that was remounted keeps the noexec flag."""
    return [(place, [options[0], "noexec", *options[1:]] if remounted else options)
            for place, options in before]


def test_a_reading_call_mounts_nothing_writable(box, variables):
    assert variables.call("vars-set", "a", "1") is True
    mark = variables.mark()
    assert variables.call("vars-get", "a", 8) == ["true", "1"]
    said = variables.log(mark[0])
    assert "Mouting HDD mode:1\n" in said and "Mouting HDD mode:2\n" not in said
    assert said.endswith(f"umount {MOUNT_POINT}\n")
    box.check(f"blockdev --setro {PART}")
    try:
        assert variables.call("vars-get", "a", 8) == ["true", "1"]
        assert variables.call("vars-set", "a", "2") is False
    finally:
        box.check(f"blockdev --setrw {PART}")
    assert files(box)["boot_env"] == {b"a": b"1"}
    assert mounts(box) == []


@pytest.mark.parametrize("state", ["ro", "rw"])
def test_another_name_of_the_node_is_the_same_partition(box, variables, state):
    number = box.check(f"lsblk -no MAJ:MIN {PART} | tr ':' ' '").split()
    box.check(f"rm -f /dev/other && mknod -m 600 /dev/other b {' '.join(number)} && "
              f"mount -t ext3 -o {state} /dev/other /mnt")
    try:
        assert box.check("stat -Lc %f /dev/other") == box.check(f"stat -Lc %f {PART}")
        assert variables.call("vars-set", "a", "1") is True
        assert vars_command(box, "get", "a").stdout == b"1\n"
        assert "boot_env" in box.check("ls /mnt") and not box.check(f"ls {MOUNT_POINT}")
    finally:
        box.check("umount /mnt; rm /dev/other")


def test_a_reader_does_not_keep_a_partition_from_being_written(box, variables):
    mounted_as(box, "rw")
    box.check(f"touch {MOUNT_POINT}/held && mount -o remount,ro {MOUNT_POINT}")
    assert variables.call("hold", f"{MOUNT_POINT}/held") is True
    try:
        assert variables.call("vars-set", "a", "1") is True
        assert mounts(box)[0][1][0] == "ro"
        assert vars_command(box, "get", "a").stdout == b"1\n"
    finally:
        assert variables.call("release") is True


def test_a_partition_that_is_in_use_elsewhere_cannot_be_written(box, variables):
    """Mounted read-only in another mount namespace."""
    assert variables.call("vars-set", "a", "1") is True
    box.check("mkfifo /tmp/end")
    elsewhere = box.start(f"unshare --mount sh -c 'mount -o ro {PART} /mnt && "
                          "touch /tmp/occupied && read -r line </tmp/end'")
    try:
        box.check("until [ -e /tmp/occupied ]; do :; done")
        mark = variables.mark()
        assert variables.call("vars-get", "a", 8) == ["true", "1"]
        assert variables.errors(mark[1]) == ""
        assert variables.call("vars-set", "a", "2") is False
        busy = "Error mounting update device: Device or resource busy\n"
        assert variables.errors(mark[1]) == busy
        assert vars_command(box, "set", "a", "2").status == 1
        assert mounts(box) == []
    finally:
        box.check("echo >/tmp/end; rm /tmp/end /tmp/occupied")
        elsewhere.wait(60)
    assert files(box) == {"boot_env": {b"a": b"1"}}


def test_no_partition_no_variables(box, variables):
    box.check(f"mv {PART} /tmp/part1")
    try:
        mark = variables.mark()
        assert variables.call("vars-get", "a", 8) == ["false", "????????"]
        assert variables.call("vars-list") is True
        assert variables.call("vars-set", "a", "1") is False
        # A read, a list, and a save that loads first.
        failure = "Error mounting update device: No such file or directory\n"
        assert variables.errors(mark[1]) == failure * 4
        assert vars_command(box, "get", "a").status == 1
    finally:
        box.check(f"mv /tmp/part1 {PART}")


def test_minimal_mode_needs_no_drive(box, variables):
    assert variables.call("has-manager") is False
    result = box.run(["kestrova", "--minimal", "vars", "set", "a", "1"])
    assert (result.status, result.stderr) == (0, b"")
    assert variables.call("vars-get", "a", 8) == ["true", "1"]


def test_variables_outlive_a_reboot(box_image, tmp_path):
    """On a disk that outlives its box, without a final sync."""
    path = tmp_path / "disk.img"
    shutil.copyfile(software_disk().path, path)
    with probe_box([Disk(bus="scsi", path=path)]) as first:
        first.probe.call("up", "minimal")
        assert first.probe.call("vars-set", "kept", "over the reboot") is True
        assert vars_command(first, "set", "second", "2").status == 0
        first.kill()
    with probe_box([Disk(bus="scsi", path=path)]) as again:
        again.probe.call("up", "minimal")
        assert again.probe.call("vars-list") == ["true", "kept=over the reboot", "second=2"]
        assert vars_command(again, "get", "second").stdout == b"2\n"
        assert files(again)["boot_env.bkp"] == {b"kept": b"over the reboot"}
