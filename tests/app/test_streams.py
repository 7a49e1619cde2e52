# SPDX-License-Identifier: MIT
"""Closed, full and broken standard streams; a machine without a drive; what the command is."""

import itertools
import json
import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
CLOSED = [streams for count in (1, 2, 3) for streams in itertools.combinations((0, 1, 2), count)]


@pytest.mark.parametrize("closed", CLOSED)
def test_closed_streams(command, closed):
    redirections = " ".join(f"{stream}>&-" for stream in closed)
    run = subprocess.run(["bash", "-c", f'"$@" {redirections}', "bash", command, "-vv", "table"],
                         stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60,
                         check=False)
    outputs = {1: run.stdout, 2: run.stderr}
    assert run.returncode == 0
    for stream, text in outputs.items():
        assert (text == "") == (stream in closed), text
    # No file got the number of a stream: each text is only in its own stream.
    assert "smpBlockdeviceConfig" not in run.stdout and "device 0: " not in run.stderr


def test_closed_input_is_an_empty_one(command):
    run = subprocess.run(["bash", "-c", '"$@" <&-', "bash", command, "--minimal", "shell"],
                         capture_output=True, text=True, timeout=60, check=False)
    assert (run.returncode, run.stdout, run.stderr) == (0, "", "")


def test_full_output_is_a_failure(kestrova):
    with open("/dev/full", "w", encoding="ascii") as full:
        run = kestrova("table", stdout=full)
    assert run.returncode == 1 and "standard output: No space left" in run.stderr


def test_a_reader_that_has_enough_is_no_news(kestrova):
    reader, writer = os.pipe()
    os.close(reader)
    run = kestrova("--version", stdout=writer)
    os.close(writer)
    assert (run.returncode, run.stderr) == (1, "")


def test_nonblocking_output_is_written_whole(command):
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    script = "table;" * 1000
    with subprocess.Popen([command, "shell", "-e", script], stdout=writer) as process:
        os.close(writer)
        with open(reader, encoding="ascii") as file:
            text = file.read()
        assert process.wait(60) == 0
    assert text.count("device 0: ") == 1000 and len(text) > 65536


@pytest.mark.parametrize("words", [
    "drive info", "drive status", "drive partition --yes rest", "drive format --yes",
    "drive start", "drive stop", "drive watch", "drive check 0", "drive spin-down",
    "drive spin-up"])
def test_drive_commands_without_a_drive(kestrova, no_drive, words):
    run = kestrova("--json", *words.split())
    assert run.returncode == 1
    result = json.loads(run.stdout)
    assert words.startswith(result["command"])
    assert result["error"] == "no recording drive: /dev/sda: No such file or directory"
    assert result["error"] in run.stderr
    run = kestrova("--minimal", *words.split())
    assert run.returncode == 1 and "--minimal leaves the drive out" in run.stderr


def test_uses_public_headers_only():
    listed = re.search(r"set\(KESTROVA_PUBLIC_HEADERS(.*?)\)",
                       (ROOT / "cmake/Library.cmake").read_text(), re.S)
    public = set(listed[1].split())
    sources = list((ROOT / "app").glob("*.cpp")) + list((ROOT / "app").glob("*.h"))
    used = {name for source in sources
            for name in re.findall(r'#include "((?:base|System)/[^"]+)"', source.read_text())}
    assert used and used <= public
