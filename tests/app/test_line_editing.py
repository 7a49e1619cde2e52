# SPDX-License-Identifier: MIT
"""The shell's line editing and history, if the build and the machine have libedit."""

import ctypes
import os
import pathlib
import struct

import pytest

import fakedrive

ROOT = pathlib.Path(__file__).resolve().parents[2]


def has_libedit(program):
    """Returns whether a build can load libedit here: same word size as this interpreter, and built with it."""
    if not program.exists() or program.read_bytes()[4] != struct.calcsize("P") // 4:
        return False
    try:
        ctypes.CDLL("libedit.so.2")
    except OSError:
        return False
    cache = (program.parent / "CMakeCache.txt").read_text(encoding="utf-8")
    return "KESTROVA_LIBEDIT:BOOL=ON" in cache


@pytest.fixture
def shell(command):
    found = [path for path in [command, ROOT / "build/native/kestrova"] if has_libedit(path)]
    if not found:
        pytest.skip("no build with libedit for this machine")
    terminal = fakedrive.Terminal([found[0], "--minimal", "shell"], {
        **fakedrive.plain_screen(), "LC_ALL": "C.UTF-8"})
    terminal.expect("kestrova> ")
    yield terminal
    terminal.close()


def test_a_line_is_edited(shell):
    shell.type("serial cou\x01\x0b\x19nt\n")  # to the start, cut to the end, and pasted
    shell.expect(r"\n\d+\nkestrova> ")
    shell.type("tableau\x7f\x7f\n")
    shell.expect("device 0.*kestrova> ")
    shell.type("exit\n")
    assert shell.end() == 0


def test_earlier_lines_come_back(shell):
    for word in ["one", "two"]:
        shell.type(f"run 'echo {word}'\n")
        shell.expect(f"\n{word}\nkestrova> ")
    shell.type("\x1b[A\x1b[A\n")  # twice up
    shell.expect("\none\nkestrova> ")


def test_characters_beyond_ascii(shell):
    shell.type("run 'echo grüß'\n")
    shell.expect("\ngrüß\nkestrova> ")


def test_ctrl_c_drops_the_line(shell):
    shell.type("half a line\x03")
    shell.expect("\nkestrova> ")
    shell.type("run 'echo whole'\n")
    shell.expect("\nwhole\nkestrova> ")
    shell.type("\x04")
    assert shell.end() == 0


def test_sigterm_ends_it_and_leaves_a_sane_terminal(shell):
    os.kill(shell.pid, 15)
    assert shell.end() == 128 + 15


def test_what_is_run_has_an_ordinary_terminal(shell):
    """Not in the mode in which single characters are read."""
    shell.type("run 'stty -a </dev/tty'\n")
    assert " icanon" in shell.expect("icanon.*?kestrova> ")[0] or " icanon" in shell.text


def test_a_line_that_is_too_long(shell):
    shell.type("run 'echo " + "x" * 4100 + "'\n")
    shell.expect("the line is too long")
    shell.type("exit\n")
    assert shell.end() == 2
