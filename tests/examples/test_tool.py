# SPDX-License-Identifier: MIT
"""The example that runs a tool and reads its output."""


def test_numbers_the_lines(example):
    run = example("tool", "echo one; echo; printf 'no end'")
    assert run.stdout == "  1  one\n  2  \n  3  no end"
    assert (run.returncode, run.stderr) == (0, "tool: exit status 0\n")


def test_ends_as_the_tool_ended(example):
    assert example("tool", "echo to nobody >&2; exit 7").returncode == 7
    run = example("tool", "kill -TERM $$")
    assert (run.returncode, run.stderr) == (128 + 15, "tool: ended by signal 15\n")


def test_wants_a_command(example):
    assert example("tool").returncode == 2


def test_reads_more_than_a_pipe_holds(example):
    run = example("tool", "seq 100000")
    assert run.returncode == 0 and run.stdout.endswith("100000  100000\n")
