# SPDX-License-Identifier: MIT
"""The package kestrova-box-tools on a small Debian system, from installation to removal."""

import os
import subprocess

import pytest

NAME = "kestrova-box-tools"
TOOLS = ["/sbin/mkfs.xfs", "/sbin/sfdisk"]


@pytest.fixture
def changed(packages, desktop):
    """A separate system with the package installed, for persistent changes."""
    desktop.install(packages.deb(NAME, "all"))
    return desktop


@pytest.fixture
def box_tools(packages, shared_desktop):
    """A system with the package installed; `before` is its state earlier, and again afterwards."""
    system = shared_desktop
    system.before = system.files()
    system.install(packages.deb(NAME, "all"))
    yield system
    system.check("dpkg", "--purge", NAME)
    assert system.files() == system.before


def diversions(system):
    return system.check("dpkg-divert", "--list", "*sfdisk", "*mkfs.xfs")


def old_style_table(system):
    """Returns the output of /sbin/sfdisk for a disk that it has partitioned with the old syntax."""
    disk = system.path / "srv/disk"
    disk.touch()
    os.truncate(disk, 64 << 20)
    system.check("sh", "-c", "printf ',16\\n;\\n' | /sbin/sfdisk -q -L -uM /srv/disk")
    shown = system.check("/sbin/sfdisk", "-d", "/srv/disk")
    disk.unlink()
    return shown


def test_installing_touches_no_tool(box_tools):
    now = box_tools.files()
    assert {path: now.get(path) for path in box_tools.before} == box_tools.before
    added = {path for path in now.keys() - box_tools.before.keys()
             if not (box_tools.path / path).is_dir()}
    assert all("kestrova" in path for path in added)
    assert diversions(box_tools) == ""
    assert "manipulate a disk partition table" in box_tools.check("/sbin/sfdisk", "--help")


def test_enabled_it_speaks_the_older_dialect_until_disabled(box_tools):
    installed = box_tools.files()
    box_tools.check(NAME, "enable")
    assert "size=    32768, Id=83" in old_style_table(box_tools)
    assert f"by {NAME}" in diversions(box_tools)

    box_tools.check(NAME, "disable")
    assert box_tools.files() == installed
    assert diversions(box_tools) == ""


@pytest.mark.parametrize("command", ["--remove", "--purge"])
def test_removed_while_enabled_it_puts_the_tools_back(box_tools, command):
    box_tools.check(NAME, "enable")
    box_tools.check("dpkg", command, NAME)
    assert box_tools.files() == box_tools.before
    assert diversions(box_tools) == ""


def test_installed_again_it_stays_enabled(packages, box_tools):
    box_tools.check(NAME, "enable")
    box_tools.install(packages.deb(NAME, "all"))
    assert box_tools.check(NAME, "status") == "sfdisk: enabled\nmkfs.xfs: enabled\n"


def test_an_update_of_a_tool_goes_behind_the_adapter(changed, tmp_path):
    package = tmp_path / "fdisk"
    (package / "DEBIAN").mkdir(parents=True)
    (package / "DEBIAN/control").write_text(
        "Package: fdisk\nVersion: 99\nArchitecture: amd64\nMaintainer: none <none@none.invalid>\n"
        "Description: an update\n")
    (package / "sbin").mkdir()
    (package / "sbin/sfdisk").write_text("the update\n")
    subprocess.run(["dpkg-deb", "--build", package], check=True, capture_output=True)

    changed.check(NAME, "enable")
    changed.install(tmp_path / "fdisk.deb")
    assert (changed.path / "sbin/sfdisk").is_symlink()
    changed.check(NAME, "disable")
    assert (changed.path / "sbin/sfdisk").read_text() == "the update\n"


def test_a_tool_that_others_divert_is_left_to_them(changed):
    changed.check("dpkg-divert", "--quiet", "--local", "--rename", "--divert",
                    "/sbin/sfdisk.real", "--add", "/sbin/sfdisk")
    (changed.path / "sbin/sfdisk").write_text("theirs\n")
    theirs = changed.files()

    refused = changed.run([NAME, "enable"], capture_output=True, text=True)
    assert refused.returncode == 1
    assert "diverted by others" in refused.stderr
    changed.check(NAME, "disable")
    assert changed.files() == theirs
    changed.check("dpkg", "--purge", NAME)
    assert (changed.path / "sbin/sfdisk").read_text() == "theirs\n"


def test_the_image_of_a_box_is_enabled_from_outside(box_tools, packages):
    """The host's command on an image with Debian's packages, as image makers use it."""
    command = box_tools.path / "usr/sbin" / NAME
    for asked, state in [("enable", "enabled"), ("disable", "disabled")]:
        subprocess.run([command, asked, "--root", box_tools.path], check=True)
        assert box_tools.check(NAME, "status") == f"sfdisk: {state}\nmkfs.xfs: {state}\n"
