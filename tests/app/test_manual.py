# SPDX-License-Identifier: MIT
"""The manual page contains what the help contains, and is well-formed."""

import pathlib
import re
import shutil
import subprocess

import pytest

import helppages

PAGE = pathlib.Path(__file__).resolve().parents[2] / "man/kestrova.1"
TEXT = PAGE.read_text(encoding="utf-8")


def section(title):
    return re.search(rf"^\.Sh {title}\n(.*?)(?=^\.Sh |\Z)", TEXT, re.M | re.S)[1]


def items(title):
    """Returns the tags of the lists of a section."""
    return re.findall(r"^\.It (.*)", section(title), re.M)


def flags(tag):
    return {("--" if double else "-") + name
            for double, name in re.findall(r"\bFl (Fl )?([\w-]+)", tag)}


def test_the_page_is_well_formed():
    if shutil.which("mandoc") is None:
        pytest.skip("there is no mandoc")
    run = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", PAGE], capture_output=True,
                         text=True, timeout=60, check=False)
    assert (run.returncode, run.stdout) == (0, "")


def test_general_options(kestrova):
    general = helppages.options(kestrova("--help").stdout)
    assert set().union(*map(flags, items("OPTIONS"))) == set(general)
    for tag in items("OPTIONS"):
        for option in flags(tag):
            assert (" Ar " in tag) == general[option], option


def test_commands_with_their_options_and_arguments(kestrova):
    described = {}
    for tag in items("COMMANDS"):
        name, rest = re.fullmatch(r"Cm ([a-z -]+?)((?: (?:Ar|Fl|Op|Oo) .*)?)", tag).groups()
        described[name] = rest
    assert list(described) == helppages.commands(kestrova("--help").stdout)
    for name, rest in described.items():
        text = kestrova(*name.split(), "--help").stdout
        assert flags(rest) == set(helppages.own_options(text)), name
        names, repeats = helppages.arguments(text)
        assert sorted(re.findall(r"\b[A-Z]{3,}\b", rest)) == sorted(names), name
        assert ("..." in rest) == repeats


def test_exit_statuses(kestrova):
    listed = re.findall(r"^  ([\d, ]+)  ", "\n".join(
        helppages.section(kestrova("--help").stdout, "Exit status")) + "\n", re.M)
    numbers = [number for entry in listed for number in entry.split(", ")]
    assert items("EXIT STATUS") == numbers == [str(number) for number in range(8)]


def test_examples_are_good_commands(kestrova):
    lines = re.findall(r"^(?:\.Dl )?(kestrova .*)", section("EXAMPLES"), re.M)
    assert len(lines) >= 5
    for line in lines:
        assert helppages.is_good(kestrova, line), line
