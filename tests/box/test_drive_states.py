# SPDX-License-Identifier: MIT
"""The recording drive's states, with workers delayed by a slow disk."""

import pytest

from box.hardware import MIB, Disk
from driveprobe import box, probe, probe_box, system, throttle  # noqa: F401

STORAGE_MB, DATA_MB = 400, 320


@pytest.fixture(scope="module")
def drive_box(box_image):
    with probe_box([Disk(size=1024 * MIB)]) as running:
        yield running


@pytest.fixture(autouse=True)
def as_before(drive_box):
    """Undoes mounts and throttling after each test."""
    yield
    throttle(drive_box, drive_box.disks[0], 0)
    drive_box.run("umount -a -t ext3,xfs")


@pytest.fixture
def recorder(system):
    """The drive with its two partitions formatted, status ready; stopped after the test."""
    prepare(system)
    yield system
    if system.status()[0] in ("starting", "started"):
        system.finish()
        assert system.call("stop") is True


def partition(system, *sizes):
    """Writes a new table like an application."""
    assert system.call("shut") is True
    assert system.call("partition", *sizes) is True
    assert system.call("init") is True


def prepare(system):
    """Partitions and formats the drive, unless that has been done."""
    found = [system.call("describe", n)[3:] for n in range(int(system.call("partitions")[0]))]
    if system.status()[0] == "ready" and found == [["xfs", "DVRStorage"], ["xfs", "DVRData"]]:
        return
    partition(system, STORAGE_MB, DATA_MB, 0, 0)
    assert system.call("initialize") is True
    assert system.finish() == "ready"
    assert system.call("init") is True


def started(recorder):
    """Starts the drive and waits until it is started."""
    assert recorder.call("start") is True
    assert recorder.finish() == "started"


def after_the_worker(system):
    """Returns the last status. A worker whose data partition failed reports that before it continues
    with the storage partition; only the operation lock shows its end."""
    assert system.call("stop") is False
    return system.status()


def mounts(box):
    """Returns directory, type and options by device."""
    lines = map(str.split, box.check("grep '^/dev/sd' /proc/mounts || true").splitlines())
    return {line[0]: (line[1], line[2], line[3].split(",")) for line in lines}


def test_a_bare_disk_waits_to_be_formatted(box, system):
    assert system.call("has-drive") is True
    assert system.status() == ("not-formatted", 100)
    assert system.call("partitions") == ["0"]
    assert system.sizes() == [0, 0, 0]
    mark = system.mark()
    assert system.call("start") is False
    assert "Fail1 status(2)((nil))\n" in system.log(mark[0])
    assert "mStartupState 0 \n" in system.log(mark[0])


def test_formatting_a_disk_without_partitions_fails(system):
    assert system.call("initialize") is True
    assert system.finish() == "error"
    assert system.call("init") is True


def format_with_old_data(box, system):
    """Starts a format while the old data partition, ext3, is mounted and has much to write. The disk
    is slow, so that each step is visible."""
    box.check("mkfs.ext3 -q /dev/sda2 && mount -t ext3 /dev/sda2 /mnt"
              " && dd if=/dev/zero of=/mnt/dirty bs=1M count=20")
    assert system.call("init") is True
    throttle(box, box.disks[0], 4)
    assert system.call("initialize") is True


def test_progress_of_a_first_format(box, system):
    partition(system, STORAGE_MB, DATA_MB, 0, 0)
    format_with_old_data(box, system)
    assert system.status() == ("formatting", 5)
    assert system.sizes() == [0, 0, 0]
    throttle(box, box.disks[0], 40)
    seen = system.until(("formatting", 60))
    throttle(box, box.disks[0], 0)
    seen += system.until(("ready", 100))
    assert list(dict.fromkeys(seen)) == [
        ("formatting", 5), ("formatting", 60), ("formatting", 90), ("ready", 100)]
    assert mounts(box) == {}


def test_progress_when_the_storage_is_known(box, recorder):
    format_with_old_data(box, recorder)
    assert recorder.status() == ("formatting", 30)
    throttle(box, box.disks[0], 0)
    seen = recorder.until(("ready", 100))
    assert list(dict.fromkeys(seen))[-2:] == [("formatting", 90), ("ready", 100)]


def test_start_mounts_with_project_quotas(box, recorder):
    started(recorder)
    mounted = mounts(box)
    assert mounted["/dev/sda1"][:2] == ("/dvr", "xfs")
    assert "prjquota" in mounted["/dev/sda1"][2]
    assert mounted["/dev/sda2"][:2] == ("/dvr/data", "xfs")
    assert "prjquota" not in mounted["/dev/sda2"][2]
    state = box.check("xfs_quota -x -c 'state -p' /dvr")
    assert "Accounting: ON" in state and "Enforcement: ON" in state


def test_start_wakes_the_drive(recorder):
    mark = recorder.mark()
    started(recorder)
    assert "setting standby to 0 (off)" in recorder.log(mark[0])


@pytest.mark.parametrize("umask, mode", [("22", "1411"), ("0", "1411"), ("77", "1400")])
def test_mode_of_the_data_directory(box, recorder, umask, mode):
    box.check("mount -t xfs /dev/sda1 /dvr && rm -rf /dvr/data && umount /dvr")
    recorder.call("umask", umask)
    started(recorder)
    recorder.call("umask", "22")
    assert recorder.call("stop") is True
    # The directory itself, which the mounted data partition hides.
    box.check("mount -t xfs /dev/sda1 /mnt")
    assert box.check("stat -c %a /mnt/data; umount /mnt") == mode


def test_a_data_directory_that_exists_is_kept_as_it_is(box, recorder):
    box.check("mount -t xfs /dev/sda1 /mnt && rm -rf /mnt/data && mkdir -m 755 /mnt/data"
              " && umount /mnt")
    started(recorder)
    assert recorder.call("stop") is True
    assert box.check("mount -t xfs /dev/sda1 /mnt && stat -c %a /mnt/data; umount /mnt") == "755"


def test_a_file_where_the_data_directory_belongs(box, recorder):
    box.check("mount -t xfs /dev/sda1 /mnt && rm -rf /mnt/data && touch /mnt/data && umount /mnt")
    mark = recorder.mark()
    assert recorder.call("start") is True
    # mkdir() fails with EEXIST, which is accepted; the mount on it fails.
    assert recorder.finish() == "error"
    assert "FSMount (data) Failed\n" in recorder.log(mark[0])
    assert set(mounts(box)) == {"/dev/sda1"}
    assert recorder.call("init") is True
    assert mounts(box) == {}
    box.check("mount -t xfs /dev/sda1 /mnt && rm /mnt/data && umount /mnt")


def test_sizes_are_those_of_the_kernel(box, recorder):
    assert recorder.sizes() == [0, 0, 0]
    started(recorder)
    for megabytes in (0, 30):
        box.check(f"dd if=/dev/zero of=/dvr/data/file bs=1M count={megabytes} && sync")
        block, blocks, free = map(int, box.check("stat -f -c '%S %b %f' /dvr/data").split())
        assert recorder.sizes() == [block, block * free >> 20, block * blocks >> 20]
        total, used, left = map(int, box.check("df -m /dvr/data | tail -n 1").split()[1:4])
        assert abs(total - recorder.sizes()[2]) <= 1
        assert abs(left - recorder.sizes()[1]) <= 1
    box.check("rm /dvr/data/file")
    assert recorder.call("stop") is True
    assert recorder.sizes() == [0, 0, 0]


def test_a_full_file_system(box, recorder):
    started(recorder)
    result = box.run("dd if=/dev/zero of=/dvr/data/fill bs=1M")
    assert result.status != 0 and b"No space left on device" in result.stderr
    box.run("dd if=/dev/zero of=/dvr/data/rest bs=4k")
    assert recorder.sizes()[1] == 0
    # The journal's space is not included.
    assert recorder.sizes()[2] > DATA_MB * 3 // 4
    assert recorder.call("stop") is True
    started(recorder)
    assert recorder.sizes()[1] == 0
    box.check("rm /dvr/data/fill /dvr/data/rest && sync")
    assert recorder.sizes()[1] > DATA_MB // 2


def test_no_format_while_started(box, recorder):
    started(recorder)
    box.check("echo kept >/dvr/data/file")
    assert recorder.call("initialize") is False
    assert recorder.call("start") is False
    assert recorder.status() == ("started", 100)
    assert box.check("cat /dvr/data/file; rm /dvr/data/file") == "kept"
    assert recorder.call("stop") is True
    assert recorder.call("stop") is False
    assert recorder.status() == ("ready", 100)
    assert recorder.call("initialize") is True
    assert recorder.finish() == "ready"


def test_stop_while_a_file_is_open(box, recorder):
    """The busy file system stays mounted; after the file is closed, init restores the drive."""
    started(recorder)
    box.check("echo recording >/dvr/data/file")
    assert recorder.call("hold", "/dvr/data/file") is True
    mark = recorder.mark()
    assert recorder.call("stop") is False
    assert recorder.status() == ("error", 100)
    # The storage partition below it cannot be unmounted either.
    assert recorder.errors(mark[1]) == "Umount failure: Device or resource busy\n" * 2
    assert set(mounts(box)) == {"/dev/sda1", "/dev/sda2"}
    assert recorder.call("init") is False
    assert recorder.status() == ("error", 100)
    assert "sysDVRDrive::init() failed\n" in recorder.log(mark[0])
    assert recorder.call("release") is True
    assert recorder.call("init") is True
    assert recorder.status() == ("ready", 100)
    assert mounts(box) == {}
    started(recorder)
    assert box.check("cat /dvr/data/file; rm /dvr/data/file") == "recording"


def test_stop_while_only_the_storage_is_busy(box, recorder):
    started(recorder)
    box.check("touch /dvr/file")
    assert recorder.call("hold", "/dvr/file") is True
    assert recorder.call("stop") is False
    assert recorder.status() == ("error", 100)
    assert set(mounts(box)) == {"/dev/sda1"}
    assert recorder.call("release") is True
    assert recorder.call("init") is True
    assert mounts(box) == {}


def test_init_unmounts_whatever_mounted_them(box, recorder):
    box.check("mkdir -p /mnt/a /mnt/b && mount -t xfs /dev/sda1 /mnt/a"
              " && mount -t xfs /dev/sda2 /mnt/b")
    assert recorder.call("init") is True
    assert mounts(box) == {}
    assert recorder.status() == ("ready", 100)


def mount_thrice(box):
    """Mounts the storage partition on two directories, and on a third under another name of its node."""
    box.check("mkdir -p /mnt/a /mnt/b /mnt/c && mount -t xfs /dev/sda1 /mnt/a"
              " && mount -t xfs /dev/sda1 /mnt/b && rm -f /tmp/alias && cp -a /dev/sda1 /tmp/alias"
              " && mount -t xfs /tmp/alias /mnt/c && grep -q '^/tmp/alias /mnt/c ' /proc/mounts")


def storage_mounts(box):
    return box.check("grep -cE '^(/dev/sda1|/tmp/alias) ' /proc/mounts || true")


def test_init_unmounts_from_every_directory(box, recorder):
    mount_thrice(box)
    assert recorder.call("init") is True
    assert storage_mounts(box) == "0"
    assert recorder.status() == ("ready", 100)


def test_a_format_unmounts_from_every_directory(box, recorder):
    mount_thrice(box)
    assert recorder.call("initialize") is True
    assert recorder.finish() == "ready"
    assert storage_mounts(box) == "0"


def test_a_partition_that_is_busy_elsewhere_is_not_formatted(box, recorder):
    mount_thrice(box)
    box.check("echo kept >/mnt/a/file; sleep 600 </mnt/a/file & echo $! >/tmp/holder")
    try:
        assert recorder.call("initialize") is True
        assert after_the_worker(recorder) == ("error", 100)
        assert box.check("cat /mnt/a/file") == "kept"
    finally:
        box.check("kill $(cat /tmp/holder)")
    assert recorder.call("init") is True
    assert storage_mounts(box) == "0"
    started(recorder)
    assert box.check("cat /dvr/file; rm /dvr/file") == "kept"


def test_start_takes_a_drive_that_others_have_mounted(box, recorder):
    box.check("mkdir -p /mnt/a && mount -t xfs /dev/sda1 /mnt/a")
    started(recorder)
    assert mounts(box)["/dev/sda1"][0] == "/dvr"


def test_what_is_mounted_outlives_the_system(box, recorder):
    """Stopping the system unmounts nothing, the next start does."""
    started(recorder)
    box.check("echo kept >/dvr/data/file")
    recorder.call("down")
    assert set(mounts(box)) == {"/dev/sda1", "/dev/sda2"}
    recorder.call("up", "full")
    assert mounts(box) == {}
    started(recorder)
    assert box.check("cat /dvr/data/file; rm /dvr/data/file") == "kept"


def test_start_waits_for_a_format(box, recorder):
    disk = box.disks[0]
    throttle(box, disk, 4)
    assert recorder.call("initialize") is True
    recorder.until(("formatting", 90))
    recorder.call("begin", "start")
    # The size queries and the status return meanwhile.
    for _ in range(5):
        assert recorder.status()[0] == "formatting"
        assert recorder.sizes() == [0, 0, 0]
        assert recorder.call("finished") is False
    throttle(box, disk, 0)
    assert recorder.call("end") is True
    assert recorder.finish() == "started"
    assert set(mounts(box)) == {"/dev/sda1", "/dev/sda2"}


def test_the_end_of_the_system_waits_for_a_format(box, recorder):
    disk = box.disks[0]
    throttle(box, disk, 4)
    assert recorder.call("initialize") is True
    recorder.call("begin", "down")
    assert recorder.call("finished") is False
    box.check("pidof mkfs.xfs")
    throttle(box, disk, 0)
    recorder.call("end")
    assert box.run("pidof mkfs.xfs").status == 1
    recorder.call("up", "full")
    assert recorder.status() == ("ready", 100)


@pytest.mark.parametrize("victims, outcome", [(1, "ready"), (2, "error")])
def test_a_format_tool_killed_in_the_middle(box, recorder, victims, outcome):
    """A format that lost only the data partition leaves the storage usable."""
    disk = box.disks[0]
    throttle(box, disk, 4)
    assert recorder.call("initialize") is True
    box.check(f"""killed= count=0
                  while [ $count -lt {victims} ]; do
                      pid=$(pidof mkfs.xfs) && [ "$pid" != "$killed" ] || continue
                      kill -KILL "$pid" && killed=$pid && count=$((count + 1))
                  done""")
    throttle(box, disk, 0)
    assert after_the_worker(recorder) == (outcome, 100)
    assert recorder.call("initialize") is True
    assert recorder.finish() == "ready"
    started(recorder)


def test_a_drive_with_one_partition(box, system):
    """All of it is storage; recordings need no data partition."""
    partition(system, 400, 0, 0, 0)
    box.check("dd if=/dev/zero of=/dev/sda1 bs=64k count=1 conv=fsync")
    assert system.call("init") is True
    assert system.status() == ("not-formatted", 100)
    assert system.call("initialize") is True
    assert after_the_worker(system) == ("ready", 100)
    assert system.call("start") is True
    assert system.finish() == "started"
    assert mounts(box)["/dev/sda1"][0] == "/dvr"
    assert box.run("test -e /dvr/data").status != 0
    block, blocks = map(int, box.check("stat -f -c '%S %b' /dvr").split())
    assert system.sizes()[2] == block * blocks >> 20
    assert system.call("stop") is True
    assert system.call("init") is True
    assert system.status() == ("ready", 100)
    assert system.call("describe", 0)[3:] == ["xfs", "DVRStorage"]
