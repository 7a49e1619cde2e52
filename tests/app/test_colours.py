# SPDX-License-Identifier: MIT
"""Colours: only on a terminal, and not with NO_COLOR."""

import re
import subprocess

import pytest

import fakedrive
from bootpartition import image, record
from httpserver import refused_port

RED, GREEN, YELLOW, PLAIN = "\x1b[31m", "\x1b[32m", "\x1b[33m", "\x1b[0m"
COLOURED = {"TERM": "xterm", "NO_COLOR": ""}  # an empty NO_COLOR has no effect


def whole(terminal):
    """Returns everything written to the terminal."""
    terminal.end()
    return terminal.text


def test_status(fake_drive):
    shell = fake_drive.formatted().terminal("drive", "status", **COLOURED)
    assert f"Status:    {GREEN}ready{PLAIN}\n" in whole(shell)
    shell = fake_drive.terminal("shell", "-e", "drive start; drive stop", **COLOURED)
    assert f"Status:    {GREEN}started{PLAIN}\n" in whole(shell)
    fake_drive.table([])
    shell = fake_drive.terminal("drive", "info", **COLOURED)
    assert f"Status:    {YELLOW}not-formatted{PLAIN}; 'drive partition' comes next\n" in whole(shell)


def test_bar(fake_drive):
    text = whole(fake_drive.formatted().terminal("drive", "format", "--yes", **COLOURED))
    assert re.search(re.escape(f"\rformat [{GREEN}{'#' * 40}{PLAIN}] 100 % ready, 0:00:") +
                     r"\d\d\x1b\[K\n", text)


def test_error_status(fake_drive):
    fake_drive.formatted().fail("mkfs.xfs")
    shell = fake_drive.terminal("shell", **COLOURED)
    shell.type("drive format --yes\ndrive status\nexit\n")
    text = whole(shell)
    assert f"{RED}kestrova: drive format: the storage partition could not" in text
    assert f"Status:    {RED}error{PLAIN}\n" in text


def test_errors(terminal):
    for words in [["bogus"], ["--minimal", "drive", "info"]]:
        text = whole(terminal(*words, **COLOURED))
        assert text.startswith(f"{RED}kestrova: ") and text.endswith(f"{PLAIN}\n")


def test_fetch_all(terminal, documents):
    good, bad = documents.add("a", b"x"), f"http://127.0.0.1:{refused_port()}/"
    text = whole(terminal("fetch-all", good, bad, **COLOURED))
    assert f"{GREEN}ok{PLAIN}\t1\t" in text and f"{RED}failed{PLAIN}\t0\t" in text


def test_verify(terminal, tmp_path):
    for content, word in [(image(record(b"a", b"1")), f"{GREEN}good"), (b"x", f"{RED}bad")]:
        (tmp_path / "file").write_bytes(content)
        text = whole(terminal("vars", "verify", tmp_path / "file", **COLOURED))
        assert f"/file: {word}{PLAIN}, " in text


@pytest.mark.parametrize("environment", [
    {"NO_COLOR": "1", "TERM": "xterm"}, {"NO_COLOR": "0", "TERM": "xterm"},
    {"NO_COLOR": "", "TERM": "dumb"}, {"NO_COLOR": "", "TERM": ""}])
def test_none_where_they_are_not_wanted(terminal, tmp_path, environment):
    (tmp_path / "file").write_bytes(b"x")
    text = whole(terminal("vars", "verify", tmp_path / "file", **environment))
    assert "bad, " in text and "is not a good boot environment" in text
    assert "\x1b" not in text


def test_none_with_json(terminal, tmp_path):
    (tmp_path / "file").write_bytes(b"x")
    for words in [["vars", "verify", tmp_path / "file", "--json"], ["--json", "bogus"]]:
        text = whole(terminal(*words, **COLOURED))
        assert '"error"' in text and "\x1b" not in text


def test_none_in_a_pipe(command, tmp_path, monkeypatch):
    (tmp_path / "file").write_bytes(b"x")
    for name, value in COLOURED.items():
        monkeypatch.setenv(name, value)
    run = subprocess.run([command, "vars", "verify", tmp_path / "file"], capture_output=True,
                         text=True, timeout=60, check=False)
    assert "bad, " in run.stdout and "\x1b" not in run.stdout + run.stderr


def test_each_stream_for_itself(command, tmp_path):
    """Output to a file, errors on the terminal."""
    (tmp_path / "file").write_bytes(b"x")
    line = f"exec {command} vars verify {tmp_path}/file >{tmp_path}/output"
    screen = fakedrive.Terminal(["sh", "-c", line], {**fakedrive.plain_screen(), **COLOURED})
    try:
        assert whole(screen).startswith(f"{RED}kestrova: ")
    finally:
        screen.close()
    assert "bad, " in (tmp_path / "output").read_text()
    assert "\x1b" not in (tmp_path / "output").read_text()
