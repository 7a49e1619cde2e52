# SPDX-License-Identifier: MIT
"""The partition table of the box."""

import json

import pytest

DISK = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0"
TEXT = f"""\
device 0: {DISK}
  partition 0: {DISK}-part1
    software, ext3 on /boot-sw
  partition 1: {DISK}-part2
    data, xfs on /media/data0-1
    settings
    bulk in /media/data0-1/bulk (project 110)
    temporary files in /media/data0-1/temp
"""
DATA = {
    "command": "table",
    "devices": [{
        "id": 0, "type": 1, "device": DISK,
        "partitions": [
            {"id": 0, "device": f"{DISK}-part1", "usage": "software", "filesystem": "ext3",
             "mountpoint": "/boot-sw", "settings": False, "bulk": False, "bulkProject": 0,
             "bulkDirectory": "", "temp": False, "tempDirectory": ""},
            {"id": 1, "device": f"{DISK}-part2", "usage": "data", "filesystem": "xfs",
             "mountpoint": "/media/data0-1", "settings": True, "bulk": True, "bulkProject": 110,
             "bulkDirectory": "/bulk", "temp": True, "tempDirectory": "/temp"}]}]}


@pytest.mark.parametrize("options", [[], ["--minimal"], ["-v"]])
def test_text(kestrova, options):
    run = kestrova(*options, "table")
    assert (run.returncode, run.stdout, run.stderr) == (0, TEXT, "")


@pytest.mark.parametrize("arguments", [["--json", "table"], ["table", "--json"]])
def test_json(kestrova, arguments):
    run = kestrova(*arguments)
    assert run.returncode == 0 and run.stdout.count("\n") == 1
    assert json.loads(run.stdout) == DATA


@pytest.mark.parametrize("options", [["-v", "-v"], ["-vv"], ["--level", "2"], ["--level=2"]])
def test_the_librarys_own_words_go_to_standard_error(kestrova, options):
    run = kestrova(*options, "--json", "table")
    assert json.loads(run.stdout) == DATA
    assert "*smpBlockdeviceConfig={" in run.stderr


def test_leaves_the_drive_alone(fake_drive):
    run = fake_drive.formatted().run("table")
    assert (run.returncode, run.stdout) == (0, TEXT)
    assert not (fake_drive.state / "log").exists()
