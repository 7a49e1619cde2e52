# SPDX-License-Identifier: MIT
"""kestrova-box-tools in an image without a package manager, without root permissions."""

import os
import pathlib
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMMAND = ROOT / "packaging" / "kestrova-box-tools"
TOOLS = ["mkfs.xfs", "sfdisk"]
ADAPTERS = "usr/lib/kestrova/box-tools"
REAL = "usr/lib/kestrova/tools"


def call(*arguments):
    return subprocess.run([COMMAND, *arguments], capture_output=True, text=True, check=False)


def content(image):
    """Returns every path below with its bytes, or its link target."""
    return {str(path.relative_to(image)):
            str(path.readlink()) if path.is_symlink() else
            path.read_bytes() if path.is_file() else None for path in image.rglob("*")}


def states(image):
    shown = call("status", "--root", image)
    assert shown.returncode == 0, shown.stderr
    return dict(line.split(": ") for line in shown.stdout.splitlines())


def refused(image, command, reason):
    """Expects that the command fails for the reason, and that the image is unchanged."""
    before = content(image)
    done = call(command, "--root", image)
    assert done.returncode == 1
    assert reason in done.stderr
    assert content(image) == before


@pytest.fixture
def image(tmp_path):
    image = tmp_path / "image"
    shutil.copytree(ROOT / "box" / "tools", image / ADAPTERS)
    (image / "sbin").mkdir()
    for name in TOOLS:
        shutil.copy("/bin/true", image / "sbin" / name)
    return image


def test_enabling_puts_the_adapters_in_place_and_disabling_undoes_it(image):
    before = content(image)
    assert states(image) == dict.fromkeys(TOOLS, "disabled")

    assert call("enable", "--root", image).returncode == 0
    assert states(image) == dict.fromkeys(TOOLS, "enabled")
    for name in TOOLS:
        assert os.readlink(image / "sbin" / name) == f"/{ADAPTERS}/{name}"
        assert (image / REAL / name).read_bytes() == before[f"sbin/{name}"]

    assert call("disable", "--root", image).returncode == 0
    assert content(image) == before


@pytest.mark.parametrize("command", ["enable", "disable"])
def test_a_second_time_changes_nothing(image, command):
    assert call(command, "--root", image).returncode == 0
    once = content(image)
    assert call(command, "--root", image).returncode == 0
    assert content(image) == once


@pytest.mark.parametrize("command,state", [("enable", "enabled"), ("disable", "disabled")])
def test_both_go_on_where_enabling_was_cut_off(image, command, state):
    (image / REAL).mkdir()
    (image / "sbin/sfdisk").rename(image / REAL / "sfdisk")
    assert states(image) == {"mkfs.xfs": "disabled", "sfdisk": "interrupted"}
    assert call(command, "--root", image).returncode == 0
    assert states(image) == dict.fromkeys(TOOLS, state)


def test_it_refuses_where_a_tool_is_missing(image):
    (image / "sbin/mkfs.xfs").unlink()
    refused(image, "enable", "sbin/mkfs.xfs: not there")


def test_it_refuses_where_the_adapters_are_missing(image):
    (image / ADAPTERS / "sfdisk").unlink()
    refused(image, "enable", "install this package in the image first")


@pytest.mark.parametrize("replace", [
    lambda tool: shutil.copy(ROOT / "box" / "tools" / tool.name, tool),
    lambda tool: tool.symlink_to("busybox"),
    lambda tool: tool.mkdir(),
], ids=["adapter-by-hand", "link", "folder"])
def test_it_refuses_where_something_else_is_in_the_place_of_a_tool(image, replace):
    (image / "sbin/sfdisk").unlink()
    replace(image / "sbin/sfdisk")
    refused(image, "enable", "not a plain tool in its own place")
    untouched = content(image)
    assert call("disable", "--root", image).returncode == 0
    assert content(image) == untouched


@pytest.mark.parametrize("command", ["enable", "disable"])
def test_it_refuses_where_a_moved_tool_was_replaced(image, command):
    assert call("enable", "--root", image).returncode == 0
    (image / REAL / "sfdisk").unlink()
    (image / REAL / "sfdisk").symlink_to("elsewhere")
    refused(image, command, "changed by others since the adapter was put there")


@pytest.mark.parametrize("command", ["enable", "disable"])
def test_it_never_leaves_the_image(image, tmp_path, command):
    (image / "sbin").rename(tmp_path / "sbin-of-the-host")
    (image / "sbin").symlink_to(tmp_path / "sbin-of-the-host")
    host = content(tmp_path / "sbin-of-the-host")
    refused(image, command, "leads out of the image")
    assert content(tmp_path / "sbin-of-the-host") == host


def test_a_failure_halfway_leaves_all_as_before(image, tmp_path, monkeypatch):
    link = tmp_path / "ln"
    link.write_text('#!/bin/sh\ncase $* in *mkfs.xfs*) exit 1 ;; esac\nexec /bin/ln "$@"\n')
    link.chmod(0o755)
    monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")
    before = content(image)
    done = call("enable", "--root", image)
    assert done.returncode == 1
    assert "mkfs.xfs could not be replaced; all is as before" in done.stderr
    assert content(image) == before


def test_something_else_where_the_tool_would_go_is_refused(image):
    (image / REAL / "mkfs.xfs").mkdir(parents=True)
    refused(image, "enable", "sbin/mkfs.xfs: not a plain tool in its own place")


@pytest.mark.parametrize("arguments", [[], ["enabled"], ["enable", "--root"], ["status", "more"]])
def test_a_wrong_command_line_is_answered_with_the_usage(arguments):
    done = call(*arguments)
    assert done.returncode == 2
    assert done.stderr.startswith("usage: kestrova-box-tools")


def test_a_root_that_is_not_there_is_refused(tmp_path):
    done = call("enable", "--root", tmp_path / "none")
    assert done.returncode == 1
    assert "no such folder" in done.stderr
