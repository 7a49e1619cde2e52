# SPDX-License-Identifier: MIT
"""The boot variables in a plain file, as an image is built with, and several of them at once."""

import fcntl
import json
import os
import shutil
import subprocess
import threading

import pytest

from bootpartition import image, parse, record

GOOD = image(record(b"a", b"1"), record(b"b", b"two words"))
OLDER = image(record(b"a", b"0"))


def done(run):
    assert (run.returncode, run.stderr) == (0, ""), run
    return run.stdout


def failed(run, status, words):
    assert run.returncode == status and words in run.stderr and run.stdout == "", run


@pytest.fixture(name="env")
def env_fixture(tmp_path):
    return tmp_path / "env"


@pytest.fixture(name="run")
def run_fixture(kestrova, env):
    """Runs a command of the group on the file."""
    return lambda *words, **options: kestrova("vars", "--file", env, *words, **options)


def test_from_nothing_to_an_image(run, env):
    assert done(run("create")) == ""
    assert env.read_bytes() == image()
    assert done(run("set", "a", "1")) == ""
    assert done(run("import", "-", input="# for the image\nb=two words\nc=x\\\ny\n")) == ""
    assert env.read_bytes() == image(record(b"a", b"1"), record(b"b", b"two words"),
                                     record(b"c", b"x\ny"))
    assert done(run("list")) == "a=1\nb=two words\nc=x\\x0ay\n"
    assert done(run("get", "b")) == "two words\n"
    assert done(run("export")) == "a=1\nb=two words\nc=x\\\ny\n"
    assert done(run("clear", "c")) == ""
    assert env.read_bytes() == GOOD
    assert sorted(path.name for path in env.parent.iterdir()) == ["env", "env.bkp"]


def test_the_option_stands_before_or_after_the_command(kestrova, env):
    env.write_bytes(GOOD)
    for words in [["vars", "--file", env, "get", "a"], ["vars", "get", "--file", env, "a"],
                  ["vars", "get", "a", f"--file={env}"]]:
        assert done(kestrova(*words)) == "1\n"
    assert done(kestrova("shell", "-e", f"vars --file {env} get a")) == "1\n"


def test_several_in_one_rewrite(run, env):
    env.write_bytes(GOOD)
    assert json.loads(done(run("--json", "set", "a", "", "c", "3"))) == {
        "command": "vars set", "name": "a", "names": ["a", "c"]}
    assert parse(env.read_bytes()) == {b"b": b"two words", b"c": b"3"}
    assert env.with_name("env.bkp").read_bytes() == GOOD
    failed(run("set", "x", "1", "y"), 2, "NAME 'y' has no VALUE")
    failed(run("set", "x", "1", "y=z", "2"), 2, "NAME 'y=z' holds '='")
    assert parse(env.read_bytes()) == {b"b": b"two words", b"c": b"3"}


def test_binary(run, env, tmp_path):
    env.write_bytes(GOOD)
    bytes_ = bytes(range(256))
    (tmp_path / "bytes").write_bytes(bytes_)
    done(run("set-binary", "k", tmp_path / "bytes"))
    found = run("get-binary", "k", text=False, input=b"")
    assert (found.returncode, found.stdout) == (0, bytes_)
    assert json.loads(done(run("get-binary", "k", "--json")))["length"] == 256
    failed(run("get-binary", "b"), 1, "'b' is not binary")
    failed(run("get-binary", "none"), 3, "no variable 'none'")


def test_create_replaces_only_when_it_is_told(run, env):
    env.write_bytes(b"damaged")
    failed(run("create"), 1, f"{env}: File exists; --replace replaces it")
    assert env.read_bytes() == b"damaged"
    env.with_name("env.bkp").write_bytes(OLDER)
    assert json.loads(done(run("create", "--replace", "--json"))) == {
        "command": "vars create", "file": str(env)}
    assert env.read_bytes() == image()
    assert not env.with_name("env.bkp").exists()


@pytest.mark.parametrize("primary,backup,status,state,text", [
    (GOOD, None, 0, "good", "env: good, 2 variables\n"),
    (GOOD, OLDER, 0, "good", "env: good, 2 variables\n.*env.bkp: good, 1 variable\n"),
    (GOOD, b"x", 0, "good", "env.bkp: bad, 0 variables\n"),
    (b"x", OLDER, 1, "backup", "env: bad, 0 variables\n.*env.bkp: good, 1 variable\n"),
    (None, OLDER, 1, "backup", "env.bkp: good, 1 variable\n"),
    (b"x", b"x", 1, "damaged", "env: bad, 0 variables\n.*env.bkp: bad, 0 variables\n"),
    (b"x", None, 1, "damaged", "env: bad, 0 variables\n"),
    (None, None, 3, "missing", ""),
])
def test_verify(run, env, primary, backup, status, state, text):
    for path, content in [(env, primary), (env.with_name("env.bkp"), backup)]:
        if content is not None:
            path.write_bytes(content)
    found = run("verify")
    assert found.returncode == status, found
    at = 0
    for part in text.split(".*"):
        at = found.stdout.index(part, at)
    document = json.loads(run("verify", "--json").stdout)
    assert document["state"] == state
    assert ("backup" in document) == (backup is not None)
    assert ("error" in document) == (status != 0)


def test_verify_takes_one_file(run, env):
    env.write_bytes(GOOD)
    failed(run("verify", "other"), 2, "unexpected argument")


@pytest.mark.parametrize("content,status,words", [
    (None, 3, "'vars create' makes it"), (b"damaged", 1, "there is no backup"),
    (GOOD, 3, "no variable 'none'")])
def test_get_without(run, env, content, status, words):
    if content is not None:
        env.write_bytes(content)
    failed(run("get", "none"), status, words)


def test_a_change_needs_a_valid_file(run, env):
    failed(run("set", "a", "1"), 3, "'vars create' makes it")
    assert not env.exists()
    env.write_bytes(b"damaged")
    failed(run("set", "a", "1"), 1, "shorter than its header")
    failed(run("import", "-", input="a=1"), 1, "shorter than its header")
    assert env.read_bytes() == b"damaged"
    env.with_name("env.bkp").write_bytes(OLDER)
    done(run("set", "b", "2"))
    assert parse(env.read_bytes()) == {b"a": b"0", b"b": b"2"}
    assert env.with_name("env.bkp").read_bytes() == OLDER


def test_size(run, env):
    done(run("create", "--size", "20"))
    failed(run("set", "--size", "20", "a", "12345"), 1, "need more than 20 bytes")
    done(run("set", "--size", "20", "a", "1234"))
    assert len(env.read_bytes()) == 20
    done(run("set", "a", "12345"))
    assert done(run("list", "--size", "20")) == "a=1234\n"  # the backup, which is not too large
    env.with_name("env.bkp").unlink()
    failed(run("list", "--size", "20"), 1, "larger than 20 bytes")
    for size, words in [("11", "11 is not from 12 to 65536"), ("65537", "65537"), ("x", "'x'")]:
        failed(run("list", "--size", size), 2, words)


def test_misuse(kestrova):
    failed(kestrova("vars", "create"), 2, "--file ENVFILE is needed")
    failed(kestrova("vars", "list", "--size", "100"), 2, "--size goes with --file")
    failed(kestrova("vars", "list", "--file", ""), 2, "empty")
    failed(kestrova("table", "--file", "x"), 2, "unknown option")


@pytest.mark.parametrize("text,words", [
    ("a=2\nb\n", "line 2: there is no '='"), ("a=2\n=1", "line 2: the name is empty"),
    ("a=2\nb=1\\", "line 2: nothing follows the backslash"), ("a=2\nb=\0", "line 2: the value holds"),
    ("a=2\nb=" + 65520 * "v", "need more than 65536 bytes"),
    ((1 << 20) * "#" + "\n", "is longer than 1048576 bytes")],
    ids=["no sign", "no name", "no end", "NUL", "too much", "too long"])
def test_a_bad_text_changes_nothing(run, env, tmp_path, text, words):
    env.write_bytes(GOOD)
    (tmp_path / "text").write_text(text)
    failed(run("import", tmp_path / "text"), 1, words)
    assert env.read_bytes() == GOOD


def test_a_text_that_is_not_there(run, env, tmp_path):
    env.write_bytes(GOOD)
    failed(run("import", tmp_path / "none"), 1, "No such file")
    failed(run("import", tmp_path), 1, "directory")


def test_standard_input_of_a_shell_holds_commands(kestrova, env):
    env.write_bytes(GOOD)
    run = kestrova("shell", input=f"vars --file {env} import -\na=5\n")
    assert "standard input holds the commands" in run.stderr
    assert env.read_bytes() == GOOD


def test_what_a_text_cannot_hold(run, env):
    env.write_bytes(image(record(b"#a", b"1")))
    failed(run("export"), 1, "variable \"#a\": the name starts with '#'")


def test_writers_take_turns(run, env):
    env.write_bytes(image())
    threads = [threading.Thread(target=lambda name=name: done(run("set", name, "1")))
               for name in "abcdefgh"]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert "".join(done(run("list")).split()) == "".join(f"{name}=1" for name in "abcdefgh")


def test_a_writer_that_never_ends(run, env):
    env.write_bytes(GOOD)
    directory = os.open(env.parent, os.O_RDONLY | os.O_DIRECTORY)
    try:
        fcntl.flock(directory, fcntl.LOCK_EX)
        failed(run("set", "a", "2"), 7, f"{env.parent}: locked by another process")
        assert done(run("get", "a")) == "1\n"
    finally:
        os.close(directory)


def test_without_rights_on_the_box(command, env):
    """Neither a lock of the box nor root is needed, but the rights of the file's directory are."""
    if os.geteuid() != 0 or shutil.which("setpriv") is None:
        pytest.skip("needs root, and setpriv to give it up")
    place = env.parent
    env.write_bytes(GOOD)
    for folder in [place, *place.parents[:3]]:
        folder.chmod(folder.stat().st_mode | 0o055)

    def run(*words):
        words = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", command, "vars",
                 "--file", env, *words]
        return subprocess.run(words, capture_output=True, text=True, timeout=60, check=False)

    if subprocess.run(["setpriv", "--reuid=65534", "--clear-groups", command, "--version"],
                      capture_output=True, check=False).returncode != 0:
        pytest.skip("another user can't run the build")
    assert done(run("get", "a")) == "1\n"
    failed(run("set", "a", "2"), 1, "env.tmp: Permission denied")
    os.chown(place, 65534, 65534)
    done(run("set", "a", "2"))
    assert parse(env.read_bytes())[b"a"] == b"2"


def test_several_on_the_box(boot_partition):
    boot_partition.put("boot_env", GOOD)
    assert done(boot_partition.run("vars", "set", "a", "", "c", "3")) == ""
    assert boot_partition.variables() == {b"b": b"two words", b"c": b"3"}
    assert boot_partition.get("boot_env.bkp") == GOOD


def test_import_and_export_on_the_box(boot_partition):
    boot_partition.put("boot_env", GOOD)
    (boot_partition.state / "text").write_text("b=\nc=3\nd=x\\\ny\n")
    assert done(boot_partition.run("vars", "import", "/state/text")) == ""
    assert boot_partition.get("boot_env.bkp") == GOOD
    assert done(boot_partition.run("vars", "export")) == "a=1\nc=3\nd=x\\\ny\n"
    (boot_partition.state / "text").write_text("a=2\nbad\n")
    before = boot_partition.get("boot_env")
    failed(boot_partition.run("vars", "import", "/state/text"), 1, "line 2: there is no '='")
    assert boot_partition.get("boot_env") == before


def test_the_box_reads_what_the_host_has_made(run, env, boot_partition):
    done(run("create"))
    done(run("set", "a", "1", "b", "2"))
    boot_partition.put("boot_env", env.read_bytes())
    assert done(boot_partition.run("vars", "list")) == "a=1\nb=2\n"
    done(boot_partition.run("vars", "set", "a", "1"))
    assert boot_partition.get("boot_env") == env.read_bytes()
