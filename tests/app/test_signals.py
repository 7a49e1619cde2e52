# SPDX-License-Identifier: MIT
"""SIGTERM and SIGHUP end a command as cleanly as Ctrl-C."""

import os
import signal
import subprocess

import pytest

from test_terminal import FORMATS, formats

ENDINGS = [signal.SIGTERM, signal.SIGHUP]
NAMES = [number.name for number in ENDINGS]


@pytest.mark.parametrize("number", ENDINGS, ids=NAMES)
def test_a_script_ends_behind_its_command(kestrova, number):
    run = kestrova("shell", "-e", f"run 'kill -{int(number)} $PPID'; table")
    assert (run.returncode, run.stdout) == (128 + number, "")
    # No message if the signal was forwarded before the command exited, which then failed.
    assert run.stderr in ("", "kestrova: interrupted: the commands that follow are not run\n")


@pytest.mark.parametrize("number", ENDINGS, ids=NAMES)
def test_what_is_run_gets_the_signal(kestrova, number):
    run = kestrova("run", f"echo before; kill -{int(number)} $PPID; exec tail --pid=$PPID -f /dev/null")
    assert (run.returncode, run.stdout) == (128 + number, "before\n")


def test_what_is_run_may_take_its_time(kestrova):
    # If the shell never gets the signal, the kernel kills it after 60 s of processor time.
    run = kestrova("run", "ulimit -t 60; trap 'echo cleaned; exit 5' TERM; kill -TERM $PPID; "
                          "while :; do :; done")
    assert (run.returncode, run.stdout) == (5, "cleaned\n")


def test_what_is_run_may_leave_something_behind(kestrova):
    run = kestrova("run", "sleep 60 & echo $!; kill -TERM $PPID; wait")
    os.kill(int(run.stdout), signal.SIGKILL)
    assert run.returncode == 128 + signal.SIGTERM
    run = kestrova("run", "yes & echo $! >&2; kill -TERM $PPID; wait", stdout=subprocess.DEVNULL)
    os.kill(int(run.stderr), signal.SIGKILL)
    assert run.returncode == 128 + signal.SIGTERM


def test_what_is_run_has_no_signal_blocked(kestrova):
    assert kestrova("run", "grep SigBlk /proc/self/status").stdout.split() == [
        "SigBlk:", "0" * 16]


@pytest.mark.parametrize("number", [signal.SIGINT, *ENDINGS], ids=["SIGINT", *NAMES])
def test_an_ignored_signal_stays_ignored(kestrova, number):
    """As with nohup and a shell's '&'."""
    run = kestrova("shell", "-e", f"run 'kill -{int(number)} $PPID; kill -{int(number)} $$'; table",
                   preexec_fn=lambda: signal.signal(number, signal.SIG_IGN))
    assert run.returncode == 0 and run.stdout.startswith("device 0") and run.stderr == ""


@pytest.mark.parametrize("number", ENDINGS, ids=NAMES)
def test_the_prompt(terminal, number):
    shell = terminal("--minimal", "shell")
    shell.expect("kestrova> ")
    os.kill(shell.pid, number)
    assert shell.end() == 128 + number


def test_a_script_on_a_pipe(start):
    shell = start("--minimal", "shell")
    shell.stdin.write("table\n")
    shell.stdin.flush()
    assert shell.stdout.readline().startswith("device")
    shell.send_signal(signal.SIGTERM)
    assert shell.wait(60) == 128 + signal.SIGTERM


@pytest.mark.parametrize("number", [signal.SIGINT, *ENDINGS], ids=["SIGINT", *NAMES])
@pytest.mark.parametrize("words", [["vars", "verify"]], ids=["verify"])
def test_a_file_that_does_not_come(start, tmp_path, words, number):
    os.mkfifo(tmp_path / "pipe")
    command = start(*words, tmp_path / "pipe")
    with open(tmp_path / "pipe", "wb"):  # the command has opened it
        command.send_signal(number)
        _, errors = command.communicate(timeout=60)
    assert command.returncode == 6 and errors == "kestrova: vars verify: cancelled\n"


@pytest.mark.parametrize("number", ENDINGS, ids=NAMES)
def test_a_format_is_waited_for(fake_drive, number):
    release = fake_drive.formatted().hold("mkfs.xfs")
    terminal = fake_drive.terminal("shell", "-e", "drive format --yes; drive start")
    terminal.expect(r"90 % formatting")
    terminal.type("\x03")
    terminal.expect("can't be stopped, waiting for its end")
    os.kill(command_below(terminal.pid), number)
    terminal.expect("can't be stopped, waiting for its end")
    release()
    terminal.expect("The drive is formatted.*the commands that follow are not run")
    assert terminal.end() == 128 + number
    assert len(formats(fake_drive)) == FORMATS


@pytest.mark.parametrize("number", ENDINGS, ids=NAMES)
def test_a_format_in_an_interactive_shell_is_waited_for(fake_drive, number):
    release = fake_drive.formatted().hold("mkfs.xfs")
    shell = fake_drive.terminal("shell")
    shell.expect("kestrova> ")
    shell.type("drive format --yes\n")
    shell.expect("90 % formatting")
    os.kill(command_below(shell.pid), number)
    shell.expect("can't be stopped, waiting for its end")
    release()
    shell.expect("The drive is formatted")
    assert shell.end() == 128 + number


def command_below(pid):
    """Returns the process of the command, which is the terminal's first process or its child."""
    while True:
        with open(f"/proc/{pid}/comm", encoding="utf-8") as comm:
            if comm.read() == "kestrova\n":
                return pid
        with open(f"/proc/{pid}/task/{pid}/children", encoding="utf-8") as children:
            pid = int(children.read().split()[0])
