# SPDX-License-Identifier: MIT
"""A new user's first day: only the 32-bit packages, on the virtual box."""

import json
import shutil
import subprocess

import pytest

# After the tests' conftest has put the project's directories on the path.
import project
from box import image
from box.hardware import MIB, Disk
from box.machine import Box
from box.packages import PackageError
from box.software import software_disk


@pytest.fixture(scope="module")
def box(packages, tmp_path_factory):
    """A box with the contents of the library's and the command's package, and no other build."""
    if shutil.which("qemu-system-i386") is None:
        pytest.skip("the virtual box needs qemu-system-i386")
    try:
        image.build()
    except PackageError as error:
        pytest.skip(f"the virtual box's packages can't be had: {error}")
    folder = tmp_path_factory.mktemp("unpacked")
    for name in ("libkestrova-system1", "kestrova-tools"):
        subprocess.run(["dpkg-deb", "-x", packages.deb(name, "i386"), folder], check=True)
    with Box(disks=[Disk(size=1024 * MIB), software_disk()],
             files={folder / "usr": "/usr"}) as running:
        yield running


def test_the_command_finds_the_library_and_tells_what_it_can(box):
    assert box.check("kestrova --version") == f"kestrova {project.version()}"
    assert "drive format" in box.check("kestrova --help")
    loaded = box.check("LD_TRACE_LOADED_OBJECTS=1 kestrova")
    assert "/usr/lib/i386-linux-gnu/libkestrova-system.so.1 " in loaded


def test_a_bare_drive_becomes_a_recording_drive(box):
    assert "'drive partition' comes next" in box.check("kestrova drive status")
    box.check("kestrova drive partition 600 rest --yes")
    assert "'drive format' comes next" in box.check("kestrova drive status")
    box.check("kestrova drive format --yes")
    box.check("kestrova shell -e 'drive start; run \"echo film >/dvr/film\"; drive stop'")
    status = json.loads(box.check("kestrova --json drive status"))
    assert (status["command"], status["status"]) == ("drive status", "ready")
    box.check("mount -t xfs -o ro /dev/sda1 /mnt")
    try:
        assert box.check("cat /mnt/film") == "film"
    finally:
        box.check("umount /mnt")


def test_a_setting_is_kept(box):
    absent = box.run("kestrova vars get language")
    assert (absent.status, absent.stdout) == (3, b"")
    box.check("kestrova vars set language deutsch")
    assert box.check("kestrova vars get language") == "deutsch"


def test_what_is_mistyped_is_told(box):
    misused = box.run("kestrova fromat")
    assert misused.status == 2
    assert misused.stderr == b"kestrova: unknown command 'fromat'; do you mean 'drive format'?\n"
