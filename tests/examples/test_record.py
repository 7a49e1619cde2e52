# SPDX-License-Identifier: MIT
"""The example that records, without a drive. The virtual box tests it with one."""

import os

import pytest


def test_tells_that_there_is_no_drive(example):
    if os.path.exists("/dev/sda"):
        pytest.skip("this machine has a /dev/sda of its own")
    if os.geteuid() != 0:
        pytest.skip("only root can take the drive's lock")
    run = example("record", "film", 1)
    assert (run.returncode, run.stdout) == (1, "")
    assert run.stderr.endswith("record: there is no recording drive\n")


@pytest.mark.parametrize("arguments", [[], ["film"], ["film", "0"], ["film", "many"]])
def test_wants_a_name_and_a_size(example, arguments):
    run = example("record", *arguments)
    assert (run.returncode, run.stderr) == (2, "usage: record NAME MEGABYTES\n")
