# SPDX-License-Identifier: MIT
"""The completion for bash offers what the help lists, and nothing more."""

import os
import pathlib
import shutil
import subprocess

import pytest

import fakedrive
import helppages
from test_help import COMMANDS

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "completion/kestrova.bash"
# A bash without start-up files has none of bash-completion's functions.
BASH = ["bash", "--noprofile", "--norc"]
ASK = r"""
set -u
. "$0"
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
_kestrova
printf '%s\n' "${COMPREPLY[@]}"
"""


@pytest.fixture
def complete(tmp_path):
    """Returns a function that completes the last word, in a directory with a file and two directories."""
    (tmp_path / "file one").touch()
    (tmp_path / "folder").mkdir()
    (tmp_path / "-d").mkdir()

    def ask(*words):
        run = subprocess.run([*BASH, "-c", ASK, SCRIPT, "kestrova", *words], cwd=tmp_path,
                             capture_output=True, text=True, timeout=60, check=True)
        assert run.stderr == ""
        return sorted(run.stdout.splitlines()) if run.stdout != "\n" else []

    return ask


def page(kestrova, *words):
    return kestrova(*words, "--help").stdout


def test_commands(kestrova, complete):
    listed = helppages.commands(page(kestrova))
    assert listed == COMMANDS
    assert complete("") == sorted({name.split()[0] for name in listed} | {"help"})
    for group in helppages.GROUPS:
        seconds = sorted(name.split()[1] for name in listed if name.startswith(group + " "))
        assert complete(group, "") == complete("--json", "help", group, "") == seconds


def test_beginnings(complete):
    assert complete("dr") == ["drive"]
    assert complete("fetch") == ["fetch", "fetch-all"]
    assert complete("drive", "sp") == ["spin-down", "spin-up"]
    assert complete("--level", "2", "-v", "vars", "g") == ["get", "get-binary"]
    assert complete("nonsense", "") == complete("drive", "nonsense", "") == []
    assert complete("table", "--j") == ["--json"]


def test_general_options(kestrova, complete):
    general = sorted(helppages.options(page(kestrova)))
    assert complete("-") == complete("drive", "-") == general


@pytest.mark.parametrize("name", COMMANDS)
def test_options_of_each_command(kestrova, complete, name):
    text = page(kestrova, *name.split())
    wanted = sorted({**helppages.options(text), **helppages.own_options(text)})
    assert complete(*name.split(), "-") == wanted
    assert complete("-vv", "--level", "1", *name.split(), "argument", "-") == wanted
    assert complete(*name.split(), "--", "-") == (
        ["-d"] if name in ["drive check", "vars import", "vars verify"] else [])


def test_values_of_options(kestrova, complete):
    """Each option with a value requires one, and no other does."""
    for name in COMMANDS:
        text = page(kestrova, *name.split())
        for option, value in {**helppages.options(text), **helppages.own_options(text)}.items():
            next_word = complete(*name.split(), option, "--h")
            assert ("--help" in next_word) == (not value), (name, option)
    assert complete("--level", "") == complete("--level", "=", "") == complete("--level", "=") == [
        "0", "1", "2"]
    assert complete("fetch", "-o", "") == ["-d", "file one", "folder"]
    assert complete("fetch-all", "-d", "fo") == ["folder"]
    assert complete("fetch-all", "-d", "fi") == []
    assert complete("shell", "-e", "") == []


def test_arguments(complete):
    assert complete("vars", "verify", "f") == ["file one", "folder"]
    assert complete("vars", "import", "f") == ["file one", "folder"]
    assert complete("vars", "--file", "f") == ["file one", "folder"]
    assert complete("vars", "--file", "file one", "ver") == ["verify"]
    assert complete("vars", "set-binary", "") == []
    assert complete("vars", "set-binary", "name", "f") == ["file one", "folder"]
    assert complete("vars", "set-binary", "name", "file", "") == []
    assert complete("vars", "get", "") == complete("vars", "set", "") == []
    assert complete("serial", "login", "") == [str(port) for port in range(10)]
    assert complete("drive", "partition", "100", "") == ["rest"]
    assert complete("drive", "partition", "1", "2", "3", "4", "") == []
    assert complete("drive", "check", "/dev/nul") == ["/dev/null"]
    assert complete("fetch", "") == complete("run", "") == complete("table", "") == []


def test_the_script_is_clean():
    if shutil.which("shellcheck") is None:
        pytest.skip("there is no shellcheck")
    run = subprocess.run(["shellcheck", SCRIPT], capture_output=True, text=True, timeout=60,
                         check=False)
    assert (run.returncode, run.stdout) == (0, "")


def test_in_a_bash(tmp_path):
    """With the Tab key, like a person."""
    (tmp_path / "some file").touch()
    environment = {**os.environ, "INPUTRC": "/dev/null", "TERM": "dumb", "PS1": "ready> "}
    bash = fakedrive.Terminal([*BASH, "-i"], environment)
    try:
        bash.type(f". {SCRIPT}; cd {tmp_path}; kestrova() {{ printf '<%s>' \"$@\"; }}\n")
        bash.expect("ready> .*ready> ")
        bash.type("kestrova va\tver\tsome\t\n")
        bash.expect("<vars><verify><some file>")
        bash.type("exit\n")
        assert bash.end() == 0
    finally:
        bash.close()
