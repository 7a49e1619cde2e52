# SPDX-License-Identifier: MIT
"""The adapters with which the library can use current tools."""

import pathlib
import shutil
import subprocess

import pytest

from box.hardware import MIB, Disk

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOLS = ROOT / "box" / "tools"
REAL = "/usr/lib/kestrova/tools"
WRITE = "sfdisk -q -L -uM /dev/sda"
MKFS = "mkfs.xfs -L {label} -f -l lazy-count=0 {device}"
EMPTY = "start=        0, size=        0, Id= 0"


@pytest.fixture
def bare(box):
    """The module's box with a recording drive without a table or signatures."""
    box.check("umount /mnt 2>/dev/null; wipefs -qa /dev/sda? 2>/dev/null; "
              "dd if=/dev/zero of=/dev/sda bs=1M count=2 2>/dev/null && "
              "dd if=/dev/zero of=/dev/sda bs=1M seek=1022 2>/dev/null; "
              "blockdev --rereadpt /dev/sda")
    return box


def write(box, script):
    return box.run(WRITE, input=script)


def dump(box, device="/dev/sda"):
    return box.check(f"sfdisk -d {device}").splitlines()


def slots(box, device="/dev/sda"):
    """Returns the dump's entries after the head, without the device's name."""
    lines = dump(box, device)
    assert lines[:3] == [f"# partition table of {device}", "unit: sectors", ""]
    return [line.removeprefix(device) for line in lines[3:]]


def checksum(box, device="/dev/sda"):
    return box.check(f"head -c 1048576 {device} | sha256sum")


def real(box, script, options=""):
    """Writes a table with the current tool itself."""
    box.check(f"{REAL}/sfdisk -q {options} /dev/sda", input=script)


# sfdisk -d

def test_dump_of_a_blank_disk_is_four_empty_slots(bare):
    result = bare.run("sfdisk -d /dev/sda")
    assert (result.status, result.stderr) == (0, b"")
    assert slots(bare) == [f"{number} : {EMPTY}" for number in (1, 2, 3, 4)]


def test_dump_has_the_older_text_exactly(bare):
    real(bare, "label: dos\nstart=63, size=16002, type=83\nstart=20480, size=4096, type=7\n")
    assert dump(bare)[3:] == [
        "/dev/sda1 : start=       63, size=    16002, Id=83",
        "/dev/sda2 : start=    20480, size=     4096, Id= 7",
        f"/dev/sda3 : {EMPTY}",
        f"/dev/sda4 : {EMPTY}"]


def test_dump_keeps_an_empty_slot_in_its_place_and_tells_the_boot_flag(bare):
    real(bare, "label: dos\n2: start=2048, size=4096, type=83, bootable\n")
    assert slots(bare) == [f"1 : {EMPTY}", "2 : start=     2048, size=     4096, Id=83, bootable",
                           f"3 : {EMPTY}", f"4 : {EMPTY}"]


def test_dump_lists_logical_partitions_after_the_four(bare):
    real(bare, "label: dos\nstart=2048, size=8192, type=5\n5: start=4096, size=1024, type=82\n")
    assert slots(bare) == ["1 : start=     2048, size=     8192, Id= 5", f"2 : {EMPTY}",
                           f"3 : {EMPTY}", f"4 : {EMPTY}",
                           "5 : start=     4096, size=     1024, Id=82"]


def test_dump_of_a_guid_table_shows_its_protective_entry(bare):
    real(bare, "label: gpt\nstart=2048, size=8192\n")
    protective = bare.check("od -A n -t u4 -j 458 -N 4 /dev/sda").strip()
    assert protective == str(1024 * MIB // 512 - 1)
    assert slots(bare) == [f"1 : start=        1, size={protective:>9}, Id=ee",
                           f"2 : {EMPTY}", f"3 : {EMPTY}", f"4 : {EMPTY}"]


def test_dump_works_on_a_mounted_disk(bare):
    write(bare, ";\n")
    bare.check("mkfs.ext3 -q /dev/sda1 && mount /dev/sda1 /mnt")
    before = slots(bare)
    bare.check("umount /mnt")
    assert before == slots(bare)


def test_partitions_of_a_device_that_ends_in_a_digit_are_named_with_p(box):
    box.check("truncate -s 8M /tmp/disk && losetup /dev/loop3 /tmp/disk")
    try:
        assert slots(box, "/dev/loop3")[0] == f"p1 : {EMPTY}"
    finally:
        box.check("losetup -d /dev/loop3; rm /tmp/disk")


def test_partitions_under_a_device_link_are_named_as_its_links(box):
    path = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0"
    lines = slots(box, path)
    assert lines[0] == "-part1 : start=     2048, size=   131072, Id=83"
    assert lines[2] == f"-part3 : {EMPTY}"


@pytest.mark.parametrize("device", ["/dev/nosuch", "/dev/null", "/tmp"])
def test_dump_of_what_is_no_disk_fails(box, device):
    result = box.run(f"sfdisk -d {device}")
    assert result.status == 1 and result.stdout == b""
    assert device.encode() in result.stderr


def test_dump_of_an_unreadable_disk_fails(boot):
    disk = Disk(size=64 * MIB)
    box = boot(disks=[disk])
    box.pull(disk)
    result = box.run("sfdisk -d /dev/sda")
    assert result.status != 0 and result.stdout == b"" and result.stderr != b""


# sfdisk -q -L -uM

def test_sizes_are_megabytes_of_2048_sectors(bare):
    assert write(bare, ",100\n,200\n;\n").status == 0
    assert slots(bare) == ["1 : start=     2048, size=   204800, Id=83",
                           "2 : start=   206848, size=   409600, Id=83",
                           "3 : start=   616448, size=  1480704, Id=83", f"4 : {EMPTY}"]


def test_four_partitions(bare):
    assert write(bare, ",10\n,20\n,30\n,40\n").status == 0
    assert bare.check("cat /sys/block/sda/sda?/size").split() == [
        str(size * 2048) for size in (10, 20, 30, 40)]


def test_writing_is_quiet(bare):
    result = write(bare, ";\n")
    assert (result.status, result.stdout, result.stderr) == (0, b"", b"")


def test_nodes_are_there_when_the_tool_returns(bare):
    for script, nodes in (",10\n,10\n,10\n", 3), (";\n", 1), (",5\n;\n", 2):
        status = bare.run(f"printf '{script}' | {WRITE} && set -- /dev/sda? && "
                          "for node; do test -b $node || exit 9; done; exit $#").status
        assert status == nodes


def test_a_new_table_replaces_the_old_one_whole(bare):
    write(bare, ",10\n,10\n,10\n,10\n")
    write(bare, ",50\n")
    assert slots(bare) == ["1 : start=     2048, size=   102400, Id=83",
                           f"2 : {EMPTY}", f"3 : {EMPTY}", f"4 : {EMPTY}"]


def test_a_guid_table_is_replaced_by_a_dos_one(bare):
    real(bare, "label: gpt\nstart=2048, size=8192\nsize=8192\n")
    assert write(bare, ",100\n;\n").status == 0
    assert slots(bare)[0] == "1 : start=     2048, size=   204800, Id=83"
    bare.check("blockdev --rereadpt /dev/sda")
    assert bare.check("cat /sys/block/sda/sda?/size").split() == ["204800", "1890304"]


@pytest.mark.parametrize("make", ["mkfs.ext3 -q {}", MKFS.format(label="x", device="{}")])
def test_the_same_table_again_keeps_the_file_systems(bare, make):
    write(bare, ",400\n;\n")
    for node in ("/dev/sda1", "/dev/sda2"):
        bare.check(make.format(node) + f" && mount {node} /mnt && echo {node} >/mnt/x; umount /mnt")
    before = dump(bare)
    # An empty disk in between, as after a table written by mistake.
    assert write(bare, ",3\n").status == 0
    assert write(bare, ",400\n;\n").status == 0
    assert dump(bare) == before
    for node in ("/dev/sda1", "/dev/sda2"):
        assert bare.check(f"mount {node} /mnt; cat /mnt/x; umount /mnt") == node


def test_a_file_system_on_the_bare_disk_does_not_hinder(bare):
    bare.check("mkfs.ext3 -qF /dev/sda")
    assert write(bare, ";\n").status == 0
    assert slots(bare)[0].endswith("Id=83")


def test_a_disk_in_use_is_refused_and_kept(bare):
    write(bare, ",100\n;\n")
    bare.check("mkfs.ext3 -q /dev/sda2 && mount /dev/sda2 /mnt")
    before = checksum(bare)
    result = write(bare, ";\n")
    assert result.status != 0 and b"in use" in result.stderr
    assert checksum(bare) == before
    bare.check("umount /mnt")


@pytest.mark.parametrize("script, reason", [
    ("", "no partition is given"),
    (",0\n", "size out of range"),
    (",2097152\n", "size out of range"),
    (",-1\n", "not understood"),
    ("100\n", "not understood"),
    (",100M\n", "not understood"),
    (",100,82\n", "not understood"),
    ("label: gpt\n", "not understood"),
    (";\n,10\n", "nothing may follow"),
    (",1\n,1\n,1\n,1\n,1\n", "four primary partitions"),
    (",10\n\n", "not understood"),
])
def test_a_script_that_is_not_understood_is_refused_and_the_disk_kept(bare, script, reason):
    write(bare, ",50\n,60\n")
    before = checksum(bare)
    result = write(bare, script)
    assert result.status == 1 and reason.encode() in result.stderr
    assert checksum(bare) == before


def test_all_that_fits_is_taken(bare):
    # One of the 1024 MB contains the table.
    assert write(bare, ",1000\n,23\n").status == 0
    assert bare.check("cat /sys/block/sda/sda?/size").split() == ["2048000", "47104"]
    assert write(bare, ",1022\n;\n").status == 0
    assert bare.check("cat /sys/block/sda/sda?/size").split() == ["2093056", "2048"]


@pytest.mark.parametrize("script, reason", [
    (",1024\n", "more than the disk holds"),
    (",1000\n,24\n", "more than the disk holds"),
    (",1023\n;\n", "nothing is left"),
])
def test_more_than_fits_is_refused_and_the_disk_kept(bare, script, reason):
    write(bare, ",50\n")
    before = checksum(bare)
    result = write(bare, script)
    assert result.status == 1 and reason.encode() in result.stderr
    assert checksum(bare) == before


@pytest.mark.parametrize("arguments", [
    "", "/dev/sda", "-d", "-d /dev/sda /dev/sdb", "-l /dev/sda", "-uM /dev/sda",
    "-q -uM -L /dev/sda", "-q -L -uS /dev/sda", "-q -L -uM", "-q -L -uM /dev/sda -f",
    "--delete /dev/sda"])
def test_other_uses_of_sfdisk_are_refused(bare, arguments):
    write(bare, ",50\n")
    before = checksum(bare)
    result = bare.run(f"sfdisk {arguments}", input=";\n")
    assert result.status == 1 and result.stdout == b"" and b"understood" in result.stderr
    assert checksum(bare) == before


def test_a_missing_tool_behind_the_adapter_fails(bare):
    for command in ("sfdisk -d /dev/sda", WRITE, MKFS.format(label="x", device="/dev/sda")):
        assert bare.run(f"KESTROVA_TOOLS=/nowhere {command}", input=";\n").status != 0


def test_a_kernel_that_keeps_the_old_table_is_told_of(bare):
    """The real tool writes nothing here, so the kernel cannot agree with its dump."""
    write(bare, ",50\n")
    bare.check("mkdir -p /tmp/fake")
    bare.check("cat >/tmp/fake/sfdisk; chmod +x /tmp/fake/sfdisk", input=(
        "#!/bin/sh\n"
        "case $1 in\n"
        "-d) echo '/dev/sda1 : start= 4096, size= 4096, type=83' ;;\n"
        "-q) cat >/dev/null ;;\n"
        "*) exit 9 ;;\n"
        "esac\n"))
    result = bare.run(f"KESTROVA_TOOLS=/tmp/fake {WRITE}", input=";\n")
    assert result.status == 1 and b"has not taken over" in result.stderr


# mkfs.xfs

@pytest.mark.parametrize("megabytes", [20, 299, 300, 600])
def test_xfs_is_made_without_lazy_counters_at_any_size(bare, megabytes):
    write(bare, f",{megabytes}\n")
    result = bare.run(MKFS.format(label="DVRStorage", device="/dev/sda1"))
    assert result.status == 0 and b"lazy-count=0" in result.stdout
    assert bare.check("head -c 4 /dev/sda1") == "XFSB"
    assert bare.check("dd if=/dev/sda1 bs=1 skip=108 count=12 2>/dev/null | tr -d '\\0'") == \
        "DVRStorage"
    # The smallest has one allocation group, which the checker accepts only on request.
    bare.check("xfs_repair -n -o force_geometry /dev/sda1")
    bare.check("mount -t xfs /dev/sda1 /mnt -o prjquota && grep ' /mnt .*prjquota' /proc/mounts")
    assert "Accounting: ON" in bare.check("xfs_quota -x -c 'state -p' /mnt")
    bare.check("umount /mnt")


def test_xfs_replaces_what_was_there(bare):
    write(bare, ",400\n")
    bare.check("mkfs.ext3 -q -L old /dev/sda1")
    bare.check(MKFS.format(label="new", device="/dev/sda1"))
    # Nothing of the old superblock may remain, because it would be found first.
    assert bare.check("od -A n -t x2 -j 1080 -N 2 /dev/sda1").strip() != "ef53"
    assert bare.check("blkid -o value -s LABEL -s TYPE /dev/sda1").split() == ["new", "xfs"]


def test_xfs_label_is_passed_as_one_word(bare):
    write(bare, ",400\n")
    bare.check(["mkfs.xfs", "-L", "a b$c", "-f", "-l", "lazy-count=0", "/dev/sda1"])
    assert bare.check("blkid -o value -s LABEL /dev/sda1") == "a b$c"


def test_xfs_keeps_the_status_of_the_tool_behind(bare):
    write(bare, ",400\n")
    bare.check(MKFS.format(label="x", device="/dev/sda1") + " && mount /dev/sda1 /mnt")
    result = bare.run(MKFS.format(label="x", device="/dev/sda1"))
    assert result.status == 1 and b"mounted" in result.stderr
    bare.check("umount /mnt")
    # Thirteen characters are one too many.
    assert bare.run(MKFS.format(label="1234567890123", device="/dev/sda1")).status != 0


@pytest.mark.parametrize("arguments", [
    "", "/dev/sda1", "-f /dev/sda1", "-L x -f /dev/sda1", "-L x -f -l lazy-count=1 /dev/sda1",
    "-L x -f -l lazy-count=0", "-L x -f -l lazy-count=0 /dev/sda1 -N",
    "-f -L x -l lazy-count=0 /dev/sda1"])
def test_other_uses_of_mkfs_are_refused(bare, arguments):
    write(bare, ",400\n")
    bare.check("mkfs.ext3 -q /dev/sda1")
    before = checksum(bare, "/dev/sda1")
    result = bare.run(f"mkfs.xfs {arguments}")
    assert result.status == 1 and b"understood" in result.stderr
    assert checksum(bare, "/dev/sda1") == before


@pytest.mark.parametrize("device", ["/dev/nosuch", "/dev/null", "/tmp"])
def test_mkfs_of_what_is_no_partition_fails(box, device):
    result = box.run(MKFS.format(label="x", device=device))
    assert result.status == 1 and device.encode() in result.stderr


# Both

@pytest.mark.parametrize("name", sorted(path.name for path in TOOLS.iterdir()))
def test_adapters_are_plain_shell(name):
    if shutil.which("shellcheck") is None:
        pytest.skip("shellcheck is not installed")
    found = subprocess.run(["shellcheck", "-s", "dash", TOOLS / name], capture_output=True,
                           text=True, check=False)
    assert found.returncode == 0, found.stdout
