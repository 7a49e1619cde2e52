# SPDX-License-Identifier: MIT
"""The lock of the boot variables, between real processes; see lockscenes.py for the scenes."""

import json
import pathlib
import shutil

import pytest

import documentschema
import lockscenes

SCENES = ["busy_names_the_holder", "a_shell_holds_the_lock_for_each_command",
          "waiting_ends_after_its_time", "waiting_ends_when_the_lock_is_free",
          "signals_end_a_wait", "concurrent_settings_are_all_kept",
          "two_settings_at_once_are_stored_or_refused", "readers_do_not_disturb_each_other",
          "a_shared_lock_admits_readers_only", "no_lock_file_means_no_change",
          "the_partition_is_absent", "a_killed_holder_is_no_obstacle"]
PROGRAM = pathlib.Path(lockscenes.__file__)


@pytest.mark.parametrize("scene", SCENES)
def test_scene(boot_partition, scene):
    shutil.copy(PROGRAM, boot_partition.state)
    run = boot_partition.run(program="kestrova", before=[
        "/usr/bin/python3", f"/state/{PROGRAM.name}", scene])
    assert run.returncode == 0, run.stderr
    if documentschema.jsonschema is not None:
        for line in run.stdout.splitlines():
            if line.startswith("{"):
                documentschema.validate(json.loads(line))


@pytest.mark.parametrize("value", ["", "-1", "x", "1.5", "86401", "99999999999999999999"])
def test_wait_takes_seconds(kestrova, value):
    run = kestrova("vars", "set", "--wait", value, "a", "1")
    assert run.returncode == 2 and "is not a number from 0 to 86400" in run.stderr


def test_wait_is_for_commands_with_a_lock(kestrova):
    for words in [["table"], ["vars", "verify", "/dev/null"], ["run", "true"]]:
        run = kestrova(*words, "--wait", "1")
        assert run.returncode == 2 and "unknown option '--wait'" in run.stderr
