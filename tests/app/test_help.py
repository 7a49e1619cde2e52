# SPDX-License-Identifier: MIT
"""Help and version."""

import re

import pytest

import helppages

COMMANDS = ["table", "drive info", "drive status", "drive partition", "drive format",
            "drive start", "drive stop", "drive with", "drive watch", "drive check", "drive spin-down",
            "drive spin-up", "vars list", "vars get", "vars get-binary", "vars set",
            "vars set-binary", "vars clear", "vars import", "vars export", "vars create",
            "vars verify", "fetch", "fetch-all", "run",
            "serial count", "serial login", "syslog show", "syslog set", "syslog clear",
            "syslog apply", "production", "shell"]


def test_help_lists_every_command_and_no_other(kestrova):
    run = kestrova("--help")
    assert run.returncode == 0 and run.stderr == ""
    assert helppages.commands(run.stdout) == COMMANDS


@pytest.mark.parametrize("name", COMMANDS)
def test_help_of_each_command(kestrova, name):
    first = kestrova(*name.split(), "--help")
    assert first.returncode == 0
    assert first.stdout.startswith(f"Usage: kestrova {name}")
    assert kestrova("help", *name.split()).stdout == first.stdout
    assert kestrova("-h", *name.split()).stdout == first.stdout


@pytest.mark.parametrize("name", ["", *helppages.GROUPS, *COMMANDS])
def test_each_page_has_the_same_form(kestrova, name):
    """Usage, purpose, optional details and own options, options, exit statuses, example."""
    text = kestrova(*name.split(), "--help").stdout
    usage, purpose, rest = text.split("\n\n", 2)
    assert re.fullmatch(rf"Usage: kestrova ?{name}( --| [][A-Z.]+)*", usage)
    assert ("[OPTION...]" in usage) == (name not in COMMANDS or bool(helppages.own_options(text)))
    assert re.match(r"[A-Z].*\.$", purpose, re.S)
    titles = re.findall(r"^(\w.*):$", rest, re.M)
    assert [title for title in titles if title not in ["Commands", "Options of this command"]] == [
        "Options", "Exit status", "Example"]
    assert helppages.statuses(text)[:3] == ["0", "1", "2"]
    examples = helppages.section(text, "Example")
    assert examples and all(line.startswith("  kestrova ") for line in examples)
    assert name in "\n".join(examples)


@pytest.mark.parametrize("name", COMMANDS)
def test_examples_are_good_commands(kestrova, name):
    for line in helppages.section(kestrova(*name.split(), "--help").stdout, "Example"):
        assert helppages.is_good(kestrova, line), line


def test_help_of_the_group(kestrova):
    run = kestrova("drive", "--help")
    assert run.returncode == 0
    assert "  drive info" in run.stdout and "  table" not in run.stdout


def test_help_of_the_group_without_the_drive(kestrova):
    text = kestrova("vars", "--help").stdout
    assert "  vars list" in text and "left alone" in text and "unmounts" not in text


def test_help_fits_the_console_of_a_box(kestrova):
    for command in ["", *helppages.GROUPS, *COMMANDS]:
        for line in kestrova(*command.split(), "--help").stdout.splitlines():
            assert len(line) <= 80, line


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
