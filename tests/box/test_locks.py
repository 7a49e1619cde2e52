# SPDX-License-Identifier: MIT
"""The lock of the boot variables between processes of the box."""

import pytest

from box.hardware import Disk
from box.machine import Box, product_files
from box.software import DEVICE, software_disk
from driveprobe import BUILD

PART = f"{DEVICE}-part1"
LOCK = "/run/lock/kestrova/vars.lock"
BUSY = 7
ROUNDS = 200
LONG = 1200  # seconds

# $1 a name, $2 rounds: sets this many variables; prints those that failed.
WRITER = """
i=0
while [ $i -lt $2 ]; do
    kestrova vars set --wait 300 $1$i $i || echo $1$i failed
    i=$((i + 1))
done
"""

# Kills a setting after a number of counter steps that varies from round to round.
KILLS = """
i=0
while [ $i -lt $1 ]; do
    kestrova vars set k killed$i & victim=$!
    steps=$((i * 40))
    while [ $steps -gt 0 ]; do steps=$((steps - 1)); done
    kill -9 $victim 2>/dev/null
    wait $victim 2>/dev/null
    kestrova vars set k next$i || echo set $i failed
    [ "$(kestrova vars get k)" = next$i ] || echo get $i failed
    i=$((i + 1))
done
"""


@pytest.fixture(scope="module", name="booted")
def booted_fixture(box_image):
    if not (BUILD / "kestrova").exists():
        pytest.skip(f"{BUILD / 'kestrova'} is not built")
    with Box(disks=[Disk(), software_disk()], files=product_files(BUILD)) as running:
        running.check("mkdir -p /boot-sw")
        running.check(f"cat >/tmp/writer <<'END'\n{WRITER}\nEND")
        running.check(f"cat >/tmp/kills <<'END'\n{KILLS}\nEND")
        yield running


@pytest.fixture(name="box")
def box_fixture(booted):
    booted.check(f"mount {PART} /mnt && rm -f /mnt/boot_env* && umount /mnt")
    booted.check("rm -rf /run/lock/kestrova")
    yield booted
    booted.run("umount /boot-sw")


def test_six_hundred_settings_of_three_processes_are_kept(box):
    box.check("rm -f /tmp/said; for name in a b c; do"
              f" sh /tmp/writer $name {ROUNDS} >>/tmp/said 2>&1 & done; wait", timeout=LONG)
    assert box.check("cat /tmp/said") == ""
    expected = {f"{name}{i}={i}" for name in "abc" for i in range(ROUNDS)}
    found = set(box.check("kestrova vars list").split("\n"))
    assert len(found) == 3 * ROUNDS and found == expected
    assert "/boot-sw" not in box.check("cat /proc/mounts")


def test_a_killed_holder_is_no_obstacle(box):
    assert box.check("sh /tmp/kills 60 2>&1 | grep -v Killed; :", timeout=LONG) == ""


def test_a_holder_is_named_and_waited_for(box):
    box.check("mkfifo /tmp/pipe; kestrova vars set-binary k /tmp/pipe >/tmp/first 2>&1 &"
              " echo $! >/tmp/pid; exec 3>/tmp/pipe;"
              " kestrova vars set a 1 2>/tmp/second; echo $? >>/tmp/second;"
              " kestrova vars set --wait 60 b 2 3>&- & printf value >&3; exec 3>&-; wait;"
              " rm /tmp/pipe")
    holder = box.check("cat /tmp/pid")
    assert box.check("cat /tmp/second").split("\n") == [
        "kestrova: vars set: the boot variables are in use by process "
        f"{holder} (kestrova vars set-binary)", str(BUSY)]
    assert box.check("kestrova vars list").split("\n")[0] == "b=2"
    assert box.check("kestrova vars get-binary k") == "value"


@pytest.mark.parametrize("prepare, reason", [
    ("ln -s /tmp /run/lock/kestrova", "/run/lock/kestrova: is a symbolic link"),
    ("mkdir -m 700 /run/lock/kestrova && mkfifo -m 600 {lock}", "is not a regular file"),
    ("mkdir -p {lock} && chmod 700 /run/lock/kestrova", "is not a regular file"),
    ("mkdir -m 700 /run/lock/kestrova && chown 1 /run/lock/kestrova", "belongs to user 1"),
    ("mkdir -m 700 /run/lock/kestrova && truncate -s 1M {lock} && chmod 600 {lock}",
     "is too large (1048576 bytes)"),
], ids=["link", "fifo", "folder", "owner", "size"])
def test_a_hostile_folder_is_refused(box, prepare, reason):
    box.check("mkdir -p /run/lock && " + prepare.format(lock=LOCK))
    result = box.run("kestrova vars set a 1")
    assert result.status == 1 and reason in result.stderr.decode()
    box.check("rm -rf /run/lock/kestrova")
    box.check("kestrova vars set a 1")


def test_a_read_only_folder_is_the_reason(box):
    box.check("mkdir -p /run/lock && mount -t tmpfs -o ro,mode=755 lock /run/lock")
    result = box.run("kestrova vars set a 1")
    box.check("umount /run/lock")
    assert result.status == 1 and "/run/lock/kestrova: Read-only file system" in result.stderr.decode()
    assert box.run("kestrova vars list").status == 3  # nothing has been written
