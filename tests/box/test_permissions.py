# SPDX-License-Identifier: MIT
"""The permissions that the kernel and the tools require of a user who is not root: the table of
docs/integrating.md.

The user is in the group of the disks' nodes, and has the capabilities that a test names.
"""

import pytest

from box import image
from box.hardware import MIB, Disk
from box.machine import Box, product_files
from box.software import software_disk
from driveprobe import BUILD

FOLDER = "/tmp/setpriv"
USER = "65534"
GROUP = "6"
WIDE = "sys_admin,sys_rawio,dac_override"


@pytest.fixture(scope="module")
def box(box_image):
    if not (BUILD / "kestrova").exists():
        pytest.skip(f"{BUILD / 'kestrova'} is not built")
    root = image.BUILD / "root"
    library = next(root.rglob("libcap-ng.so.0"))
    files = {root / "usr/bin/setpriv": f"{FOLDER}/setpriv",
             library.resolve(): f"{FOLDER}/libcap-ng.so.0"}
    with Box(disks=[Disk(size=1024 * MIB), software_disk()],
             files={**product_files(BUILD), **files}) as running:
        running.check("mkdir -p /dvr /boot-sw")
        yield running


def prepare(box):
    """A formatted drive with one partition, whose root directory belongs to root, and a boot variable."""
    box.check("kestrova drive partition --yes rest && kestrova drive format --yes &&"
              " kestrova vars set language en")


def allowed(box, command, capabilities=""):
    """Returns whether a command succeeds for the user."""
    names = ",".join("+" + name for name in capabilities.split(",") if name)
    extra = f"--inh-caps {names} --ambient-caps {names}" if names else ""
    box.check(f"chgrp {GROUP} /dev/sd* && chmod 660 /dev/sd*")
    result = box.run(f"LD_LIBRARY_PATH={FOLDER} {FOLDER}/setpriv --reuid {USER} --regid {USER}"
                     f" --groups {GROUP} {extra} {command}")
    assert result.status < 126, result.text
    return result.status == 0


@pytest.mark.parametrize("command", ["drive info", "table", "run true", "serial count"])
def test_needs_nothing_more(box, command):
    assert allowed(box, f"kestrova {command}")


@pytest.mark.parametrize("command, least", [
    ("kestrova drive partition --yes 500 rest", "sys_admin,dac_override"),
    ("kestrova drive format --yes", "sys_admin,dac_override"),
    ("hdparm -S24 /dev/sda", "sys_rawio"),
    ("kestrova vars list", "sys_admin,dac_override"),
    ("kestrova vars set greeting hello", "sys_admin,dac_override"),
])
def test_needs_these_capabilities_and_no_others(box, command, least):
    prepare(box)
    assert allowed(box, command, least)
    for left_out in least.split(","):
        prepare(box)
        others = ",".join(name for name in WIDE.split(",") if name != left_out)
        assert not allowed(box, command, others)


def test_todays_mount_looks_at_the_user(box):
    prepare(box)
    start = "kestrova shell -e 'drive start; drive stop'"
    assert not allowed(box, start, WIDE)
    # The mount command of busybox leaves the check to the kernel.
    box.check("mv /bin/mount /bin/mount.real && ln -s busybox /bin/mount")
    assert allowed(box, start, "sys_admin,dac_override")
    assert not allowed(box, start, "sys_rawio,dac_override")
    box.check("mv /bin/mount.real /bin/mount")
