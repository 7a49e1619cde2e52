# SPDX-License-Identifier: MIT
"""The example that streams a document into a file, from servers on loopback."""

import pytest

import httpserver

CONTENT = bytes(range(256)) * 1000


@pytest.fixture
def server():
    with httpserver.ScriptedServer() as running:
        yield running


def test_saves_a_document(example, tmp_path):
    with httpserver.Documents(tmp_path / "documents") as documents:
        run = example("download", documents.add("film", CONTENT), tmp_path / "file")
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout == f"{len(CONTENT)} bytes announced\n{len(CONTENT)} bytes received\n"
    assert (tmp_path / "file").read_bytes() == CONTENT
    assert not (tmp_path / "file.part").exists()


def test_takes_a_document_without_a_length(example, server, tmp_path):
    run = example("download", server.add("a", httpserver.reply(b"content")), tmp_path / "file")
    assert (run.returncode, run.stdout) == (0, "0 bytes announced\n7 bytes received\n")
    assert (tmp_path / "file").read_bytes() == b"content"


@pytest.mark.parametrize("steps,words", [
    ([httpserver.reply(status="404 Not Found")], "the document could not be opened"),
    ([httpserver.reply(b"short", length=100)], "the document broke off"),
    ([httpserver.reply(b"short", length=100), "reset"], "the connection broke"),
])
def test_failures_leave_no_file(example, server, tmp_path, steps, words):
    run = example("download", server.add("a", *steps), tmp_path / "file")
    assert run.returncode == 1 and f"download: {words}\n" in run.stderr
    assert list(tmp_path.iterdir()) == []


def test_nobody_listens(example, tmp_path):
    url = f"http://127.0.0.1:{httpserver.refused_port()}/"
    run = example("download", url, tmp_path / "file")
    assert run.returncode == 1
    assert run.stderr.endswith("download: the document could not be opened\n")


def test_a_full_disk_stops_it(example, tmp_path):
    (tmp_path / "file.part").symlink_to("/dev/full")
    with httpserver.Documents(tmp_path / "documents") as documents:
        run = example("download", documents.add("film", CONTENT), tmp_path / "file")
    assert run.returncode == 1
    assert run.stderr.endswith("download: the file could not be written\n")
    assert not (tmp_path / "file").exists()
