# SPDX-License-Identifier: MIT
"""Bad arguments name themselves and touch nothing."""

import json

import pytest

CASES = [
    ([], "a command is missing"),
    (["bogus"], "unknown command 'bogus'; 'kestrova --help' lists the commands"),
    (["tabel"], "unknown command 'tabel'; do you mean 'table'?"),
    (["drvie", "info"], "unknown command 'drvie'; do you mean 'drive info'?"),
    (["drive", "fromat"], "unknown command 'drive fromat'; do you mean 'drive format'?"),
    (["dri"], "unknown command 'dri'; do you mean 'drive'?\n"),
    (["dirve"], "unknown command 'dirve'; do you mean 'drive'?\n"),
    (["hlep"], "unknown command 'hlep'; do you mean 'help'?\n"),
    (["fet"], "unknown command 'fet'; do you mean 'fetch' or 'fetch-all'?\n"),
    (["drive", "stat"], "do you mean 'drive status' or 'drive start'?"),
    (["form"], "do you mean 'drive format'?"),
    (["drive format", "--yes"], "unknown command 'drive format'; 'kestrova --help' lists"),
    (["s"], "unknown command 's'; 'kestrova --help' lists the commands"),
    (["drive", "verify"], "unknown command 'drive verify'; 'kestrova drive --help' lists"),
    (["format", "--yes"], "unknown command 'format'; do you mean 'drive format'?"),
    (["set", "a", "1"], "unknown command 'set'; do you mean 'vars set' or 'syslog set'?"),
    (["help", "drive", "inf"], "do you mean 'drive info'?"),
    (["--minimal", "shell", "-e", "inf"], "do you mean 'drive info'?"),
    (["--minimal", "shell", "-e", "vars bogus"], "'vars --help' lists the commands"),
    (["table", "--jsno"], "unknown option '--jsno'; do you mean '--json'?"),
    (["-help"], "unknown option '-help'; do you mean '--help'?\n"),
    (["-version"], "unknown option '-version'; do you mean '--version'?\n"),
    (["run", "-in", "cat"], "unknown option '-in'; do you mean '--in'?\n"),
    (["drive", "format", "-yes"], "unknown option '-yes'; do you mean '--yes'?\n"),
    (["table", "--x=1"], "unknown option '--x'; 'kestrova table --help' lists the options"),
    (["drive"], "drive: a command is missing; 'kestrova drive --help' lists the commands"),
    (["drive", "bogus"], "unknown command 'drive bogus'"),
    (["help", "bogus"], "unknown command 'bogus'"),
    (["table", "extra"], "table: unexpected argument 'extra'"),
    (["drive", "info", ""], "drive info: unexpected argument ''"),
    (["table", "--bogus"], "unknown option '--bogus'"),
    (["table", "-vx"], "unknown option '-x'"),
    (["table", "--json=1"], "json was given a disallowed flag override; 'kestrova table --help' lists"),
    (["--yes", "drive", "format"], "option --yes stands after the command: drive format --yes"),
    (["table", "--level"], "--level: 1 required N missing; 'kestrova table --help' lists the options"),
    (["--level", "high", "table"], "--level: 'high' is not a number from 0 to 4294967295"),
    (["--level=", "table"], "--level: 'table' is not a number from 0 to 4294967295"),
    (["--level", "4294967296", "table"], "--level: '4294967296' is not a number from 0 to 4294967295"),
    (["--level", "-1", "table"], "--level: '-1' is not a number from 0 to 4294967295"),
    (["table", "--yes"], "unknown option '--yes'; 'kestrova table --help' lists the options"),
    (["drive", "stop", "--no-wait"], "unknown option '--no-wait'"),
    (["drive", "info", "-e", "table"], "unknown option '-e'"),
    (["drive", "check"], "drive check: argument PARTITION is missing"),
    (["drive", "check", "first"], "bad partition 'first'"),
    (["drive", "check", "99999999999"], "bad partition '99999999999'"),
    (["drive", "check", "0", "1"], "unexpected argument '1'"),
    (["drive", "partition", "--yes"], "argument SIZE is missing"),
    (["drive", "partition", "--yes", "0"], "bad size '0'"),
    (["drive", "partition", "--yes", "10X"], "bad size '10X'"),
    (["drive", "partition", "--yes", "2147483648"], "bad size '2147483648'"),
    (["drive", "partition", "--yes", "--", "-1"], "bad size '-1'"),
    (["drive", "partition", "--yes", "rest", "5"], "'rest' can be the last size only"),
    (["drive", "partition", "--yes", "1", "2", "3", "4", "5"], "more than four sizes: '5'"),
    (["drive", "partition", "rest"], "--yes is needed"),
    (["drive", "format"], "--yes is needed"),
    (["vars"], "vars: a command is missing"),
    (["vars", "bogus"], "unknown command 'vars bogus'"),
    (["vars", "list", "a"], "vars list: unexpected argument 'a'"),
    (["vars", "get"], "vars get: argument NAME is missing"),
    (["vars", "get-binary", "a", "b"], "unexpected argument 'b'"),
    (["vars", "set", "a"], "argument VALUE is missing; usage: vars set [OPTION...] NAME VALUE"),
    (["vars", "set", "", "1"], "NAME is empty"),
    (["vars", "set", "a", "-1"],
     "unknown option '-1'; an argument that begins with '-' needs '--' in front"),
    (["vars", "set-binary", "a"], "argument FILE is missing"),
    (["vars", "set-binary", "", "file"], "NAME is empty"),
    (["vars", "clear"], "argument NAME is missing"),
    (["vars", "verify"], "argument FILE is missing"),
    (["fetch"], "fetch: argument URL is missing"),
    (["fetch", "http://h/", "http://h/"], "fetch: unexpected argument 'http://h/'"),
    (["fetch", ""], "no URL of the form http://HOST[:PORT]/PATH: ''"),
    (["fetch", "h/x"], "no URL of the form"),
    (["fetch", "https://h/"], "no URL of the form"),
    (["fetch", "http://h"], "no URL of the form"),
    (["fetch", "http:///x"], "no URL of the form"),
    (["fetch", "http://h:65536/"], "no URL of the form"),
    (["fetch", "http://h:4294967376/"], "no URL of the form"),
    (["fetch", "http://h/a b"], "no URL of the form"),
    (["fetch", "http://h/\r\nX: y"], r"http://h/\x0d\x0aX: y"),
    (["fetch", "http://h/", "-o"], "-o: 1 required FILE missing"),
    (["fetch", "http://h/", "-o", ""], "-o: it is empty"),
    (["fetch", "http://h/", "-d", "."], "unknown option '-d'"),
    (["fetch-all", "http://h/", "nonsense"], "fetch-all: no URL of the form"),
    (["fetch-all", "-d", ""], "-d: it is empty"),
    (["fetch-all", "-o", "x", "http://h/"], "unknown option '-o'"),
    (["shell", "-e", "fetch-all"], "fetch-all: in a shell, URLs are arguments"),
    (["shell", "extra"], "unexpected argument 'extra'"),
    (["shell", "-e"], "-e: 1 required COMMANDS missing"),
    (["shell", "-e", "table; bogus"], "unknown command 'bogus'"),
    (["shell", "-e", "table; 'open"], "a quote is not closed"),
    (["shell", "-e", "shell"], "there is no shell in the shell"),
    (["shell", "-e", "table --minimal"], "option --minimal belongs to the start"),
    (["shell", "-e", "table; exit now"], "exit: unexpected argument 'now'"),
    (["table", "\x1b[2J\xc2\x85"], r"unexpected argument '\x1b[2J"),
]


@pytest.mark.parametrize("arguments,message", CASES)
def test_misuse(kestrova, arguments, message):
    run = kestrova(*arguments)
    assert run.returncode == 2
    assert run.stderr.startswith("kestrova: ") and run.stderr.count("\n") == 1
    assert message in run.stderr
    assert run.stdout == ""


def test_misuse_is_found_before_the_system_starts(fake_drive):
    fake_drive.formatted()
    for arguments, message in CASES:
        run = fake_drive.run("-v", *arguments)
        assert run.returncode == 2 and message in run.stderr, run
    assert not (fake_drive.state / "log").exists()  # no tool has run


def test_misuse_as_json(kestrova):
    run = kestrova("--json", "table", 'a"\\\n\x01\u00e9')
    assert run.returncode == 2
    assert json.loads(run.stdout) == {
        "error": "table: unexpected argument 'a\"\\\\x0a\\x01\u00e9'; usage: table"}


def test_bytes_that_are_no_text(kestrova):
    run = kestrova("--json", "table", b"\xff\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80", text=False,
                   input=b"")
    assert run.returncode == 2
    assert run.stdout.isascii()
    assert (r"'\xff\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80'"
            in json.loads(run.stdout)["error"])
