# SPDX-License-Identifier: MIT
"""The boot variables, on a real file system."""

import base64
import json

import pytest

from bootpartition import image, parse, record

BINARY = bytes(range(256))
NONE = "there is no variable 'none'"
DAMAGED = image(record(b"a", b"1"), crc=0)


def done(run):
    assert (run.returncode, run.stderr) == (0, ""), run
    return run.stdout


def document(run, status=0):
    assert run.returncode == status and run.stdout.count("\n") == 1, run
    return json.loads(run.stdout)


@pytest.fixture
def filled(boot_partition):
    boot_partition.put("boot_env", image(record(b"a", b"1"), record(b"b", b"two words")))
    return boot_partition


def test_list_and_get(filled):
    assert done(filled.run("vars", "list")) == "a=1\nb=two words\n"
    assert done(filled.run("vars", "get", "b")) == "two words\n"


def test_list_and_get_as_json(filled):
    assert document(filled.run("vars", "list", "--json")) == {
        "command": "vars list",
        "variables": [{"name": "a", "value": "1"}, {"name": "b", "value": "two words"}]}
    assert document(filled.run("--json", "vars", "get", "a")) == {
        "command": "vars get", "name": "a", "value": "1"}


def test_set_and_clear(boot_partition):
    for arguments in [["set", "a", "1"], ["set", "b", "2"], ["set", "a", "3"], ["set", "c", ""]]:
        assert done(boot_partition.run("vars", *arguments)) == ""
    assert boot_partition.variables() == {b"a": b"3", b"b": b"2"}
    assert parse(boot_partition.get("boot_env.bkp")) == {b"a": b"3", b"b": b"2"}
    assert done(boot_partition.run("vars", "clear", "a")) == ""
    assert done(boot_partition.run("vars", "clear", "none")) == ""
    assert boot_partition.variables() == {b"b": b"2"}
    assert document(boot_partition.run("--json", "vars", "set", "--", "-x", "-1")) == {
        "command": "vars set", "name": "-x"}
    assert boot_partition.variables() == {b"-x": b"-1", b"b": b"2"}


def test_binary(boot_partition):
    (boot_partition.state / "bytes").write_bytes(BINARY)
    done(boot_partition.run("vars", "set-binary", "k", "/state/bytes"))
    assert boot_partition.variables() == {b"k": base64.b64encode(BINARY)}
    run = boot_partition.run("vars", "get-binary", "k", text=False, input=b"")
    assert (run.returncode, run.stdout) == (0, BINARY)
    assert document(boot_partition.run("vars", "get-binary", "k", "--json")) == {
        "command": "vars get-binary", "name": "k", "length": 256,
        "base64": base64.b64encode(BINARY).decode()}


def test_not_binary(filled):
    run = filled.run("vars", "get-binary", "a")
    assert run.returncode == 1 and run.stdout == "" and "'a' is not binary" in run.stderr
    assert filled.run("vars", "get-binary", "none").returncode == 3


@pytest.mark.parametrize("file,words", [("/state/absent", "No such file"), ("/", "directory"),
                                        ("/dev/null", "is empty")])
def test_set_binary_from_no_file(filled, file, words):
    before = filled.get("boot_env")
    run = filled.run("vars", "set-binary", "a", file)
    assert run.returncode == 1 and words in run.stderr
    assert filled.get("boot_env") == before


def test_values_keep_their_bytes_and_lists_keep_their_lines(boot_partition):
    boot_partition.put("boot_env", image(record(b"a", b"x\n\x1b\xff")))
    assert boot_partition.run("vars", "get", "a", text=False, input=b"").stdout == b"x\n\x1b\xff\n"
    assert done(boot_partition.run("vars", "list")) == "a=x\\x0a\\x1b\\xff\n"
    listed = document(boot_partition.run("vars", "list", "--json"))
    assert listed["variables"][0]["value"] == "x\n\x1b\u00ff"


def test_the_largest_value(boot_partition):
    value = b"v" * (65524 - 4)
    boot_partition.put("boot_env", image(record(b"a", value)))
    assert done(boot_partition.run("vars", "get", "a")) == value.decode() + "\n"


def test_too_much_is_refused(boot_partition):
    boot_partition.put("boot_env", image(record(b"a", b"v" * (65524 - 4))))
    before = boot_partition.get("boot_env")
    run = boot_partition.run("vars", "set", "b", "1")
    assert run.returncode == 1 and "could not be saved" in run.stderr
    assert boot_partition.get("boot_env") == before


@pytest.mark.parametrize("name", ["/dev/alias", None])
@pytest.mark.parametrize("mounted", ["", "ro", "rw"])
def test_absent_is_not_unreadable(boot_partition, mounted, name):
    """In every mount state, which the command restores."""
    options = {"mounted": mounted, **({"name": name} if name else {})}

    def outcome(primary, backup):
        for file, content in [("boot_env", primary), ("boot_env.bkp", backup)]:
            if content is not None:
                boot_partition.put(file, content)
        result = []
        for arguments in [["get", "none"], ["list"]]:
            run = boot_partition.run("vars", *arguments, **options)
            assert boot_partition.left() == mounted
            result += [run.returncode, run.stderr]
        return result

    status, error, listed, _ = outcome(None, None)
    assert (status, listed) == (3, 3) and "there is no boot environment yet" in error
    status, error, listed, _ = outcome(DAMAGED, None)
    assert (status, listed) == (1, 1)
    assert "boot_env: bad checksum" in error and "(offset 4); boot_env.bkp: No such file" in error
    status, error, listed, _ = outcome(DAMAGED, image()[:7])
    assert (status, listed) == (1, 1) and "header of 12 bytes (offset 7)" in error
    status, error, listed, complaint = outcome(DAMAGED, image())
    assert (status, listed, complaint) == (3, 0, "") and NONE in error
    status, error, listed, _ = outcome(DAMAGED, image(record(b"a", b"1")))
    assert (status, listed) == (3, 0) and NONE in error
    status, error, listed, _ = outcome(image(), None)
    assert (status, listed) == (3, 0) and NONE in error


def test_a_size_that_became_zero_is_no_empty_environment(boot_partition):
    boot_partition.put("boot_env", image(record(b"a", b"1"), size=0))
    run = boot_partition.run("vars", "get", "a")
    assert run.returncode == 1 and "bad size: 0" in run.stderr and "(offset 8)" in run.stderr


def test_no_partition(boot_partition):
    run = boot_partition.run("vars", "get", "a", hide=True)
    assert run.returncode == 1 and "-part1: No such file" in run.stderr
    assert boot_partition.run("vars", "set", "a", "1", hide=True).returncode == 1


def test_not_an_ext3(boot_partition):
    with open(boot_partition.loop, "r+b") as disk:
        disk.write(bytes(4096))
    for arguments in [["get", "a"], ["list"]]:
        run = boot_partition.run("--json", "vars", *arguments)
        assert "can't be mounted on /boot-sw" in document(run, 1)["error"]


def test_nobody_is_told_to_be_root(filled):
    before = ["/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    run = filled.run("vars", "list", before=before)
    assert run.returncode == 1 and "/run/lock/kestrova: Permission denied; run it as root" in run.stderr


def test_in_a_shell(filled):
    run = filled.run("shell", "-e", "vars set c 3; vars get c; vars get none; vars get a")
    assert (run.returncode, run.stdout) == (3, "3\n")


def test_the_librarys_words_stay_away_from_the_output(filled):
    run = filled.run("-v", "vars", "get", "a")
    assert run.stdout == "1\n" and "Path: /boot-sw//boot_env" in run.stderr
