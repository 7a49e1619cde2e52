# SPDX-License-Identifier: MIT
"""kestrova fetch-all, from real and hostile servers."""

import json
import os
import random
import signal
import threading

import pytest

from httpserver import TIMEOUT, refused_port, reply

FAILED, MISUSED, CANCELLED = 1, 2, 6
BODY = random.Random(2).randbytes(1000)


@pytest.fixture
def folder(tmp_path):
    """The empty directory in which documents are saved."""
    path = tmp_path / "saved"
    path.mkdir()
    return path


def saved(folder):
    return {path.name: path.read_bytes() for path in folder.iterdir()}


def test_one_line_an_entry(kestrova, documents, scripted):
    urls = [documents.add("a", b"12345"), documents.add("empty", b""),
            scripted.add("typed", reply(BODY, 1000, Content_Type="image/png; q=1")),
            scripted.add("hostile-type", reply(b"x", 1, Content_Type="a\tb\x1b[2J"))]
    run = kestrova("fetch-all", *urls)
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.splitlines() == [
        f"ok\t5\t-\t{urls[0]}", f"ok\t0\t-\t{urls[1]}", f"ok\t1000\timage/png; q=1\t{urls[2]}",
        f"ok\t1\ta\\x09b\\x1b[2J\t{urls[3]}"]


def test_failures_do_not_hold_up_the_others(kestrova, scripted, folder):
    urls = [f"http://127.0.0.1:{refused_port()}/x", scripted.add("absent", reply(status="404 no")),
            scripted.add("cut", reply(BODY, 1001)), scripted.add("whole", reply(BODY, 1000)),
            scripted.add("full", reply(b"x" * 20480, 20480)), scripted.add("long", reply(BODY, 10)),
            scripted.add("reset", reply(BODY, 2000), "reset"),
            scripted.add("largest", reply(b"x" * 20479, 20479))]
    run = kestrova("fetch-all", "-d", folder, *urls)
    assert run.returncode == FAILED and "6 of 8 documents failed" in run.stderr
    lines = [line.split("\t") for line in run.stdout.splitlines()]
    assert [line[3] for line in lines] == urls
    assert [line[0] == "ok" for line in lines] == [False, False, False, True, False, False, False,
                                                   True]
    length = "the document is not as long as announced, or has 20480 bytes or more"
    assert [line[4] for line in lines] == [
        "connection refused", "404 no", length, f"{folder}/whole", length, length,
        "the connection broke: Connection reset by peer", f"{folder}/largest"]
    assert saved(folder) == {"whole": BODY, "largest": b"x" * 20479}
    assert scripted.requests.count("/cut") == 4 and scripted.requests.count("/absent") == 1


@pytest.mark.parametrize("end", ["\n", "\r\n"])
def test_a_list_on_standard_input(kestrova, documents, end):
    urls = [documents.add(name, name.encode()) for name in ["a", "bb", "ccc"]]
    run = kestrova("fetch-all", input=end.join(["", urls[0], "  " + urls[1] + " ", "", urls[2]]))
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout == "".join(f"ok\t{size}\t-\t{url}\n" for size, url in enumerate(urls, 1))


def test_an_empty_list(kestrova):
    run = kestrova("fetch-all")
    assert (run.returncode, run.stdout, run.stderr) == (0, "", "")


def test_bad_lines_of_a_list_fail_alone(kestrova, scripted):
    good = scripted.add("good", reply(BODY, 1000))
    lines = ["nonsense", good + "\tHTTP/1.0", f"{scripted.url}{'x' * 5000}", good]
    run = kestrova("fetch-all", input="\n".join(lines))
    assert run.returncode == FAILED and "3 of 4 documents failed" in run.stderr
    assert "a line of the list is too long" in run.stderr
    assert [line.split("\t")[0] for line in run.stdout.splitlines()] == ["failed"] * 3 + ["ok"]
    assert scripted.requests == ["/good"]  # nothing else was sent


def test_a_list_that_grows(start, documents):
    process = start("fetch-all")
    for name in ["a", "b"]:
        url = documents.add(name, b"x")
        process.stdin.write(url + "\n")
        process.stdin.flush()
        assert process.stdout.readline() == f"ok\t1\t-\t{url}\n"
    process.stdin.close()
    assert process.wait(TIMEOUT) == 0


def test_names_of_files(kestrova, scripted, folder):
    names = {"dir/name.png": "name.png", "other/name.png": "name.png.2",
             "name.png?q=/a/b": "name.png.3", "name.png.2": "name.png.2.2", "": "index",
             "dir/": "index.2", "..": "_.", "dir/.": "_", ".hidden": "_hidden", "-rf": "_rf",
             "a%2Fb": "a%2Fb", "x" * 300: "x" * 240, "last#part": "last"}
    urls = [scripted.add(path, reply(path.encode(), max(len(path), 1) if path else None))
            for path in names]
    run = kestrova("fetch-all", "-d", folder, *urls)
    assert run.returncode == 0, run
    assert saved(folder) == {name: path.encode() for path, name in names.items()}
    files = [line.split("\t")[4] for line in run.stdout.splitlines()]
    assert files == [f"{folder}/{name}" for name in names.values()]


def test_a_file_of_an_earlier_run_is_replaced(kestrova, documents, folder):
    url = documents.add("name", b"new")
    (folder / "name").write_text("older")
    assert kestrova("fetch-all", "-d", folder, url).returncode == 0
    assert saved(folder) == {"name": b"new"}


def test_what_cannot_be_saved_has_failed(kestrova, documents, folder):
    (folder / "name").mkdir()
    urls = [documents.add("name", b"x"), documents.add("good", b"y")]
    run = kestrova("fetch-all", "-d", folder, *urls)
    assert run.returncode == FAILED and "/name': Is a directory" in run.stderr
    assert [line.split("\t")[0] for line in run.stdout.splitlines()] == ["failed", "ok"]
    assert run.stdout.splitlines()[0].endswith(f"\t'{folder}/name': Is a directory")
    assert (folder / "good").read_bytes() == b"y"


@pytest.mark.parametrize("path,message", [("absent", "No such file"), ("file", "Not a directory")])
def test_a_bad_folder_is_found_first(kestrova, scripted, folder, path, message):
    (folder / "file").touch()
    url = scripted.add("document", reply(BODY, 1000))
    run = kestrova("fetch-all", "-d", folder / path, url)
    assert run.returncode == FAILED and message in run.stderr
    assert scripted.requests == []


def test_ctrl_c_waits_for_the_document_under_way(start, scripted):
    go = threading.Event()
    urls = [scripted.add("held", reply(b"", 4), go, b"body"), scripted.add("next", reply(b"", 0))]
    process = start("fetch-all", *urls)
    while "/held" not in scripted.requests:
        os.sched_yield()
    process.send_signal(signal.SIGINT)
    assert "can't be stopped, waiting" in process.stderr.readline()
    go.set()
    assert process.wait(TIMEOUT) == CANCELLED
    assert process.stdout.read() == f"ok\t4\t-\t{urls[0]}\n"
    assert "cancelled after 1 document\n" in process.stderr.read()
    assert scripted.requests == ["/held"]


def test_ctrl_c_while_a_list_is_awaited(terminal, documents):
    fetch = terminal("fetch-all")
    fetch.type(documents.add("a", b"x") + "\n")
    fetch.expect("ok\t1\t")
    fetch.type("\x03")
    fetch.expect("cancelled after 1 document\n")
    assert fetch.end() == CANCELLED


def test_a_reader_that_has_gone_ends_it(start, documents):
    process = start("fetch-all")
    url = documents.add("a", b"x")
    process.stdout.close()
    process.stdin.write(url + "\n")
    process.stdin.flush()
    assert process.wait(TIMEOUT) == FAILED  # with its input still open
    assert process.stderr.read() == ""


def test_json(kestrova, scripted, folder):
    good = scripted.add("good", reply(BODY, 1000, Content_Type="text/plain"))
    bad = scripted.add("bad", reply(status="404 no"))
    run = kestrova("--json", "fetch-all", "-d", folder, good, bad)
    assert run.returncode == FAILED
    assert json.loads(run.stdout) == {
        "command": "fetch-all", "error": "1 of 2 documents failed", "count": 2, "failed": 1,
        "entries": [{"ok": True, "bytes": 1000, "type": "text/plain", "url": good,
                     "file": f"{folder}/good", "reason": "", "httpStatus": 200},
                    {"ok": False, "bytes": 0, "type": "", "url": bad, "file": "",
                     "reason": "404 no", "httpStatus": 404}]}
    result = json.loads(kestrova("--json", "fetch-all", good).stdout)
    assert "error" not in result and result["entries"][0]["file"] == ""


def test_in_a_shell(kestrova, documents):
    url = documents.add("a", b"x")
    run = kestrova("--minimal", "shell", input=f"fetch-all {url}; fetch {url}\n")
    assert (run.returncode, run.stdout) == (0, f"ok\t1\t-\t{url}\nx")
    run = kestrova("--minimal", "shell", input=f"fetch-all\n{url}\n")
    assert run.returncode == MISUSED and "in a shell, URLs are arguments" in run.stderr


def test_the_drive_is_left_alone(fake_drive, documents):
    run = fake_drive.formatted().run("fetch-all", documents.add("document", b"text"))
    assert run.returncode == 0 and run.stdout.startswith("ok\t4\t")
    assert not (fake_drive.state / "log").exists()  # no tool has run
