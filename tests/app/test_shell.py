# SPDX-License-Identifier: MIT
"""The shell from a pipe and from -e."""

import json

import pytest

LONG = "x" * 5000


def words(run):
    """Returns the command of every JSON document."""
    return [json.loads(line)["command"] for line in run.stdout.splitlines()]


@pytest.mark.parametrize("text,count", [
    ("", 0), ("\n;;\n ; \t\n", 0), ("# table\n", 0), ("table", 1), ("table\n", 1),
    ("table\r\n", 1), ("table # and so on; table\ntable", 2), (" table;table ;\n\ntable\n", 3),
    ("'table'", 1), ('"ta"ble', 1), ("t\\able", 1), ("table\nexit\ntable\n", 1),
    ("table; quit; table", 1)])
def test_reads_commands(kestrova, text, count):
    for run in [kestrova("--json", "--minimal", "shell", input=text),
                kestrova("--json", "--minimal", "shell", "-e", text)]:
        assert run.returncode == 0, run
        assert words(run) == ["table"] * count


@pytest.mark.parametrize("text,status,message", [
    ("drive info", 1, "--minimal"), ("bogus", 2, "unknown command 'bogus'"),
    ("'table", 2, "a quote is not closed"), ("ta#ble", 2, "unknown command 'ta#ble'"),
    ("'table;table'", 2, "unknown command 'table;table'"), ("''", 2, "unknown command ''"),
    ('"a\\"b"', 2, "unknown command 'a\"b'"), (LONG, 2, "the line is too long"),
    (LONG + "\n", 2, "the line is too long"), ("table\0", 2, r"unknown command 'table\x00'")])
def test_a_pipe_ends_at_the_first_failure(kestrova, text, status, message):
    run = kestrova("--json", "--minimal", "shell", input=f"table\n{text}")
    assert run.returncode == status and message in run.stderr, run
    run = kestrova("--json", "--minimal", "shell", input=f"{text}\ntable\n")
    assert "table" not in [json.loads(line).get("command") for line in run.stdout.splitlines()]


def test_a_line_is_checked_before_its_first_command(kestrova):
    run = kestrova("--minimal", "shell", input="table; bogus\n")
    assert run.returncode == 2 and run.stdout == ""


def test_a_line_of_the_greatest_length(kestrova):
    line = "table".ljust(4096)
    assert kestrova("--minimal", "shell", input=line + "\n").returncode == 0
    assert kestrova("--minimal", "shell", input=line + " \n").returncode == 2


def test_options_of_a_single_command(kestrova):
    run = kestrova("--minimal", "shell", input="table --json\nhelp drive\n")
    lines = run.stdout.splitlines()
    assert run.returncode == 0 and json.loads(lines[0])["command"] == "table"
    assert lines[1].startswith("Usage: kestrova drive ")


def test_no_prompt_without_a_terminal(kestrova):
    run = kestrova("--minimal", "shell", input="table\n")
    assert run.stderr == "" and "kestrova>" not in run.stdout
