# SPDX-License-Identifier: MIT
"""The life cycle of a recording drive, across a restart of the box, on its oldest processor.

The tests are steps in this order. A build that needs more than the processor's baseline fails the
first one.
"""

import json

import pytest

from box.hardware import MIB, OLD_CPU, Disk
from driveprobe import probe_box

SIZE_MB = 1500
STORAGE_MB = 1000


@pytest.fixture(scope="module")
def disk(tmp_path_factory):
    """A blank disk that outlives its boxes."""
    path = tmp_path_factory.mktemp("life") / "recorder.img"
    with open(path, "wb") as file:
        file.truncate(SIZE_MB * MIB)
    return path


def test_first_life(box_image, disk):
    """From a blank disk to a recording."""
    with probe_box([Disk(path=disk)], cpu=OLD_CPU) as box:
        record(box, box.probe)
        assert box.power_off() == 0


def record(box, probe):
    """Everything that an application does with a new drive."""
    flags = box.check("grep ^flags /proc/cpuinfo").split()
    assert "sse" not in flags and "sse2" not in flags
    probe.call("up", "full")
    assert probe.status() == ("not-formatted", 100)
    assert probe.call("partitions") == ["0"]

    assert probe.call("shut") is True
    assert probe.call("partition", STORAGE_MB, -1, 0, 0) is True
    assert probe.call("init") is True
    assert probe.status() == ("not-formatted", 100)
    assert probe.call("partitions") == ["2"]

    assert probe.call("initialize") is True
    assert [step.split()[0] for step in probe.call("watch")][-1] == "ready"
    assert probe.call("start") is True
    assert probe.call("watch")[-1] == "started 100"

    free = probe.sizes()[1]
    box.check("dd if=/dev/urandom of=/dvr/data/recording bs=1M count=40"
              " && sha256sum /dvr/data/recording >/dvr/data/sum && sync")
    assert 39 <= free - probe.sizes()[1] <= 41
    box.check("sha256sum -c /dvr/data/sum")
    assert probe.call("stop") is True
    assert probe.status() == ("ready", 100)
    assert probe.sizes() == [0, 0, 0]
    probe.call("shut")
    assert probe.status() == ("none", 100)
    probe.call("down")
    assert probe.call("children") is False


def test_second_life(box_image, disk):
    """After a restart the drive is ready, with the recording on it."""
    with probe_box([Disk(path=disk)], cpu=OLD_CPU) as box:
        probe = box.probe
        probe.call("up", "full")
        assert probe.status() == ("ready", 100)
        assert [probe.call("describe", n)[3:] for n in (0, 1)] == [
            ["xfs", "DVRStorage"], ["xfs", "DVRData"]]
        assert probe.call("start") is True
        assert probe.finish() == "started"
        box.check("sha256sum -c /dvr/data/sum")
        # The box loses its power while the drive is mounted.
        box.check("dd if=/dev/urandom of=/dvr/data/second bs=1M count=5 conv=fsync"
                  " && sha256sum /dvr/data/second >/dvr/data/sum2 && sync")
        box.kill()


def test_third_life(box_image, disk):
    """A power cut loses no synced data, and the command shows all of it."""
    with probe_box([Disk(path=disk)], cpu=OLD_CPU) as box:
        probe = box.probe
        probe.call("up", "full")
        assert probe.status() == ("ready", 100)
        assert probe.call("start") is True
        assert probe.finish() == "started"
        box.check("sha256sum -c /dvr/data/sum /dvr/data/sum2")
        assert probe.call("stop") is True
        probe.call("down")
        if box.run("test -x /usr/bin/kestrova").status != 0:
            pytest.skip("the command is not built")
        table = json.loads(box.check("kestrova --json table"))
        assert "pci-0000:01:0e.0-scsi-0:0:0:0-part1" in json.dumps(table)
        box.check("kestrova -v drive info")
        assert "DVRStorage" in box.check("kestrova drive info")
