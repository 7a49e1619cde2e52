# SPDX-License-Identifier: MIT
"""Help and version."""

import re

import pytest

COMMANDS = ["table", "drive info", "drive status", "drive partition", "drive format",
            "drive start", "drive stop", "drive watch", "drive check", "drive spin-down",
            "drive spin-up", "vars list", "vars get", "vars get-binary", "vars set",
            "vars set-binary", "vars clear", "vars verify", "fetch", "fetch-all", "run",
            "serial count", "serial login", "syslog show", "syslog set", "syslog clear",
            "syslog apply", "production", "shell"]


def test_help_lists_every_command_and_no_other(kestrova):
    run = kestrova("--help")
    assert run.returncode == 0 and run.stderr == ""
    listed = re.findall(r"^  ([a-z](?:[a-z-]| (?! ))*[a-z])(?: [][A-Z.]+)*  ", run.stdout, re.M)
    assert listed == COMMANDS
    assert "0 done, 1 failed, 2 misused" in run.stdout


@pytest.mark.parametrize("name", COMMANDS)
def test_help_of_each_command(kestrova, name):
    first = kestrova(*name.split(), "--help")
    assert first.returncode == 0
    assert first.stdout.startswith(f"Usage: kestrova [OPTION...] {name}")
    assert kestrova("help", *name.split()).stdout == first.stdout
    assert kestrova("-h", *name.split()).stdout == first.stdout


def test_help_of_the_group(kestrova):
    run = kestrova("drive", "--help")
    assert run.returncode == 0
    assert "  drive info" in run.stdout and "  table" not in run.stdout


def test_help_of_the_group_without_the_drive(kestrova):
    text = kestrova("vars", "--help").stdout
    assert "  vars list" in text and "left alone" in text and "unmounts" not in text


def test_help_fits_a_screen_line(kestrova):
    for command in ["", "drive", "vars", *COMMANDS]:
        for line in kestrova(*command.split(), "--help").stdout.splitlines():
            assert len(line) <= 100, line


def test_start_says_what_happens_to_the_mounts(kestrova):
    text = kestrova("drive", "start", "--help").stdout
    assert "leaves the file systems mounted when it exits" in text
    assert "full start" in text and "unmounts" in text


def test_options_of_a_command_are_in_its_help_only(kestrova):
    assert "--yes" in kestrova("drive", "format", "--help").stdout
    assert "--yes" not in kestrova("drive", "stop", "--help").stdout.split("Options")[1]


def test_version(kestrova):
    run = kestrova("--version")
    assert run.returncode == 0 and re.fullmatch(r"kestrova \d+\.\d+\.\d+\n", run.stdout)
