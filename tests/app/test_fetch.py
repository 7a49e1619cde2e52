# SPDX-License-Identifier: MIT
"""kestrova fetch, from true and hostile servers."""

import array
import fcntl
import json
import os
import random
import signal
import stat
import subprocess
import termios
import threading
import time

import pytest

from httpserver import TIMEOUT, refused_port, reply

FAILED, MISUSED, REFUSED, BROKEN, CANCELLED = 1, 2, 4, 5, 6
BODY = random.Random(1).randbytes(1000)
SIZES = [0, 1, 2047, 2048, 2049, 20479, 20480, 20481, 3000000]


@pytest.fixture
def folder(tmp_path):
    """Where documents are saved: empty."""
    path = tmp_path / "saved"
    path.mkdir()
    return path


@pytest.mark.parametrize("size", SIZES)
def test_documents(kestrova, documents, folder, size):
    body = random.Random(size).randbytes(size)
    url = documents.add("document", body)
    run = kestrova("fetch", url, text=False, input=b"")
    assert (run.returncode, run.stdout, run.stderr) == (0, body, b"")
    run = kestrova("fetch", url, "-o", folder / "file")
    count = "1 byte" if size == 1 else f"{size} bytes"
    assert (run.returncode, run.stdout, run.stderr) == (0, f"{folder}/file: {count}\n", "")
    assert os.listdir(folder) == ["file"] and (folder / "file").read_bytes() == body


def test_the_library_s_log_is_not_in_the_body(kestrova, documents, scripted):
    run = kestrova("-vv", "fetch", documents.add("document", BODY), text=False, input=b"")
    assert (run.returncode, run.stdout) == (0, BODY)
    url = scripted.add("broken", b"HTTP/1.0 200 OK\r\nno field\r\n\r\n")
    run = kestrova("-vv", "fetch", url)
    assert run.returncode == REFUSED and run.stdout == ""
    assert "Hmm\n" in run.stderr and "hdr.readHeader failed" in run.stderr


def test_a_file_is_replaced(kestrova, documents, folder):
    (folder / "file").write_text("an older and longer one" * 100)
    (folder / "link").symlink_to("file")
    umask = os.umask(0o027)
    try:
        run = kestrova("fetch", documents.add("document", BODY), "-o", folder / "link")
    finally:
        os.umask(umask)
    assert run.returncode == 0 and sorted(os.listdir(folder)) == ["file", "link"]
    assert (folder / "link").is_symlink() and (folder / "file").read_bytes() == BODY
    assert stat.S_IMODE((folder / "file").stat().st_mode) == 0o640


def test_what_is_no_file_is_written_as_it_is(kestrova, documents, folder):
    url = documents.add("document", BODY)
    assert kestrova("fetch", url, "-o", "/dev/null").returncode == 0
    assert stat.S_ISCHR(os.stat("/dev/null").st_mode)
    os.mkfifo(folder / "pipe")
    run = kestrova("fetch", url, "-o", folder / "pipe")
    assert run.returncode == FAILED and "No such device or address" in run.stderr  # no reader
    reader = os.open(folder / "pipe", os.O_RDONLY | os.O_NONBLOCK)
    assert kestrova("fetch", url, "-o", folder / "pipe").returncode == 0
    assert os.read(reader, 2000) == BODY
    os.close(reader)


def scripts(server):
    """URL, exit status, and what standard error says."""
    port = refused_port()
    return [
        (f"http://127.0.0.1:{port}/", REFUSED, "could not be opened"),
        ("http://no.such.host.invalid/", REFUSED, "could not be opened"),
        (server.add("silent"), REFUSED, "could not be opened"),
        (server.add("reset", "reset"), REFUSED, "could not be opened"),
        (server.add("absent", reply(BODY, 1000, "404 Not Found")), REFUSED, "could not be"),
        (server.add("moved", reply(status="302 Found", Location="/")), REFUSED, "could not be"),
        (server.add("part", reply(BODY, 1000, "206 Partial Content")), REFUSED, "could not be"),
        (server.add("half-header", b"HTTP/1.0 200 OK\r\nContent-"), REFUSED, "could not be"),
        (server.add("no-http", b"\0\r\n" * 100), REFUSED, "could not be"),
        (server.add("endless-header", b"x" * 5000), REFUSED, "could not be"),
        (server.add("cut", reply(BODY, 1001)), BROKEN, "broke off after 1000 of 1001 bytes"),
        (server.add("bodiless", reply(b"", 1)), BROKEN, "broke off after 0 of 1 byte"),
        (server.add("reset-body", reply(BODY, 5000), "reset"), BROKEN, "of 5000 bytes"),
        (server.add("negative", reply(BODY, -1)), BROKEN, "broke off after 0 bytes"),
        (server.add("huge", reply(BODY, 5000000000)), FAILED, "2 GiB or more can't be fetched"),
        (server.add("limit", reply(BODY, 2147483647)), FAILED, "2 GiB or more can't be fetched"),
    ]


def test_failures(kestrova, scripted, folder):
    for url, status, message in scripts(scripted):
        run = kestrova("fetch", url, "-o", folder / "file")
        assert run.returncode == status and message in run.stderr, run
        assert run.stdout == "" and run.stderr.count("\n") == 1, run
        assert os.listdir(folder) == [], url


def test_a_failure_leaves_the_older_file(kestrova, scripted, folder):
    (folder / "file").write_text("older")
    run = kestrova("fetch", scripted.add("cut", reply(BODY, 1001)), "-o", folder / "file")
    assert run.returncode == BROKEN and os.listdir(folder) == ["file"]
    assert (folder / "file").read_text() == "older"


@pytest.mark.parametrize("length", [None, 0, "nonsense"])
def test_without_a_length_the_end_is_the_end(kestrova, scripted, length):
    url = scripted.add("document", reply(BODY, length))
    run = kestrova("fetch", url, text=False, input=b"")
    assert (run.returncode, run.stdout, run.stderr) == (0, BODY, b"")


def test_more_than_announced_is_dropped(kestrova, scripted):
    run = kestrova("fetch", scripted.add("long", reply(BODY, 10)), text=False, input=b"")
    assert (run.returncode, run.stdout) == (0, BODY[:10])
    assert b"sent more than it announced" in run.stderr


@pytest.mark.parametrize("path,message", [
    (".", "Is a directory"), ("absent/file", "No such file or directory"),
    ("file/file", "Not a directory"), ("x" * 300, "File name too long")])
def test_where_nothing_can_be_written(kestrova, scripted, folder, path, message):
    (folder / "file").touch()
    url = scripted.add("document", reply(BODY, 1000))
    run = kestrova("fetch", url, "-o", folder / path)
    assert run.returncode == FAILED and message in run.stderr
    assert os.listdir(folder) == ["file"]


def test_a_full_output(kestrova, documents):
    url = documents.add("document", BODY)
    with open("/dev/full", "w", encoding="ascii") as full:
        run = kestrova("fetch", url, stdout=full)
    assert run.returncode == FAILED and "standard output: No space left" in run.stderr
    run = kestrova("fetch", url, "-o", "/dev/full")
    assert run.returncode == FAILED and "'/dev/full': No space left" in run.stderr


def test_a_full_disk(command, documents, folder):
    script = 'mount -t tmpfs -o size=64k full "$1"; "$2" fetch "$3" -o "$1/f"; echo $?; ls -A "$1"'
    if os.geteuid() != 0 or subprocess.run(["unshare", "-m", "true"], check=False).returncode:
        pytest.skip("a small disk needs root and a mount namespace of its own")
    run = subprocess.run(["unshare", "-m", "sh", "-c", script, "sh", folder, command,
                          documents.add("document", BODY * 100)],
                         capture_output=True, text=True, timeout=TIMEOUT, check=False)
    assert run.stdout == "1\n"  # the status, and no file
    assert f"'{folder}/f': No space left on device" in run.stderr


def test_a_reader_that_has_gone_ends_it(start, scripted):
    process = start("fetch", scripted.add("stalled", reply(BODY, 2000), "wait"), text=False)
    assert process.stdout.read(1000) == BODY
    process.stdout.close()
    assert process.wait(TIMEOUT) == FAILED and scripted.client_went()
    assert b"standard output: Broken pipe" in process.stderr.read()


def cancel(process):
    process.send_signal(signal.SIGINT)
    assert process.wait(TIMEOUT) == CANCELLED
    return process.stderr.read()


def test_ctrl_c_before_the_reply(start, scripted, folder):
    process = start("fetch", scripted.add("mute", "wait"), "-o", folder / "file")
    wait_for(lambda: scripted.requests)
    assert "cancelled after 0 bytes" in cancel(process)
    assert scripted.client_went() and os.listdir(folder) == []


def test_ctrl_c_within_the_body(start, scripted, folder):
    process = start("fetch", scripted.add("stalled", reply(BODY, 2000), "wait"), "-o",
                    folder / "file")
    wait_for(lambda: any(path.stat().st_size == 1000 for path in folder.iterdir()))
    assert "file" not in os.listdir(folder)
    assert "cancelled after 1000 bytes" in cancel(process)
    assert scripted.client_went() and os.listdir(folder) == []


def test_ctrl_c_while_the_reader_is_slow(start, scripted):
    process = start("fetch", scripted.add("endless", reply(), BODY * 1000, "wait"), text=False)
    fcntl.fcntl(process.stdout, fcntl.F_SETPIPE_SZ, 4096)
    unread = array.array("i", [0])

    def is_full():  # one page is, after the first write
        fcntl.ioctl(process.stdout, termios.FIONREAD, unread)
        return unread[0] > 0

    wait_for(is_full)
    assert b"cancelled after" in cancel(process)


def wait_for(condition):
    """Polls what nothing tells of: files and pipes of another process."""
    deadline = time.monotonic() + TIMEOUT
    while not condition():
        assert time.monotonic() < deadline
        os.sched_yield()


def test_progress(terminal, scripted, folder):
    go = threading.Event()
    url = scripted.add("document", reply(BODY[:500], 1000), go, BODY[500:])
    fetch = terminal("fetch", url, "-o", folder / "file")
    fetch.expect(r"\rfetch \[#{10}-{10}\]  50 % 500 bytes of 1\.0 kB, [0-9.]+ \w+/s, "
                 r"\d+:\d\d:\d\d left\x1b\[K")
    fetch.expect(r"50 % 500 bytes of 1\.0 kB, 0 bytes/s, stalled\x1b\[K")
    go.set()
    fetch.expect(r"\rfetch \[#{20}\] 100 % 1\.0 kB of 1\.0 kB, [0-9.]+ \w+/s\x1b\[K\n"
                 r".*/file: 1000 bytes\n")
    assert fetch.end() == 0 and (folder / "file").read_bytes() == BODY


def test_progress_without_a_length(terminal, scripted, folder):
    go = threading.Event()
    fetch = terminal("fetch", scripted.add("document", reply(BODY), go), "-o", folder / "file")
    fetch.expect(r"\rfetch 1\.0 kB, [0-9.]+ \w+/s\x1b\[K")
    go.set()
    assert fetch.end() == 0 and "%" not in fetch.text


def test_ctrl_c_at_a_terminal(terminal, scripted, folder):
    url = scripted.add("stalled", reply(BODY, 2000), "wait")
    fetch = terminal("fetch", url, "-o", folder / "file")
    fetch.expect("50 %")
    fetch.type("\x03")
    fetch.expect(r"\nkestrova: fetch: cancelled after 1000 bytes\n")
    assert fetch.end() == CANCELLED and os.listdir(folder) == []


def test_a_document_on_a_terminal_is_alone(terminal, scripted):
    go = threading.Event()
    fetch = terminal("fetch", scripted.add("text", reply(b"some\n", 10), go, b"text\n"))
    fetch.expect("some\n")
    go.set()
    assert fetch.end() == 0 and fetch.text == "some\ntext\n"


def test_the_shell_goes_on_after_ctrl_c(terminal, scripted, documents, folder):
    stalled = scripted.add("stalled", reply(BODY, 2000), "wait")
    shell = terminal("--minimal", "shell")
    shell.expect("kestrova> ")
    shell.type(f"fetch {stalled} -o {folder}/file\n")
    shell.expect("50 %")
    shell.type("\x03")
    shell.expect("cancelled after 1000 bytes\nkestrova> ")
    shell.type(f"fetch {documents.add('document', BODY)} -o {folder}/file\n")
    shell.expect("file: 1000 bytes\nkestrova> ")
    shell.type("exit\n")
    assert shell.end() == 0 and (folder / "file").read_bytes() == BODY


def test_a_script_ends_at_a_cancelled_fetch(start, scripted, folder):
    stalled = scripted.add("stalled", reply(BODY, 2000), "wait")
    process = start("shell", "-e", f"fetch {stalled} -o {folder}/file; table")
    wait_for(lambda: scripted.requests)
    cancel(process)
    assert process.stdout.read() == ""


def test_json(kestrova, scripted, folder):
    file = str(folder / "file")
    cases = [("whole", reply(BODY, 1000), 0, 1000, 1000, "done"),
             ("unknown", reply(BODY), 0, 1000, 0, "done"),
             ("cut", reply(BODY, 2000), BROKEN, 1000, 2000, "broken"),
             ("huge", reply(BODY, 5000000000), FAILED, 0, 0, "failed"),
             ("absent", reply(status="404 x"), REFUSED, 0, 0, "refused")]
    for name, answer, status, received, length, outcome in cases:
        url = scripted.add(name, answer)
        run = kestrova("--json", "fetch", url, "-o", file)
        assert run.returncode == status
        result = json.loads(run.stdout)
        assert ("error" in result) == (status != 0)
        result.pop("error", None)
        assert result == {"command": "fetch", "url": url, "file": file, "bytes": received,
                          "length": length, "outcome": outcome}


def test_json_and_a_document_do_not_share_the_output(kestrova, scripted):
    run = kestrova("--json", "fetch", scripted.add("document", reply(BODY, 1000)))
    assert run.returncode == MISUSED and "-o FILE" in json.loads(run.stdout)["error"]
    assert scripted.requests == []


def test_the_drive_is_left_alone(fake_drive, documents):
    run = fake_drive.formatted().run("fetch", documents.add("document", b"text"))
    assert (run.returncode, run.stdout) == (0, "text")
    assert not (fake_drive.state / "log").exists()  # no tool has run
