# SPDX-License-Identifier: MIT
"""A program that runs while the drive is started."""

import json
import os
import signal

import pytest


def test_a_program_records(fake_drive):
    run = fake_drive.formatted().run(
        "drive", "with", "--", "sh", "-c",
        'echo "$KESTROVA_RECORDINGS"; cat; grep -c " /dvr" /proc/mounts; echo problem >&2; exit 5',
        input="from the caller\n")
    assert run.returncode == 5, run
    assert run.stdout == "/dvr/data\nfrom the caller\n2\n"
    assert "problem\n" in run.stderr


def test_json_has_the_end_and_nothing_else(fake_drive):
    run = fake_drive.formatted().run("--json", "drive", "with", "--", "sh", "-c", "echo out; kill -9 $$")
    assert run.returncode == 128 + 9 and "out\n" in run.stderr, run
    assert json.loads(run.stdout) == {"command": "drive with", "signal": 9,
                                      "recordings": "/dvr/data"}


def test_recordings_go_to_the_storage_partition_of_a_drive_without_data(fake_drive):
    fake_drive.table([512])
    fake_drive.format(1, "DVRStorage")
    run = fake_drive.run("drive", "with", "--", "printenv", "KESTROVA_RECORDINGS")
    assert (run.returncode, run.stdout) == (0, "/dvr\n"), run


@pytest.mark.parametrize("words, status", [(["/absent"], 127), (["/state"], 126)])
def test_a_program_that_cannot_be_run(fake_drive, words, status):
    run = fake_drive.formatted().run("shell", "-e", f"drive with -- {words[0]}")
    assert run.returncode == status and f"'{words[0]}' can't be run: " in run.stderr, run


def test_the_drive_is_stopped_after_the_program(fake_drive):
    for program in ["true", "false"]:
        run = fake_drive.formatted().run("shell", "-e", f"run true; drive with -- {program}")
        assert run.returncode == (program == "false"), run
        assert "still started" not in run.stderr
    run = fake_drive.run("shell", "-e", "drive with -- true; run 'grep -c /dvr /proc/mounts'")
    assert (run.returncode, run.stdout) == (1, "0\n"), run


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signals_reach_the_program_and_the_drive_is_stopped(fake_drive, number):
    recorder = fake_drive.formatted().start(
        "drive", "with", "--", "sh", "-c",
        "trap 'grep -c /dvr /proc/mounts; exit 9' INT TERM HUP; echo begun; "
        "while :; do sleep 0.05; done")
    assert recorder.stdout.readline() == "begun\n"
    looker = fake_drive.join(recorder, "drive", "status")
    assert looker.stdout.startswith(
        f"Status:    started\nIn use by: process {recorder.pid} (kestrova drive with)"), looker
    namespace = os.open(f"/proc/{recorder.pid}/ns/mnt", os.O_RDONLY)
    try:
        recorder.send_signal(number)
        assert recorder.wait(60) == 9
        assert recorder.stdout.read() == "2\n"
        mounts = os.popen(f"nsenter --mount=/proc/{os.getpid()}/fd/{namespace} "
                          "cat /proc/self/mounts").read()
        assert mounts and "/dvr " not in mounts and "/dvr/data " not in mounts
    finally:
        os.close(namespace)


def test_a_drive_that_cannot_be_stopped(fake_drive):
    run = fake_drive.formatted().run(
        "drive", "with", "--", "sh", "-c",
        "cd /dvr/data; sleep 1000 >/dev/null 2>&1 & echo $! >/state/sleeper")
    try:
        assert run.returncode == 1, run
        assert "the drive could not be stopped: /dev/sda2 can't be unmounted: Device or" in run.stderr
    finally:
        os.kill(int((fake_drive.state / "sleeper").read_text()), signal.SIGKILL)


def test_a_drive_that_cannot_be_started(fake_drive):
    fake_drive.formatted().fail("mount", 32)
    run = fake_drive.run("drive", "with", "--", "touch", "/state/ran")
    assert run.returncode == 1, run
    assert "/dev/sda1 can't be mounted: mount: exit status 32" in run.stderr
    assert not (fake_drive.state / "ran").exists()


def test_ctrl_c_is_the_programs(fake_drive):
    terminal = fake_drive.formatted().terminal("drive", "with", "--", "sh", "-c",
                                               "trap 'exit 7' INT; echo begun; "
                                               "while :; do sleep 0.05; done")
    terminal.expect("begun")
    terminal.type("\x03")
    assert terminal.end() == 7
