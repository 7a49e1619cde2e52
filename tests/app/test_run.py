# SPDX-License-Identifier: MIT
"""kestrova run: a command's streams and its exit."""

import json
import os
import signal
import subprocess

import pytest

import fakedrive


def test_streams_are_passed_through(kestrova):
    run = kestrova("run", "echo out; echo err >&2")
    assert (run.returncode, run.stdout, run.stderr) == (0, "out\n", "err\n")


@pytest.mark.parametrize("line,status", [
    ("exit 0", 0), ("exit 3", 3), ("exit 255", 255), ("kill -9 $$", 137), ("kill -TERM $$", 143),
    ("/nowhere/at/all", 127), ("", 0)])
def test_exits_as_the_command(kestrova, line, status):
    run = kestrova("run", line)
    assert (run.returncode, run.stdout) == (status, "")
    assert "kestrova" not in run.stderr


@pytest.mark.parametrize("line,member", [("echo out; exit 3", {"exitCode": 3}),
                                            ("echo out; kill -9 $$", {"signal": 9})])
def test_json(kestrova, line, member):
    run = kestrova("run", line, "--json")
    assert json.loads(run.stdout) == {"command": "run", **member}
    assert run.stderr == "out\n"


def test_input_is_passed_only_when_asked_for(kestrova):
    assert kestrova("run", "cat; echo end", input="text").stdout == "end\n"
    assert kestrova("run", "--in", "cat; echo end", input="text").stdout == "textend\n"
    assert kestrova("run", "cat; echo end", "--in", input="").stdout == "end\n"


def test_floods_in_all_directions_at_once(kestrova):
    data = os.urandom(3_000_000)
    run = kestrova("run", "--in", "tee /dev/stderr", input=data, text=False)
    assert (run.returncode, run.stdout, run.stderr) == (0, data, data)


def test_command_that_does_not_read_its_input(kestrova):
    run = kestrova("run", "--in", "exec <&-; echo done; exit 4", input="x" * 1_000_000)
    assert (run.returncode, run.stdout, run.stderr) == (4, "done\n", "")


def test_command_that_closes_its_outputs_and_reads_on(kestrova, tmp_path):
    run = kestrova("run", "--in", f"exec >&- 2>&-; cat >'{tmp_path}/file'; exit 6", input="text")
    assert run.returncode == 6
    assert (tmp_path / "file").read_text() == "text"


def test_half_a_line_arrives_before_its_end(command):
    with subprocess.Popen([command, "run", "--in", "printf half; read line; echo"],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
        assert process.stdout.read(4) == b"half"
        assert process.communicate(b"\n", timeout=60) == (b"\n", None)
    assert process.returncode == 0


def test_end_without_the_end_of_input(command):
    with subprocess.Popen([command, "run", "--in", "exit 5"], stdin=subprocess.PIPE) as process:
        assert process.wait(60) == 5


def test_output_that_nobody_reads_any_more(command):
    with subprocess.Popen([command, "run", "yes"], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        assert process.stdout.read(4) == b"y\ny\n"
        process.stdout.close()
        error = process.stderr.read()
        assert process.wait(60) == 128 + signal.SIGPIPE
    assert error == b""


def test_waits_for_who_keeps_the_output(command, tmp_path):
    fifo = tmp_path / "fifo"
    os.mkfifo(fifo)
    with subprocess.Popen([command, "run", f"(read line <'{fifo}'; echo late) & exit 7"],
                          stdout=subprocess.PIPE) as process:
        fifo.write_text("go\n")
        assert process.communicate(timeout=60)[0] == b"late\n"
    assert process.returncode == 7


def test_interrupt_is_the_commands(command):
    terminal = fakedrive.Terminal([str(command), "run", "echo ready; exec sleep 1000"],
                                  dict(os.environ))
    try:
        terminal.expect("ready\n")
        terminal.type("\x03")
        assert terminal.end() == 128 + signal.SIGINT
    finally:
        terminal.close()


def test_in_a_shell(kestrova):
    run = kestrova("shell", "-e", "run 'echo one'; run 'echo two; exit 9'; run 'echo three'")
    assert (run.returncode, run.stdout) == (9, "one\ntwo\n")


@pytest.mark.parametrize("words,message", [
    (["run"], "COMMAND is missing"), (["run", "echo", "a"], "in quotes"),
    (["run", "echo", "-n"], "unknown option"), (["table", "--in"], "unknown option '--in'"),
    (["shell", "-e", "run --in cat"], "not into the shell")])
def test_misuse(kestrova, words, message):
    run = kestrova(*words)
    assert (run.returncode, run.stdout) == (2, "") and message in run.stderr
