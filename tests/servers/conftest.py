# SPDX-License-Identifier: MIT
"""Fixtures for the tests with real servers.

FETCHPROBE names the program that fetches; by default it is that of the i686 build.
"""

import hashlib
import json
import os
import pathlib
import random
import shutil
import subprocess
import tempfile

import pytest

import realservers

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROBE = pathlib.Path(os.environ.get("FETCHPROBE", ROOT / "build/i686/tests/servers/fetchprobe"))
TIMEOUT = 300
HUGE = 300 << 20
SIZES = [0, 1, 20479, 20480, 20481, 3 << 20, HUGE]


def make_document(path, size):
    """Sparse in its middle if it is long."""
    ends = min(size, 1 << 20)
    source = random.Random(size)
    with open(path, "wb") as document:
        document.write(source.randbytes(ends))
        if size > 2 * ends:
            document.seek(size - ends)
            document.write(source.randbytes(ends))
        document.truncate(size)


@pytest.fixture(scope="session")
def documents():
    """The directory that all servers offer; readable by every user, because they run scripts."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="kestrova-servers-"))
    try:
        folder.chmod(0o755)
        for size in SIZES:
            make_document(folder / f"doc-{size}.txt", size)
        make_document(folder / "unknown", 100000)
        for name in ("folder", "cgi-bin"):
            (folder / name).mkdir()
        for name, text in (("unknown.sh", realservers.CGI), ("part.sh", realservers.CGI_PART)):
            script = folder / "cgi-bin" / name
            script.write_text(text.replace("{documents}", str(folder)))
            script.chmod(0o755)
        yield folder
    finally:
        shutil.rmtree(folder)


@pytest.fixture(scope="module", params=realservers.ALL, ids=lambda kind: kind.name)
def server(request, documents, tmp_path_factory):
    if realservers.find(request.param.program) is None:
        pytest.skip(f"there is no {request.param.program}")
    with request.param(documents, tmp_path_factory.mktemp(request.param.name)) as running:
        yield running


class Fetched:
    """The probe's report, and the body's length and checksum."""

    def __init__(self, told, length, checksum):
        self.told = told
        self.length = length
        self.checksum = checksum


@pytest.fixture
def fetch():
    """Returns a function that fetches with "url" or "chain"."""
    if not PROBE.exists():
        pytest.skip(f"there is no {PROBE}; build it, or set FETCHPROBE")

    def run(kind, url):
        with subprocess.Popen([PROBE, kind, url], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              stdin=subprocess.DEVNULL) as probe:
            checksum, length = hashlib.sha256(), 0
            while piece := probe.stdout.read(1 << 16):
                checksum.update(piece)
                length += len(piece)
            told = probe.stderr.read().decode()
            assert probe.wait(TIMEOUT) == 0, told
        return Fetched(json.loads(told), length, checksum.hexdigest())

    return run


def checksum_of(path):
    with open(path, "rb") as document:
        return hashlib.file_digest(document, "sha256").hexdigest()
