# SPDX-License-Identifier: MIT
"""Fixtures for the tests of the command.

KESTROVA names the command to test; by default it is that of the i686 build.

kestrova        runs the command with arguments, without a terminal; wherever the command is run, its
                JSON is checked against the schema
documents       a directory that python3's http.server serves, and its address
scripted        a ScriptedServer
terminal        starts the command on a terminal
fake_drive      a separate root with a fake recording drive and stubs of its tools
boot_partition  a separate root with a real file system as the software partition
maintain        runs the command there, with stubs for the daemons of service staff
"""

import os
import pathlib
import signal
import subprocess

import pytest

import bootpartition
import documentschema
import fakedrive
import httpserver
import maintenance

ROOT = pathlib.Path(__file__).resolve().parents[2]
TIMEOUT = 60

# The address sanitizer does not notice that a cancelled thread unwinds. Stack frames that it has
# poisoned would stay poisoned and be reported as overflows.
os.environ.setdefault("ASAN_OPTIONS", "detect_stack_use_after_return=1")

# A background job of a script ignores SIGINT, and one under nohup ignores SIGHUP. The command would
# inherit that, and tests that interrupt it would wait forever.
signal.signal(signal.SIGINT, signal.default_int_handler)
signal.signal(signal.SIGHUP, signal.SIG_DFL)


@pytest.fixture(scope="session")
def command():
    """Returns the path of the command."""
    path = pathlib.Path(os.environ.get("KESTROVA", ROOT / "build/i686/kestrova"))
    if not path.exists():
        pytest.skip(f"there is no {path}; build it, or set KESTROVA")
    return path.resolve()


@pytest.fixture
def kestrova(command):
    """Returns a function that runs the command; output as text."""

    def run(*arguments, **options):
        options = {"input": "", "stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                   "text": True, "timeout": TIMEOUT, **options}
        result = subprocess.run([command, *arguments], check=False, **options)
        documentschema.check(arguments, result.stdout)
        return result

    return run


@pytest.fixture
def start(command):
    """Returns a function that starts the command on pipes; the test's end kills it."""
    processes = []

    def launch(*arguments, **options):
        options = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                   "text": True, **options}
        processes.append(subprocess.Popen([command, *arguments], **options))
        return processes[-1]

    yield launch
    for process in processes:
        process.kill()
        process.wait()
        for stream in [process.stdin, process.stdout, process.stderr]:
            stream.close()


@pytest.fixture
def terminal(command):
    """Returns a function that starts the command on a terminal; the test's end kills it."""
    terminals = []

    def launch(*arguments, **environment):
        terminals.append(fakedrive.Terminal([command, *map(str, arguments)],
                                            {**fakedrive.plain_screen(), **environment}))
        return terminals[-1]

    yield launch
    for one in terminals:
        one.close()


@pytest.fixture
def documents(tmp_path):
    """A Documents."""
    with httpserver.Documents(tmp_path / "documents") as served:
        yield served


@pytest.fixture
def scripted():
    """A ScriptedServer."""
    with httpserver.ScriptedServer() as server:
        yield server


@pytest.fixture
def no_drive():
    """Skips on a machine whose own disk the command would use as the recording drive."""
    if os.path.exists("/dev/sda"):
        pytest.skip("this machine has a /dev/sda of its own")


@pytest.fixture(scope="session")
def fake_root(command, tmp_path_factory):
    """Builds the files for the fake drive, once."""
    if not fakedrive.available():
        pytest.skip("the fake drive needs root, a mount namespace of its own and gcc")
    return fakedrive.build(command, tmp_path_factory.mktemp("fakedrive"))


@pytest.fixture
def fake_drive(fake_root, tmp_path):
    """A blank FakeDrive; kills the processes that it started."""
    with fakedrive.FakeDrive(fake_root, tmp_path) as drive:
        yield drive


@pytest.fixture
def boot_partition(command, tmp_path):
    """A BootPartition without files; releases its loop device."""
    lacking = bootpartition.missing()
    if lacking:
        pytest.skip(f"the software partition's stand-in needs {lacking}")
    with bootpartition.BootPartition(command.parent, tmp_path) as partition:
        yield partition


@pytest.fixture
def maintain(boot_partition):
    """A Maintenance."""
    return maintenance.Maintenance(boot_partition)
