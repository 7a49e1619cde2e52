# SPDX-License-Identifier: MIT
"""Boxes for the tests.

box        one default box for all tests of a module, with the library and the command
boot       a function that boots a separate box: boot(disks=[...], cpu=..., ...)
A machine that cannot run QEMU skips the tests that use one of them.
"""

import pathlib
import shutil
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))

# After the path has been set.
from box import image, packages  # noqa: E402
from box.hardware import Disk  # noqa: E402
from box.machine import Box, product_files  # noqa: E402
from box.software import software_disk  # noqa: E402

PROGRAMS = ["qemu-system-i386", "modprobe", "depmod", "readelf", "dpkg-deb", "apt-get", "setpriv"]


@pytest.fixture(scope="session")
def box_image():
    """Returns the built image; skips if there can be none."""
    missing = [name for name in PROGRAMS if shutil.which(name) is None]
    if missing:
        pytest.skip("the virtual box needs " + ", ".join(missing))
    try:
        return image.build()
    except packages.PackageError as error:
        pytest.skip(f"the virtual box's packages can't be had: {error}")


@pytest.fixture
def boot(box_image):
    """Returns a function that boots a Box with the product; the test's end stops it."""
    boxes = []

    def boot_box(disks=None, files=None, **options):
        box = Box(disks=disks, files={**product_files(), **(files or {})}, **options)
        boxes.append(box)
        return box.__enter__()

    yield boot_box
    for box in boxes:
        box.close()


@pytest.fixture(scope="module")
def box(box_image):
    """A box with a blank recording drive (/dev/sda) and the software disk (/dev/sdb)."""
    with Box(disks=[Disk(), software_disk()], files=product_files()) as running:
        yield running


@pytest.fixture(scope="session")
def compile_guest(tmp_path_factory):
    """Returns a function that compiles C source text to a 32-bit program and returns its path."""
    folder = tmp_path_factory.mktemp("guest")

    def compile_source(name, source):
        path = folder / name
        subprocess.run(["gcc", "-m32", "-O1", "-Wall", "-Werror", "-x", "c", "-o", path, "-"],
                       input=source, text=True, check=True)
        return path

    return compile_source
