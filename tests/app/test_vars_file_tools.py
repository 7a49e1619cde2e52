# SPDX-License-Identifier: MIT
"""The text of boot variables beside the tools of U-Boot: each side reads what the other one writes,
and what they refuse differs as docs/boot-environment.md says."""

import shutil
import subprocess

import pytest

TOOLS = ["mkenvimage", "fw_setenv", "fw_printenv"]
MISSING = [tool for tool in TOOLS if shutil.which(tool) is None]
pytestmark = pytest.mark.skipif(bool(MISSING), reason=f"there is no {', '.join(MISSING)}")

SIZE = 4096
VARIABLES = "a=1\nb=two words = x\nc=\\x \"q\" $d\nlast=end\n"


class Tools:
    """U-Boot's environment in a file, and ours."""

    def __init__(self, kestrova, folder):
        self.theirs = folder / "uboot.env"
        self.ours = folder / "boot_env"
        self._kestrova = kestrova
        self._folder = folder
        (folder / "config").write_text(f"{self.theirs} 0x0 {SIZE:#x}\n")
        self.vars("create")

    def vars(self, *words, **options):
        return self._kestrova("vars", "--file", self.ours, *words, **options)

    def _run(self, *words):
        return subprocess.run(words, capture_output=True, text=True, timeout=60, check=False)

    def file(self, text):
        path = self._folder / "text"
        path.write_text(text)
        return path

    def make(self, text):
        return self._run("mkenvimage", "-s", str(SIZE), "-o", self.theirs, self.file(text))

    def print(self):
        run = self._run("fw_printenv", "-c", self._folder / "config")
        assert run.returncode == 0, run
        return "".join(sorted(run.stdout.splitlines(keepends=True)))

    def set(self, *words):
        return self._run("fw_setenv", "-c", self._folder / "config", *words)

    def script(self, text):
        return self.set("-s", self.file(text))


@pytest.fixture(name="tools")
def tools_fixture(kestrova, tmp_path):
    return Tools(kestrova, tmp_path)


def test_they_read_our_text(tools):
    assert tools.vars("import", tools.file("# comment\n\n" + VARIABLES)).returncode == 0
    text = tools.vars("export").stdout
    assert text == VARIABLES
    assert tools.make(text).returncode == 0
    assert tools.print() == VARIABLES
    assert tools.make("other=1\n").returncode == 0
    assert tools.script(text).returncode == 0
    assert tools.print() == "".join(sorted((VARIABLES + "other=1\n").splitlines(keepends=True)))


def test_we_read_their_text(tools):
    assert tools.make("# comment\n\n" + VARIABLES).returncode == 0
    assert tools.vars("import", tools.file(tools.print())).returncode == 0
    assert tools.vars("export").stdout == VARIABLES
    assert tools.script("b=\nd=4\n").returncode == 0
    assert tools.vars("import", tools.file("b=\nd=4\n")).returncode == 0
    assert tools.vars("export").stdout == tools.print()


def test_a_line_end_in_a_value(tools):
    text = "a=1\\\n2\nb=3\n"
    assert tools.vars("import", tools.file(text)).returncode == 0
    assert tools.vars("get", "a").stdout == "1\n2\n"
    assert tools.make(tools.vars("export").stdout).returncode == 0
    assert tools.print() == "2\na=1\nb=3\n"  # sorted lines: the line end is not marked


def test_the_files_differ(tools):
    assert tools.make(VARIABLES).returncode == 0
    assert tools.theirs.stat().st_size == SIZE
    assert tools.vars("import", tools.file(VARIABLES)).returncode == 0
    theirs, ours = tools.theirs.read_bytes(), tools.ours.read_bytes()
    assert len(ours) < SIZE
    tools.ours.write_bytes(theirs)
    tools.ours.with_name("boot_env.bkp").unlink()
    assert tools.vars("verify").returncode == 1
    tools.theirs.write_bytes(ours.ljust(SIZE, b"\xff"))
    assert tools.set("a", "2").returncode != 0


@pytest.mark.parametrize("text,ours,made,printed", [
    ("a=1\nbad\n", 1, "a=1\nbad\n", "a=1\nx=1\n"),  # no sign: made part of it, ignored
    ("a=1\n=2\n", 1, "=2\na=1\n", "=2\na=1\nx=1\n"),  # no name: taken by both
    ("a=1\na=2\n", 0, "a=2\n", "a=2\nx=1\n"),  # twice: the later one counts when it is read
])
def test_what_they_take(tools, text, ours, made, printed):
    assert tools.vars("import", tools.file(text)).returncode == ours
    assert tools.make(text).returncode == 0
    found = tools.print()
    assert found == made or made.startswith("a=1\nbad") and found == "a=1\n", found
    assert tools.make("x=1\n").returncode == 0
    assert tools.script(text).returncode == 0
    assert tools.print() == printed


def test_what_all_refuse(tools):
    large = "".join(f"{name}={SIZE // 4 * 'v'}\n" for name in "abcd")  # lines that fw_setenv reads
    assert tools.vars("import", "--size", str(SIZE), tools.file(large)).returncode == 1
    assert tools.make(large).returncode != 0
    assert tools.make("x=1\n").returncode == 0
    assert tools.script(large).returncode != 0
    assert tools.vars("set", "a=b", "1").returncode == 2
    assert tools.set("a=b", "1").returncode != 0
    assert tools.print() == "x=1\n"


def test_an_empty_value(tools):
    assert tools.make("x=1\n").returncode == 0
    assert tools.script("x=\n").returncode == 0
    assert tools.set("y", "").returncode == 0
    assert tools.print() == "y=\n"
    assert tools.vars("set", "x", "1").returncode == 0
    assert tools.vars("set", "x", "").returncode == 0
    assert tools.vars("list").stdout == ""


def test_a_damaged_file(tools):
    assert tools.make("x=1\n").returncode == 0
    tools.theirs.write_bytes(b"damage" + tools.theirs.read_bytes()[6:])
    assert tools.set("x", "2").returncode != 0
    tools.ours.write_bytes(b"damage")
    assert tools.vars("set", "x", "2").returncode == 1
