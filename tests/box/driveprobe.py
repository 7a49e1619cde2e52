# SPDX-License-Identifier: MIT
"""Controls an application of the library in a box, call by call, for the drive tests.

A test module defines the disks of its box with a fixture named drive_box:

    @pytest.fixture(scope="module")
    def drive_box(box_image):
        with probe_box([Disk()]) as running:
            yield running

and its tests use box and probe. Each test leaves the application without additional descriptors or
children.
"""

import contextlib
import os
import pathlib
import time

import pytest

from box.errors import BoxError
from box.machine import Box, product_files

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KESTROVA_BUILD", ROOT / "build" / "i686")).resolve()
PROGRAM = BUILD / "tests" / "boxprograms" / "drive-probe"
PORT = "/dev/ttyS1"
GUEST_PROGRAM = "/usr/lib/kestrova/drive-probe"


class Probe:
    """The application, started and with its port open.

    call() and the shortcuts for it return what the library returned: True or False where
    the answer is that, else a list of words.
    """

    def __init__(self, box):
        self._box, self._port, self._received = box, box.serial[0], b""
        self.job = box.start(["env", "LC_ALL=C", GUEST_PROGRAM, PORT])
        if self._line(60) != "ready":
            raise BoxError("the probe did not start: " + self.errors())

    def _line(self, timeout):
        deadline = time.monotonic() + timeout
        while b"\n" not in self._received:
            self._port.settimeout(max(deadline - time.monotonic(), 0.001))
            try:
                data = self._port.recv(65536)
            except TimeoutError as error:
                raise BoxError(f"no answer of the probe in {timeout} s\n{self.log()}"
                               f"{self.errors()}") from error
            if not data:
                raise BoxError("the box has gone")
            self._received += data
        line, self._received = self._received.split(b"\n", 1)
        return line.decode("ascii", "replace").rstrip("\r")

    def call(self, *words, timeout=120):
        """Makes one call in the application."""
        self._port.sendall("\t".join(map(str, words)).encode() + b"\n")
        outcome, *result = self._line(timeout).split("\t")
        if outcome != "ok":
            raise BoxError(f"{words}: {outcome} {result}")
        return result[0] == "true" if result in (["true"], ["false"]) else result

    def status(self):
        """Returns status and progress of the recording drive."""
        name, progress = self.call("status")
        return name, int(progress)

    def until(self, *wanted, timeout=60):
        """Polls the status until it is one of `wanted`; returns all that were seen."""
        seen, deadline = [], time.monotonic() + timeout
        while not seen or seen[-1] not in wanted:
            if time.monotonic() > deadline:
                raise BoxError(f"no {wanted} in {timeout} s but {seen}")
            now = self.status()
            if now not in seen[-1:]:
                seen.append(now)
        return seen

    def finish(self):
        """Waits for the drive's worker. Returns the name of the final status."""
        return self.call("watch")[-1].split()[0]

    def sizes(self):
        """Returns block size, free and total MiB."""
        return [int(word) for word in self.call("sizes")]

    def log(self, skip=0):
        """Returns the library's standard output, after the first `skip` bytes."""
        return self.job.output((skip, 0))[0].decode(errors="replace")

    def errors(self, skip=0):
        """Returns its standard error in the same way."""
        return self.job.output((0, skip))[1].decode(errors="replace")

    def mark(self):
        """Returns the current positions of log() and errors()."""
        out, err = self.job.output()
        return len(out), len(err)


@contextlib.contextmanager
def probe_box(disks, files=None, **options):
    """Creates a box with the product and, in its member probe, the application."""
    if not PROGRAM.exists():
        pytest.skip(f"{PROGRAM} is not built")
    files = {**product_files(BUILD), PROGRAM: GUEST_PROGRAM, **(files or {})}
    with Box(disks=disks, files=files, serial_ports=1, **options) as box:
        box.probe = Probe(box)
        yield box


@pytest.fixture
def box(drive_box):
    """The module's box."""
    return drive_box


@pytest.fixture
def probe(drive_box):
    """The module's application; checks that the test's calls leaked nothing."""
    application = drive_box.probe
    before = application.call("descriptors")
    yield application
    assert application.call("descriptors") == before
    assert application.call("children") is False


@pytest.fixture
def system(probe):
    """The application with the system fully up and the recording drive detected."""
    probe.call("up", "full")
    yield probe
    probe.call("use")
    probe.call("down")


def throttle(box, disk, writes):
    """Limits a disk to this many writes a second; 0 lifts the limit."""
    said = box.qmp.command("human-monitor-command",
                           command_line=f"block_set_io_throttle {disk.name} 0 0 0 0 0 {writes}")
    assert not said
