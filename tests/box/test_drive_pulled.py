# SPDX-License-Identifier: MIT
"""A recording drive that is missing, and one that is removed between two calls.

The drive is a SCSI disk here, the only kind that can leave its bus while the box runs. For the next
test it is inserted as a new disk with the old contents.
"""

import pytest

from box.hardware import MIB, Disk
from driveprobe import box, probe, probe_box, throttle  # noqa: F401


class Drive:
    """A SCSI disk that can be removed and reinserted."""

    def __init__(self, box, path):
        self.disk, self._box, self._path = box.disks[0], box, path

    def pull(self):
        """Removes it from its bus: it does not answer any more, but its node still exists."""
        self._box.pull(self.disk)

    def vanish(self):
        """Removes it, and its node as well."""
        self._box.check("echo 1 >/sys/block/sda/device/delete")
        self.pull()
        self._box.check("until ! [ -e /dev/sda ]; do usleep 10000; done")

    def put_back(self):
        """Inserts the same disk again as /dev/sda, after the old one has been released."""
        if f"dev-{self.disk.name}" in self._box.qmp.command(
                "human-monitor-command", command_line="info qtree"):
            return
        self._box.run("echo 1 >/sys/block/sda/device/delete")
        drive = f"if=none,id={self.disk.name},file={self._path},format=raw"
        said = self._box.qmp.command("human-monitor-command",
                                     command_line=f"drive_add 0 {drive}")
        assert said.strip() == "OK"
        self._box.qmp.command("device_add", driver="scsi-hd", bus="scsi0.0", drive=self.disk.name,
                              id=f"dev-{self.disk.name}", **{"scsi-id": 0, "lun": 0})
        # A disk's node exists before it can be opened; its partitions appear last.
        self._box.check("""for host in /sys/class/scsi_host/*/scan; do
                               echo '0 0 0' >"$host"
                           done
                           until [ -b /dev/sda2 ] && blockdev --getsize64 /dev/sda
                           do usleep 10000; done""")


@pytest.fixture(scope="module")
def drive_box(box_image, tmp_path_factory):
    path = tmp_path_factory.mktemp("pulled") / "drive.img"
    with open(path, "wb") as file:
        file.truncate(1024 * MIB)
    with probe_box([Disk(bus="scsi", path=path, model="PULLED")]) as running:
        running.drive = Drive(running, path)
        probe = running.probe
        probe.call("up", "full")
        probe.call("shut")
        assert probe.call("partition", 400, 320, 0, 0) is True
        assert probe.call("init") is True
        assert probe.call("initialize") is True
        assert probe.finish() == "ready"
        probe.call("down")
        yield running


@pytest.fixture
def drive(box):
    """The drive, present at the start and again after the test."""
    yield box.drive
    box.run("umount -l /dvr/data; umount -l /dvr")
    box.drive.put_back()


@pytest.fixture
def system(probe, drive):
    """The application with the system started and the drive ready."""
    probe.call("up", "full")
    assert probe.status() == ("ready", 100)
    yield probe
    probe.call("down")


def started(system):
    """Starts the drive and waits until it is started."""
    assert system.call("start") is True
    assert system.finish() == "started"


def assert_usable(box, system):
    """Expects that init restores everything after the drive is back."""
    box.run("umount -l /dvr/data; umount -l /dvr")
    box.drive.put_back()
    assert system.call("init") is True
    assert system.status() == ("ready", 100)
    started(system)
    assert system.call("stop") is True


def test_no_drive_at_all(probe, drive):
    drive.vanish()
    mark = probe.mark()
    probe.call("up", "full")
    assert probe.log(mark[0]) == "No DVR Drive Detected\n"
    assert probe.call("has-manager") is True
    assert probe.call("has-drive") is False
    probe.call("down")


@pytest.mark.parametrize("leave", ["pull", "vanish"])
def test_pulled_before_init(box, system, drive, leave):
    getattr(drive, leave)()
    assert system.call("init") is False
    assert system.status() == ("error", 100)
    assert system.sizes() == [0, 0, 0]
    assert system.call("start") is False
    assert_usable(box, system)


def test_pulled_before_a_scan(system, drive):
    drive.vanish()
    mark = system.mark()
    assert system.call("shut") is True
    assert system.call("partition", 100, -1, 0, 0) is False
    assert system.call("partitions") == ["0"]
    assert "waitpid failed\n" in system.log(mark[0])


@pytest.mark.parametrize("leave", ["pull", "vanish"])
def test_pulled_before_start(box, system, drive, leave):
    getattr(drive, leave)()
    mark = system.mark()
    assert system.call("start") is True
    assert system.finish() == "error"
    for message in ("Mount failed with code 8192\n", "FSMount (dvr) Failed\n"):
        assert message in system.log(mark[0])
    assert system.sizes() == [0, 0, 0]
    assert_usable(box, system)


@pytest.mark.parametrize("leave", ["pull", "vanish"])
def test_pulled_before_a_format(box, system, drive, leave):
    getattr(drive, leave)()
    assert system.call("initialize") is True
    assert system.call("stop") is False  # waits for the worker's exit
    assert system.status() == ("error", 100)
    assert_usable(box, system)


def test_pulled_in_the_middle_of_a_format(box, system, drive):
    throttle(box, drive.disk, 2)
    assert system.call("initialize") is True
    box.check("until pidof mkfs.xfs; do usleep 10000; done")
    throttle(box, drive.disk, 0)
    drive.vanish()
    assert system.call("stop") is False
    assert system.status() == ("error", 100)
    assert box.run("pidof mkfs.xfs").status == 1
    box.drive.put_back()
    assert system.call("init") is True
    assert system.call("initialize") is True
    assert system.finish() == "ready"
    assert_usable(box, system)


@pytest.mark.parametrize("leave", ["pull", "vanish"])
def test_pulled_while_recording(box, system, drive, leave):
    """The size queries still return, and stop unmounts the dead file systems."""
    started(system)
    box.check("dd if=/dev/zero of=/dvr/data/recording bs=1M count=5 conv=fsync")
    getattr(drive, leave)()
    assert box.run("dd if=/dev/zero of=/dvr/data/more bs=1M count=5 conv=fsync").status != 0
    assert len(system.sizes()) == 3
    assert system.status() == ("started", 100)
    assert system.call("stop") is True
    assert box.run("grep -q ^/dev/sda /proc/mounts").status == 1
    assert system.sizes() == [0, 0, 0]
    assert_usable(box, system)


def test_standby_of_a_drive_that_is_gone(system, drive):
    drive.vanish()
    mark = system.mark()
    assert system.call("spin-down") is False
    assert system.call("spin-down-delayed") is False
    assert system.call("spin-up") is False
    assert "issuing standby" not in system.log(mark[0])
    # One message from each hdparm: standby is not requested if the timer could not be set.
    assert system.errors(mark[1]) == "/dev/sda: No such file or directory\n" * 2
