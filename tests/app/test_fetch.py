# SPDX-License-Identifier: MIT
"""kestrova fetch, from real and hostile servers."""

import array
import fcntl
import json
import os
import pathlib
import random
import re
import signal
import stat
import subprocess
import termios
import threading
import time

import fakedrive
import pytest

from httpserver import TIMEOUT, refused_port, reply

FAILED, MISUSED, REFUSED, BROKEN, CANCELLED = 1, 2, 4, 5, 6
BODY = random.Random(1).randbytes(1000)
SIZES = [0, 1, 2047, 2048, 2049, 20479, 20480, 20481, 3000000]


@pytest.fixture
def folder(tmp_path):
    """The empty directory in which documents are saved."""
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
    """Returns URL, exit status, and the message on standard error."""
    port = refused_port()
    return [
        (f"http://127.0.0.1:{port}/", REFUSED, "/': connection refused"),
        (server.add("silent"), REFUSED, "the server closed the connection before the end of"),
        (server.add("reset", "reset"), REFUSED, "the connection broke: Connection reset by peer"),
        (server.add("absent", reply(BODY, 1000, "404 Not Found")), REFUSED, "': 404 Not Found\n"),
        (server.add("unnamed", reply(status="500 ")), REFUSED, "': status 500\n"),
        (server.add("hostile", reply(status="500 \x1b[2J")), REFUSED, "': 500 \\x1b[2J\n"),
        (server.add("moved", reply(status="302 Found", Location="/")), REFUSED, "': 302 Found"),
        (server.add("part", reply(BODY, 1000, "206 Partial Content")), REFUSED, "': 206 Partial"),
        (server.add("half-header", b"HTTP/1.0 200 OK\r\nContent-"), REFUSED, "closed the connection"),
        (server.add("no-http", b"\0\r\n" * 100), REFUSED, "': not an HTTP reply\n"),
        (server.add("endless-header", b"x" * 5000), REFUSED, "more than 1022 characters"),
        (server.add("cut", reply(BODY, 1001)), BROKEN, "broke off after 1000 of 1001 bytes\n"),
        (server.add("bodiless", reply(b"", 1)), BROKEN, "broke off after 0 of 1 byte\n"),
        (server.add("reset-body", reply(BODY, 5000), "reset"), BROKEN,
         "of 5000 bytes: the connection broke: Connection reset by peer"),
        (server.add("negative", reply(BODY, -1)), BROKEN, "broke off after 0 bytes"),
        (server.add("huge", reply(BODY, 5000000000)), BROKEN, "1000 of 5000000000 bytes"),
        (server.add("limit", reply(BODY, 2147483647)), BROKEN, "1000 of 2147483647 bytes"),
        (server.add("cut-length", f"HTTP/1.0 200 OK\r\ncontent-length: {2 ** 31}\r\n\r\n".encode()),
         FAILED, "2 GiB or more"),
    ]


def test_failures(kestrova, scripted, folder):
    for url, status, message in scripts(scripted):
        run = kestrova("fetch", url, "-o", folder / "file")
        assert run.returncode == status and message in run.stderr, run
        assert run.stdout == "" and run.stderr.count("\n") == 1, run
        assert os.listdir(folder) == [], url


def in_mount_namespace(script, *arguments):
    """Returns the output of a shell script that may mount anything."""
    if os.geteuid() != 0 or subprocess.run(["unshare", "-m", "true"], check=False).returncode:
        pytest.skip("needs root and a mount namespace of its own")
    return subprocess.run(["unshare", "-m", "sh", "-c", script, "sh", *map(str, arguments)],
                          capture_output=True, text=True, timeout=TIMEOUT, check=False)


def test_an_unknown_host(command, tmp_path):
    (tmp_path / "nsswitch.conf").write_text("hosts: files\n")
    run = in_mount_namespace('mount --bind "$1" /etc/nsswitch.conf && exec "$2" fetch "$3"',
                             tmp_path / "nsswitch.conf", command, "http://no.such.host/a")
    assert run.returncode == REFUSED
    assert run.stderr == "kestrova: fetch: 'http://no.such.host/a': unknown host\n"


def test_a_length_in_another_spelling(kestrova, scripted):
    header = f"HTTP/1.0 200 OK\r\ncontent-LENGTH: {len(BODY) + 1}\r\n\r\n".encode()
    run = kestrova("fetch", scripted.add("document", header, BODY), text=False, input=b"")
    assert run.returncode == BROKEN and b"1000 of 1001 bytes" in run.stderr


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
    run = in_mount_namespace(script, folder, command, documents.add("document", BODY * 100))
    assert run.stdout == "1\n"  # the status, and no file
    assert f"'{folder}/f': No space left on device" in run.stderr


def test_a_reader_that_has_gone_ends_it(start, scripted):
    process = start("fetch", scripted.add("stalled", reply(BODY, 2000), "wait"), text=False)
    assert process.stdout.read(1000) == BODY
    process.stdout.close()
    assert process.wait(TIMEOUT) == FAILED and scripted.client_went()
    assert process.stderr.read() == b""


def test_a_reader_that_wants_the_beginning_only(command, documents):
    url = documents.add("document", b"first\n" + BODY * 1000)
    run = subprocess.run(["bash", "-c", '"$0" fetch "$1" | head -1', command, url],
                         capture_output=True, text=True, timeout=TIMEOUT, check=False)
    assert (run.stdout, run.stderr) == ("first\n", "")


def test_a_dash_is_standard_output(kestrova, documents, folder):
    url = documents.add("document", BODY)
    run = kestrova("fetch", url, "-o", "-", text=False, input=b"", cwd=folder)
    assert (run.returncode, run.stdout, run.stderr) == (0, BODY, b"")
    assert os.listdir(folder) == []
    run = kestrova("fetch", url, "-o", "./-", cwd=folder)
    assert run.returncode == 0 and os.listdir(folder) == ["-"]
    run = kestrova("--json", "fetch", url, "-o", "-")
    assert run.returncode == MISUSED and "-o FILE" in json.loads(run.stdout)["error"]


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


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_the_end_of_the_process_leaves_no_file(start, scripted, folder, number):
    process = start("fetch", scripted.add("stalled", reply(BODY, 2000), "wait"), "-o",
                    folder / "file")
    wait_for(lambda: any(path.stat().st_size == 1000 for path in folder.iterdir()))
    process.send_signal(number)
    assert process.wait(TIMEOUT) == CANCELLED
    assert scripted.client_went() and os.listdir(folder) == []


def test_a_process_that_is_stopped_goes_on_later(start, scripted, folder):
    go = threading.Event()
    url = scripted.add("document", reply(BODY[:500], 1000), go, BODY[500:])
    process = start("fetch", url, "-o", folder / "file")
    status = pathlib.Path(f"/proc/{process.pid}/status")
    wait_for(lambda: any(path.stat().st_size == 500 for path in folder.iterdir()))
    for _ in range(10):
        process.send_signal(signal.SIGSTOP)
        wait_for(lambda: "\nState:\tT" in status.read_text())
        process.send_signal(signal.SIGCONT)
    go.set()
    assert process.wait(TIMEOUT) == 0 and (folder / "file").read_bytes() == BODY


def test_an_ignored_signal_stays_ignored(command, scripted, folder):
    go = threading.Event()
    url = scripted.add("document", reply(BODY[:500], 1000), go, BODY[500:])
    with subprocess.Popen(["nohup", command, "fetch", url, "-o", folder / "file"],
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        wait_for(lambda: any(path.stat().st_size == 500 for path in folder.iterdir()))
        process.send_signal(signal.SIGHUP)
        go.set()
        errors = process.communicate(timeout=TIMEOUT)[1]
    assert process.returncode == 0, errors
    assert (folder / "file").read_bytes() == BODY


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
    """Polls a condition that no event reports, such as files and pipes of another process."""
    deadline = time.monotonic() + TIMEOUT
    while not condition():
        assert time.monotonic() < deadline
        os.sched_yield()


def test_progress(terminal, scripted, folder):
    go = threading.Event()
    url = scripted.add("document", reply(BODY[:500], 1000), go, BODY[500:])
    fetch = terminal("fetch", url, "-o", folder / "file")
    fetch.expect(r"\rfetch \[#+-+\]  50 % 500 bytes of 1000 bytes, [0-9.]+ \w+/s, "
                 r"\d+:\d\d:\d\d left\x1b\[K")
    fetch.expect(r"50 % 500 bytes of 1000 bytes, 0 bytes/s, stalled\x1b\[K")
    go.set()
    fetch.expect(r"\rfetch \[#+\] 100 % 1000 bytes of 1000 bytes, [0-9.]+ \w+/s, "
                 r"in \d+:\d\d:\d\d\x1b\[K\n"
                 r".*/file: 1000 bytes\n")
    assert fetch.end() == 0 and (folder / "file").read_bytes() == BODY


def test_progress_without_a_length(terminal, scripted, folder):
    go = threading.Event()
    fetch = terminal("fetch", scripted.add("document", reply(BODY), go), "-o", folder / "file")
    fetch.expect(r"\rfetch 1000 bytes, [0-9.]+ \w+/s, 0:00:0\d\x1b\[K")
    go.set()
    assert fetch.end() == 0 and "%" not in fetch.text


@pytest.mark.parametrize("columns", [1, 10, 17, 25, 40, 60])
def test_progress_stays_on_one_line(command, scripted, folder, columns):
    go = threading.Event()
    url = scripted.add("document", reply(BODY[:500], 1000), go, BODY[500:])
    fetch = fakedrive.Terminal(["sh", "-c", f'stty cols {columns}; exec "$@"', "sh", str(command),
                                "fetch", url, "-o", str(folder / "file")],
                               fakedrive.plain_screen())
    try:
        fetch.expect(r"\x1b\[K")
        go.set()
        assert fetch.end() == 0
    finally:
        fetch.close()
    lines = re.findall(r"\r([^\r\x1b]*)\x1b\[K", fetch.text)
    assert max(map(len, lines)) <= columns - 1
    # A line that fits is not truncated.
    assert lines[-1] in ["", "fetch 100", "fetch 100 %", "fetch 100 % 1000 bytes of 1000 bytes"] \
        or re.fullmatch(r"fetch 100 % 1000 bytes of 1000 bytes(, [0-9.]+ \w+/s(, in 0:00:\d\d)?)?",
                        lines[-1])


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
    cases = [("whole", reply(BODY, 1000), 0, 1000, 1000, "done", "", 200),
             ("unknown", reply(BODY), 0, 1000, 0, "done", "", 200),
             ("cut", reply(BODY, 2000), BROKEN, 1000, 2000, "broken", "", 200),
             ("huge", reply(BODY, 5000000000), BROKEN, 1000, 5000000000, "broken", "", 200),
             ("absent", reply(status="404 x"), REFUSED, 0, 0, "refused", "404 x", 404),
             ("none", b"none\r\n", REFUSED, 0, 0, "refused", "not an HTTP reply", 0)]
    for name, answer, status, received, length, outcome, reason, http_status in cases:
        url = scripted.add(name, answer)
        run = kestrova("--json", "fetch", url, "-o", file)
        assert run.returncode == status
        result = json.loads(run.stdout)
        assert ("error" in result) == (status != 0)
        result.pop("error", None)
        assert result == {"command": "fetch", "url": url, "file": file, "bytes": received,
                          "length": length, "outcome": outcome, "reason": reason,
                          "httpStatus": http_status}


def test_json_and_a_document_do_not_share_the_output(kestrova, scripted):
    run = kestrova("--json", "fetch", scripted.add("document", reply(BODY, 1000)))
    assert run.returncode == MISUSED and "-o FILE" in json.loads(run.stdout)["error"]
    assert scripted.requests == []


def test_the_drive_is_left_alone(fake_drive, documents):
    run = fake_drive.formatted().run("fetch", documents.add("document", b"text"))
    assert (run.returncode, run.stdout) == (0, "text")
    assert not (fake_drive.state / "log").exists()  # no tool has run
