# SPDX-License-Identifier: MIT
"""Two processes with one drive: its lock, and what other processes see."""

import json
import os
import re
import shutil
import signal

import pytest

FORMAT = ["mkfs.xfs -L DVRData -f -l lazy-count=0 /dev/sda2",
          "mkfs.xfs -L DVRStorage -f -l lazy-count=0 /dev/sda1"]
CHANGING = ["partition --yes 100", "format --yes", "start", "stop", "check 0", "spin-down", "spin-up"]


@pytest.fixture
def formatting(fake_drive):
    """A drive that another process formats. Returns its Popen, and a function that releases it."""
    release = fake_drive.formatted().hold("mkfs.xfs")
    holder = fake_drive.start("drive", "format", "--yes")
    assert holder.stdout.readline() == "format: formatting 90 %\n"
    return holder, release


@pytest.mark.parametrize("words", CHANGING)
def test_a_drive_in_use_is_left_alone(fake_drive, formatting, words):
    holder, release = formatting
    run = fake_drive.join(holder, "--json", "drive", *words.split())
    assert run.returncode == 7, run
    answer = json.loads(run.stdout)
    assert answer["error"] == (
        f"the drive is in use by process {holder.pid} (kestrova drive format)")
    assert answer["holder"]["pid"] == holder.pid and answer["holder"]["state"] == "formatting"
    release()
    assert holder.wait(60) == 0 and fake_drive.calls() == FORMAT


def test_onlookers_see_who_does_what(fake_drive, formatting):
    holder, release = formatting
    status = fake_drive.join(holder, "drive", "status")
    assert status.returncode == 0 and status.stdout.startswith(
        f"Status:    formatting, 90 %\nIn use by: process {holder.pid} (kestrova drive format)"), (
            status)
    for words in ["info", "status"]:
        answer = json.loads(fake_drive.join(holder, "--json", "drive", words).stdout)
        assert (answer["status"], answer["progress"]) == ("formatting", 90)
        assert answer["holder"]["pid"] == holder.pid and answer["holder"]["progress"] == 90
    release()
    assert holder.wait(60) == 0 and fake_drive.calls() == FORMAT


def test_a_second_process_follows_a_format_to_its_end(fake_drive, formatting):
    holder, release = formatting
    watcher = fake_drive.start_beside(holder, "drive", "watch")
    assert watcher.stdout.readline() == f"process {holder.pid}: formatting 90 %\n"
    release()
    rest = watcher.stdout.read()
    assert watcher.wait(60) == 0, watcher.stderr.read()
    assert rest.startswith(f"process {holder.pid}: ready 100 %\nStatus:    ready\n")
    assert holder.wait(60) == 0


def test_a_watched_format_that_fails(fake_drive):
    release = fake_drive.formatted().hold("mkfs.xfs")
    fake_drive.fail("mkfs.xfs")
    holder = fake_drive.start("drive", "format", "--yes")
    assert holder.stdout.readline() == "format: formatting 90 %\n"
    watcher = fake_drive.start_beside(holder, "drive", "watch")
    assert watcher.stdout.readline() == f"process {holder.pid}: formatting 90 %\n"
    release()
    assert watcher.wait(60) == 1 and holder.wait(60) == 1
    assert "(kestrova drive format)" in watcher.stderr.read()


def test_wait_for_the_drive(fake_drive, formatting):
    holder, release = formatting
    waiting = fake_drive.start_beside(holder, "drive", "start", "--wait", "60")
    assert fake_drive.join(holder, "drive", "start", "--wait", "0").returncode == 7
    release()
    assert holder.wait(60) == 0
    assert waiting.wait(60) == 0, waiting.stderr.read()
    assert "The drive is started." in waiting.stdout.read()


def test_a_shell_holds_the_drive_from_the_first_command_that_needs_it(fake_drive):
    shell = fake_drive.formatted().start("shell")
    shell.stdin.write("drive status\nrun 'echo looked'\n")
    shell.stdin.flush()
    assert any(line == "looked\n" for line in iter(shell.stdout.readline, ""))
    assert fake_drive.join(shell, "drive", "spin-up").returncode == 0
    shell.stdin.write("drive spin-up\nrun 'echo claimed'\n")
    shell.stdin.flush()
    assert any(line == "claimed\n" for line in iter(shell.stdout.readline, ""))
    run = fake_drive.join(shell, "drive", "spin-up")
    assert run.returncode == 7 and "(kestrova shell)" in run.stderr, run
    shell.stdin.close()
    assert shell.wait(60) == 0
    assert fake_drive.run("drive", "spin-up").returncode == 0


@pytest.mark.parametrize("words, tool", [("format --yes", "mkfs.xfs"), ("start", "mount"),
                                         ("spin-up", "hdparm"), ("check 0", "xfs_repair")])
def test_a_killed_holder_is_no_holder(fake_drive, words, tool):
    fake_drive.formatted().hold(tool)
    holder = fake_drive.start("drive", *words.split())
    while not any(call.startswith(tool) for call in fake_drive.calls()):
        assert holder.poll() is None
    assert fake_drive.run("drive", "spin-up").returncode == 7
    holder.send_signal(signal.SIGKILL)
    holder.wait()
    fake_drive.let_go(tool)
    run = fake_drive.run("drive", "format", "--yes")
    assert run.returncode == 0, run
    run = fake_drive.run("shell", "-e", "drive start; drive stop")
    assert run.returncode == 0, run


def test_without_a_lock_file_nothing_is_touched(fake_drive):
    fake_drive.formatted()
    (fake_drive.state / "run/lock/kestrova").write_text("no folder")
    for words in CHANGING:
        run = fake_drive.run("drive", *words.split())
        assert run.returncode == 1 and "the drive can't be locked: " in run.stderr, run
    assert fake_drive.run("drive", "status").returncode == 0
    assert fake_drive.calls() == []


def test_a_shell_that_fails_stops_the_drive(fake_drive):
    run = fake_drive.formatted().run(
        "shell", "-e", "drive start; fetch http://127.0.0.1:9/none; drive stop")
    assert run.returncode == 4, run
    assert "the drive is still started at the end of the shell: stopping it" in run.stderr
    assert "The drive is stopped.\n" in run.stdout


def test_a_shell_that_cannot_stop_the_drive_says_so(fake_drive):
    run = fake_drive.formatted().run(
        "shell", "-e", "drive start; run '(cd /dvr/data; exec sleep 1000) >/dev/null 2>&1 & "
        "echo $! >/state/sleeper'")
    sleeper = int((fake_drive.state / "sleeper").read_text())
    try:
        assert run.returncode == 1, run
        assert "can't be unmounted: Device or resource busy" in run.stderr
    finally:
        os.kill(sleeper, signal.SIGKILL)


@pytest.mark.parametrize("words", ["info", "status", "watch"])
def test_looking_makes_no_call_that_changes_anything(fake_drive, tmp_path, words):
    if shutil.which("strace") is None:
        pytest.skip("there is no strace")
    holder = fake_drive.formatted().start("shell")
    holder.stdin.write("drive start\nrun 'echo started'\n")
    holder.stdin.flush()
    assert any(line == "started\n" for line in iter(holder.stdout.readline, ""))
    disks = sorted((fake_drive.state / "dev").iterdir())
    before = [disk.read_bytes() for disk in disks[1:]]
    trace = tmp_path / "trace"
    run = fake_drive.join(holder, "drive", words, around=[
        "strace", "-f", "-o", str(trace), "-e",
        "trace=execve,open,openat,mount,umount,umount2,ioctl,unlink,unlinkat,rename,mkdir,mkdirat"],
        env={**os.environ, "LSAN_OPTIONS": "detect_leaks=0"})  # LeakSanitizer needs ptrace itself
    assert run.returncode == 0 and "Status:    started\n" in run.stdout, run
    calls = [line for line in trace.read_text().splitlines() if "= -1" not in line]
    looked = [line for line in calls if '"/dev/sda' in line and "open" in line]
    assert looked and all("O_RDONLY" in line for line in looked), looked
    assert not [line for line in calls if re.search(
        r" (mount|umount2?|unlink(at)?|rename|mkdir(at)?)\(|BLKRRPART|hdparm|mkfs", line)], calls
    assert [disk.read_bytes() for disk in disks[1:]] == before
    holder.stdin.close()
    assert holder.wait(60) == 0
