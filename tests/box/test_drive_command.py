# SPDX-License-Identifier: MIT
"""The command kestrova on a real drive."""

import json

import pytest

from box.hardware import MIB, Disk
from box.machine import Box, product_files
from driveprobe import BUILD, throttle


@pytest.fixture(scope="module")
def box(box_image):
    if not (BUILD / "kestrova").exists():
        pytest.skip(f"{BUILD / 'kestrova'} is not built")
    with Box(disks=[Disk(size=1024 * MIB, model="COMMANDED", serial="C-1")],
             files=product_files(BUILD)) as running:
        yield running


def kestrova(box, *words):
    """Runs the command and returns its JSON answers; it must succeed."""
    return [json.loads(line) for line in
            box.check(["kestrova", "--json", *words]).splitlines()]


@pytest.fixture
def ready(box):
    """A formatted drive that is not mounted."""
    if kestrova(box, "drive", "status")[0]["status"] != "ready":
        kestrova(box, "drive", "partition", "400", "rest", "--yes", "--force")
        kestrova(box, "drive", "format", "--yes", "--force")


def test_a_bare_disk(box):
    info = kestrova(box, "drive", "info")[0]
    assert (info["model"], info["serial"], info["capacity"]) == ("COMMANDED", "C-1", 1024 * MIB)
    assert info["status"] == "not-formatted" and info["partitions"] == []
    assert box.run("kestrova drive start").status == 1


@pytest.mark.parametrize("words", ["drive partition 100", "drive format",
                                   "drive partition rest 100 --yes", "drive partition 0 --yes"])
def test_refusals_touch_nothing(box, words):
    before = box.check("head -c 1048576 /dev/sda | sha256sum")
    result = box.run(f"kestrova {words}")
    assert result.status == 2 and result.stdout == b""
    assert result.stderr.startswith(b"kestrova: ")
    assert box.check("head -c 1048576 /dev/sda | sha256sum") == before


def test_partition_format_start_stop(box):
    answer = kestrova(box, "drive", "partition", "400", "rest", "--yes")[0]
    assert [part["capacity"] // MIB for part in answer["partitions"]] == [400, 623]
    answer = kestrova(box, "drive", "format", "--yes")[0]
    assert answer["status"] == "ready"
    assert {"status": "formatting", "progress": 90} in answer["changes"]
    script = "drive start; drive info; drive stop; drive info"
    start, started, stop, stopped = kestrova(box, "shell", "-e", script)
    assert (start["status"], stop["status"]) == ("started", "ready")
    for info, where in ((started, ["/dvr", "/dvr/data"]), (stopped, [None, None])):
        assert [(part["label"], part["mountpoint"]) for part in info["partitions"]] == list(
            zip(["DVRStorage", "DVRData"], where))
    assert box.run("grep -q ^/dev/sda /proc/mounts").status == 1


def test_a_start_outlives_its_process_until_a_stop(box, ready):
    kestrova(box, "drive", "start")
    assert box.check("grep -c ^/dev/sda /proc/mounts") == "2"
    assert kestrova(box, "drive", "status")[0]["status"] == "started"
    assert box.check("grep -c ^/dev/sda /proc/mounts") == "2"
    assert kestrova(box, "drive", "stop")[0]["status"] == "ready"
    assert box.run("grep -q ^/dev/sda /proc/mounts").status == 1


def test_minimal_leaves_the_drive_alone(box, ready):
    kestrova(box, "drive", "start")
    kestrova(box, "--minimal", "table")
    result = box.run("kestrova --minimal drive status")
    assert result.status == 1 and result.stderr
    assert box.check("grep -c ^/dev/sda /proc/mounts") == "2"
    kestrova(box, "drive", "stop")


def test_a_slow_format_is_followed_from_the_same_shell(box, ready):
    disk = box.disks[0]
    throttle(box, disk, 4)
    job = box.start(["kestrova", "--json", "shell", "-e",
                     "drive format --yes --no-wait; drive status; drive watch"])
    box.check("until pidof mkfs.xfs; do usleep 10000; done")
    throttle(box, disk, 0)
    begun, status, watched = map(json.loads, job.wait().stdout.splitlines())
    assert begun["status"] == status["status"] == "formatting"
    assert watched["status"] == "ready"


def test_a_tool_that_fails(box, ready):
    box.check("mv /sbin/mkfs.xfs /sbin/mkfs.xfs.away")
    result = box.run("kestrova --json drive format --yes")
    box.check("mv /sbin/mkfs.xfs.away /sbin/mkfs.xfs")
    assert result.status == 1
    assert "storage" in json.loads(result.stdout)["error"]
    assert b"Error spawning mkfs.xfs: No such file or directory" in result.stderr


def test_a_foreign_file_system_is_not_erased(box, ready):
    box.check("mkfs.ext3 -q -L photos /dev/sda1 && mkdir -p /mnt && mount /dev/sda1 /mnt"
              " && echo holiday >/mnt/picture")
    result = box.run("kestrova drive format --yes --force")
    assert result.status == 1 and b"/dev/sda1 is mounted on /mnt" in result.stderr
    assert box.check("cat /mnt/picture") == "holiday"
    box.check("umount /mnt")
    for words in ["format --yes", "partition --yes rest"]:
        result = box.run(f"kestrova drive {words}")
        assert result.status == 1 and b"(ext3, label 'photos')" in result.stderr
    box.check("mount /dev/sda1 /mnt && grep holiday /mnt/picture && umount /mnt")
    kestrova(box, "drive", "format", "--yes", "--force")


def test_the_saved_table_brings_the_file_systems_back(box, ready):
    before = box.check("sfdisk -d /dev/sda")
    answer = kestrova(box, "drive", "partition", "rest", "--yes")[0]
    assert box.check("sfdisk -d /dev/sda") != before
    assert "larger than the partition" not in box.check("kestrova drive status")
    box.check(answer["restore"] + " >/dev/null 2>&1")
    box.check("until [ -b /dev/sda2 ]; do usleep 10000; done")
    assert box.check("sfdisk -d /dev/sda") == before
    assert kestrova(box, "drive", "status")[0]["status"] == "ready"


def test_recording_under_onlookers_loses_nothing(box, ready):
    """A second process queries the drive continuously."""
    job = box.start("kestrova drive with -- sh -c 'i=0; while [ $i -lt 300 ]; do"
                    " echo $i >>$KESTROVA_RECORDINGS/film || exit; i=$((i + 1)); usleep 5000; done;"
                    " sync; cat $KESTROVA_RECORDINGS/film'")
    box.check("until grep -q ' /dvr/data ' /proc/mounts; do usleep 10000; done")
    looks = 0
    while job.poll(0.05) is None:
        for words in ["status", "info", "watch"]:
            result = box.run(f"kestrova --json drive {words}")
            assert result.status == 0, result
            looks += json.loads(result.stdout)["status"] == "started"
    ended = job.wait()
    assert ended.status == 0 and looks > 3
    assert ended.stdout.split() == [str(number).encode() for number in range(300)]
    assert box.run("grep -q ^/dev/sda /proc/mounts").status == 1


def test_a_killed_recorder_leaves_a_drive_that_works(box, ready):
    job = box.start("exec kestrova drive with -- sleep 1000")
    box.check("until grep -q ' /dvr/data ' /proc/mounts && pidof sleep; do usleep 10000; done")
    box.check("kill -9 $(pidof kestrova); while pidof sleep; do usleep 10000; done")
    job.wait()
    assert kestrova(box, "drive", "status")[0]["status"] == "started"
    kestrova(box, "drive", "with", "--", "true")
    assert kestrova(box, "drive", "status")[0]["status"] == "ready"


def test_check_of_ext3(box, ready):
    box.check("mkfs.ext3 -q /dev/sda2")
    assert kestrova(box, "drive", "check", "1")[0]["path"] == "/dev/sda2"
    box.check(["debugfs", "-w", "-R", "ssv free_blocks_count 1", "/dev/sda2"])
    box.check(["debugfs", "-w", "-R", "ssv state 2", "/dev/sda2"])
    assert box.run("kestrova drive check 1").status == 1
    kestrova(box, "drive", "check", "/dev/sda2")


def test_check_of_xfs(box, ready):
    assert kestrova(box, "drive", "check", "0")[0]["path"] == "/dev/sda1"
    box.check("xfs_db -x -c 'agf 0' -c 'write freeblks 1' /dev/sda1")
    result = box.run("kestrova drive check 0")
    assert result.status == 1 and b"'drive check --repair' repairs them" in result.stderr
    kestrova(box, "drive", "check", "--repair", "/dev/sda1")
    kestrova(box, "drive", "check", "0")


def test_standby(box, ready):
    kestrova(box, "drive", "spin-down")
    kestrova(box, "drive", "spin-up")


def test_without_a_drive(box, ready):
    box.check("echo 1 >/sys/block/sda/device/delete; until ! [ -e /dev/sda ]; do :; done")
    for words in ["status", "start"]:
        result = box.run(f"kestrova -v drive {words}")
        assert result.status == 1
        assert b"no recording drive: /dev/sda: No such file or directory" in result.stderr
