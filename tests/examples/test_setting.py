# SPDX-License-Identifier: MIT
"""The example that keeps a setting, on a real file system in its own namespace."""

import pytest

import bootpartition


@pytest.fixture
def partition(examples, tmp_path):
    lacking = bootpartition.missing()
    if lacking:
        pytest.skip(f"the software partition's stand-in needs {lacking}")
    with bootpartition.BootPartition(examples.parent, tmp_path) as found:
        yield found


def setting(partition, *arguments, **options):
    return partition.run(*arguments, program="examples/setting", **options)


def test_tells_and_keeps(partition):
    assert setting(partition, "language").stdout == "language is not set\n"
    run = setting(partition, "language", "deutsch")
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout == 'language is not set\nsaved\nlanguage is "deutsch"\n'
    assert setting(partition, "language").stdout == 'language is "deutsch"\n'
    assert partition.variables() == {b"language": b"deutsch"}
    assert partition.left() == ""


def test_waits_for_its_turn(partition):
    """Three at a time, which 'before' starts in parallel with the tested one."""
    script = "for i in 1 2 3; do \"$1\" \"$2$i\" $i & done; wait; exec \"$1\" a1"
    run = setting(partition, "a", before=["/bin/sh", "-c", script, "sh"])
    assert run.returncode == 0 and run.stdout.endswith('a1 is "1"\n')
    assert partition.variables() == {b"a1": b"1", b"a2": b"2", b"a3": b"3"}


def test_tells_when_it_cannot_be_locked(partition):
    run = setting(partition, "a", "1", before=[
        "/bin/sh", "-c", "mount -t tmpfs -o ro lock /run/lock && exec \"$@\"", "sh"])
    assert (run.returncode, run.stdout) == (1, "")
    assert run.stderr == ("setting: the boot variables can't be locked: /run/lock/kestrova: "
                          "Read-only file system\n")


def test_removes(partition):
    assert setting(partition, "a", "1").returncode == 0
    assert setting(partition, "a", "").stdout == 'a is "1"\nsaved\na is not set\n'
    assert partition.variables() == {}


def test_tells_when_it_is_not_saved(partition):
    run = setting(partition, "a", "1", hide=True)
    assert run.returncode == 1 and "saved" not in run.stdout
    assert "setting: not saved\n" in run.stderr


def test_wants_a_name(example):
    assert example("setting").returncode == 2
