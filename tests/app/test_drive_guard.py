# SPDX-License-Identifier: MIT
"""Destructive commands refuse what they must not destroy, and show what they would destroy."""

import json
import re

import pytest

DESTROYERS = [["partition", "--yes", "100", "rest"], ["format", "--yes"]]
TABLE_SCRIPT = ["sfdisk -q -L -uM /dev/sda"]


def destroyed(drive):
    """Returns the calls of tools that change the disk."""
    return [call for call in drive.calls() if call.startswith(("mkfs", "sfdisk -q"))]


@pytest.mark.parametrize("words", DESTROYERS)
def test_a_foreign_file_system_is_not_destroyed(fake_drive, words):
    fake_drive.table([256, 512])
    fake_drive.format_ext3(1, "photos")
    before = (fake_drive.state / "dev/sda1").read_bytes()
    run = fake_drive.run("drive", *words)
    assert run.returncode == 1 and not run.stdout, run
    assert ("/dev/sda1 holds what is not the recording drive's own (ext3, label 'photos'); --force "
            "destroys it all the same") in run.stderr
    assert destroyed(fake_drive) == [] and (fake_drive.state / "dev/sda1").read_bytes() == before
    run = fake_drive.run("drive", *words, "--force")
    assert run.returncode == 0 and destroyed(fake_drive), run


@pytest.mark.parametrize("words", DESTROYERS)
def test_an_xfs_file_system_of_another_label_is_foreign(fake_drive, words):
    fake_drive.formatted().format(2, "backup")
    run = fake_drive.run("drive", *words)
    assert run.returncode == 1 and "(xfs, label 'backup')" in run.stderr, run
    assert destroyed(fake_drive) == []


def test_a_file_system_on_the_whole_disk_is_foreign(fake_drive):
    fake_drive.format_ext3(0, "")
    run = fake_drive.run("drive", "partition", "--yes", "rest")
    assert run.returncode == 1 and "/dev/sda holds what is not" in run.stderr, run
    assert destroyed(fake_drive) == []


@pytest.mark.parametrize("words", DESTROYERS)
def test_the_boxes_blkid_knows_more(fake_drive, words):
    fake_drive.table([256, 512])
    fake_drive.add_tool("blkid", """#!/bin/sh
[ "$*" = "-p -o export /dev/sda2" ] || exit 2
printf 'DEVNAME=/dev/sda2\\nLABEL=vault\\nTYPE=zfs_member\\nPART_ENTRY_TYPE=0x83\\n'
""")
    run = fake_drive.run("drive", *words)
    assert run.returncode == 1 and "/dev/sda2 holds" in run.stderr, run
    assert "(zfs_member, label 'vault')" in run.stderr and destroyed(fake_drive) == []


@pytest.mark.parametrize("words", [[*words, *more] for words in DESTROYERS for more in [[], ["--force"]]])
def test_a_mounted_partition_is_not_destroyed(fake_drive, words):
    """Whoever mounted it, and on any directory; --force does not help."""
    other = fake_drive.formatted().start("shell")
    other.stdin.write("run 'mkdir /mnt; /real/mount -t tmpfs /dev/sda2 /mnt; echo mounted'\n")
    other.stdin.flush()
    assert other.stdout.readline() == "mounted\n"
    run = fake_drive.join(other, "drive", *words)
    assert run.returncode == 1 and "/dev/sda2 is mounted on /mnt: " in run.stderr, run
    assert destroyed(fake_drive) == []
    other.stdin.write("run 'umount /mnt'\n")
    other.stdin.close()
    assert other.wait(60) == 0  # it was mounted until now


def test_dry_runs_show_and_do_nothing(fake_drive):
    fake_drive.formatted()
    run = fake_drive.run("drive", "partition", "--dry-run", "100", "rest")
    assert run.returncode == 0 and run.stdout == (
        "ALL DATA on /dev/sda (model FAKE\\x1bDRIVE, 1024 MiB) would be lost:\n"
        "  /dev/sda1   256 MiB    xfs      DVRStorage\n"
        "  /dev/sda2   512 MiB    xfs      DVRData\n"
        "It would be partitioned as 100 MiB, the rest by\n"
        "  /sbin/sfdisk -q -L -uM /dev/sda\n"), run
    answer = json.loads(fake_drive.run("--json", "drive", "format", "--dry-run").stdout)
    assert answer["wouldRun"] == ["/sbin/mkfs.xfs -L DVRData -f -l lazy-count=0 /dev/sda2",
                                  "/sbin/mkfs.xfs -L DVRStorage -f -l lazy-count=0 /dev/sda1"]
    assert [(loss["path"], loss["content"], loss["label"], loss["own"])
            for loss in answer["losses"]] == [("/dev/sda1", "xfs", "DVRStorage", True),
                                              ("/dev/sda2", "xfs", "DVRData", True)]
    fake_drive.format(1, "backup")
    run = fake_drive.run("drive", "format", "--dry-run")
    assert run.returncode == 1 and "not the recording drive's own" in run.stderr
    assert fake_drive.calls() == []


def saved_tables(drive):
    return sorted((drive.state / "lib/kestrova").glob("*"))


def test_the_old_table_is_saved_first(fake_drive):
    fake_drive.formatted()
    run = fake_drive.run("drive", "partition", "--yes", "100", "rest")
    assert run.returncode == 0, run
    [saved] = saved_tables(fake_drive)
    assert re.fullmatch(r"partition-table-\d{8}-\d{6}", saved.name)
    assert saved.stat().st_mode & 0o777 == 0o600
    assert saved.read_text() == ("/dev/sda1 : start=     2048, size=  524288, Id=83\n"
                                 "/dev/sda2 : start=   526336, size= 1048576, Id=83\n")
    assert ("The old table is saved; this brings it back:\n"
            f"  /sbin/sfdisk /dev/sda </var/lib/kestrova/{saved.name}\n") in run.stdout
    answer = json.loads(fake_drive.run("--json", "drive", "partition", "--yes", "--save-table",
                                       "/state/mine", "rest").stdout)
    assert answer["savedTable"] == "/state/mine" and answer["restore"].endswith(" </state/mine")
    assert "size=  204800" in (fake_drive.state / "mine").read_text()
    assert len(saved_tables(fake_drive)) == 1


def test_a_table_that_cannot_be_saved_is_not_replaced(fake_drive):
    fake_drive.formatted()
    (fake_drive.state / "mine").write_text("older")
    run = fake_drive.run("drive", "partition", "--yes", "--save-table", "/state/mine", "rest")
    assert run.returncode == 1 and "/state/mine: File exists" in run.stderr, run
    (fake_drive.state / "lib/kestrova").write_text("no folder")
    (fake_drive.state / "run/kestrova").write_text("no folder")
    run = fake_drive.run("drive", "partition", "--yes", "rest")
    assert run.returncode == 1 and "nothing was changed: /var/lib/kestrova/" in run.stderr, run
    assert "--save-table FILE saves it elsewhere" in run.stderr
    assert destroyed(fake_drive) == [] and (fake_drive.state / "mine").read_text() == "older"


def test_without_a_lasting_folder_the_table_is_saved_until_the_next_restart(fake_drive):
    fake_drive.formatted()
    (fake_drive.state / "lib/kestrova").write_text("no folder")
    run = fake_drive.run("drive", "partition", "--yes", "rest")
    assert run.returncode == 0 and "saved, until the next restart of the box;" in run.stdout, run
    assert len(list((fake_drive.state / "run/kestrova").iterdir())) == 1


def test_a_bare_disk_has_no_table_to_save(fake_drive):
    run = fake_drive.run("drive", "partition", "--yes", "100")
    assert run.returncode == 0 and "old table" not in run.stdout, run
    assert saved_tables(fake_drive) == []


def test_a_missing_partition_tool_is_not_an_empty_table(fake_drive):
    fake_drive.formatted()
    (fake_drive.state / "tools/sfdisk").unlink()
    for words in [["info"], ["status"], ["partition", "--yes", "100"], ["format", "--yes"],
                  ["start"], ["check", "0"]]:
        run = fake_drive.run("--json", "drive", *words)
        assert run.returncode == 1, run
        assert ("the partition table can't be read: /sbin/sfdisk can't be run: No such file or "
                "directory; install it") in json.loads(run.stdout)["error"]
        assert "comes next" not in run.stderr and "comes first" not in run.stderr
    assert "Partitions: not known\n" in fake_drive.run("drive", "info").stdout
    assert fake_drive.calls() == []


def test_a_partition_tool_that_refuses_is_quoted(fake_drive):
    fake_drive.formatted().add_tool("sfdisk", """#!/bin/sh
echo "sfdisk: unrecognized option" >&2
exit 3
""")
    run = fake_drive.run("drive", "info")
    assert run.returncode == 1 and "comes next" not in run.stdout, run
    assert ("the partition table can't be read: /sbin/sfdisk -d: exit status 3, \"sfdisk: "
            "unrecognized option\"; if it is a tool of today, 'kestrova-box-tools enable' adapts "
            "it") in run.stderr


def test_a_file_system_larger_than_its_partition(fake_drive):
    fake_drive.formatted().format(2, "DVRData", 600)
    problem = ("/dev/sda2 holds a file system of 600 MiB, larger than the partition of 512 MiB: the "
               "partition table was changed after the format; write the old table back, or format")
    run = fake_drive.run("drive", "info")
    assert run.returncode == 0 and f"Status:    error\nProblem:   {problem}\n" in run.stdout, run
    assert "needs 600 MiB, the partition is too small, not mounted" in run.stdout
    run = fake_drive.run("drive", "start")
    assert run.returncode == 1 and run.stderr == f"kestrova: drive start: {problem}\n", run
    assert fake_drive.calls() == []
