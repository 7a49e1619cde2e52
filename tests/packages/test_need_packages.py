# SPDX-License-Identifier: MIT
"""The installation of build dependencies (script/lib.sh), with stubs for Debian's tools."""

import pathlib
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOLS = {
    "dpkg-query": 'case $* in *" present") echo installed ;; *) exit 1 ;; esac',
    "apt-get": 'echo "$*" >>"$STATE/calls"\n'
               'case $* in\n'
               '    *" -s "*) cat "$STATE/plan" ;;\n'
               '    *install*) exit "$(cat "$STATE/status")" ;;\n'
               'esac',
    "sudo": '"$@"'}


@pytest.fixture
def need(tmp_path):
    """Runs need_packages with this result of the installation and apt-get's plan."""
    tools = tmp_path / "tools"
    tools.mkdir()
    for name, text in TOOLS.items():
        (tools / name).write_text(f"#!/bin/sh\n{text}\n")
        (tools / name).chmod(0o755)

    def run(*packages, status=0, plan=""):
        (tmp_path / "status").write_text(str(status))
        (tmp_path / "plan").write_text(plan)
        (tmp_path / "calls").write_text("")
        result = subprocess.run(
            ["bash", "-euc", '. "$0"; need_packages "$@"', ROOT / "script/lib.sh", *packages],
            env={"PATH": f"{tools}:/usr/bin:/bin", "STATE": str(tmp_path)}, capture_output=True,
            text=True, timeout=60, check=False)
        return result, (tmp_path / "calls").read_text().splitlines()

    return run


def test_what_is_there_is_left_alone(need):
    result, calls = need("present")
    assert (result.returncode, result.stderr, calls) == (0, "", [])


def test_nothing_is_ever_removed(need):
    result, calls = need("present", "one", "two")
    assert result.returncode == 0
    assert calls[-1] == "-q install -y --no-install-recommends --no-remove one two"


def test_a_conflict_is_explained(need):
    plan = "Remv libfoo-dev [1.0] (1.0 Debian:13 [i386])\nInst one (2.0)\nRemv bar [2] \n"
    result, calls = need("one", status=100, plan=plan)
    assert result.returncode == 1
    assert "could not be installed: one\n" in result.stderr
    assert "would remove packages of this machine: bar libfoo-dev\nNothing was removed." in \
        result.stderr
    assert [call for call in calls if "--no-remove" not in call and " -s " not in call] == [
        "-q update"]


def test_another_failure_is_no_conflict(need):
    result, _ = need("one", status=100, plan="Inst one (2.0)\n")
    assert result.returncode == 1 and "would remove" not in result.stderr
