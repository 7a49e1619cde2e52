# SPDX-License-Identifier: MIT
"""The built packages, and clean systems to test them in.

The systems need root permissions and namespaces; without those the tests that use them are skipped.
"""

import pathlib
import shutil
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "packaging"))

# After the path has been set.
import project  # noqa: E402
from chroot import Chroot, build_kind, desktop_kind, missing_rights, only_one  # noqa: E402


class Packages:
    """The packages built by script/package."""

    def __init__(self, folder):
        self.folder = folder

    def deb(self, name, architecture):
        return self.folder / f"{name}_{project.version()}-1_{architecture}.deb"

    def all(self):
        return sorted(path.name for path in self.folder.glob("*.deb"))


class System(Chroot):
    """A clean system whose commands must succeed."""

    def check(self, *command, folder="/"):
        done = self.run(command, folder=folder, capture_output=True, text=True)
        assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
        return done.stdout

    def install(self, *debs):
        """Without a network: a package's dependencies must be installed, or passed as well."""
        for deb in debs:
            shutil.copy(deb, self.path / "tmp")
        self.check("dpkg", "--install", *(f"/tmp/{deb.name}" for deb in debs))
        for deb in debs:
            (self.path / "tmp" / deb.name).unlink()

    def files(self):
        """Returns every path with data that shows a change; without the records of dpkg."""
        records = ("proc", "var/lib/dpkg", "var/log", "etc/ld.so.cache", "var/cache/ldconfig")
        found = {}
        for path in self.path.rglob("*"):
            name = str(path.relative_to(self.path))
            if name.startswith(records):
                continue
            status = path.lstat()
            if path.is_symlink():
                found[name] = str(path.readlink())
            elif path.is_dir():
                found[name] = status.st_mode
            else:
                found[name] = (status.st_mode, status.st_size, status.st_mtime_ns)
        return found


@pytest.fixture(scope="session")
def rights():
    reason = missing_rights()
    if reason:
        pytest.skip(reason)


@pytest.fixture(scope="session")
def packages(rights, testrun_uid):
    """Built once for all workers of a test run."""
    folder = ROOT / "build" / "packages"
    stamp = folder / "testrun"
    with only_one(ROOT / "build" / "packages.lock"):
        if not stamp.is_file() or stamp.read_text() != testrun_uid:
            built = subprocess.run([ROOT / "script" / "package"], stdin=subprocess.DEVNULL,
                                   capture_output=True, text=True, check=False)
            assert built.returncode == 0, built.stderr
            stamp.write_text(testrun_uid)
    return Packages(folder)


@pytest.fixture
def desktop(rights):
    with System(desktop_kind()) as system:
        yield system


@pytest.fixture(scope="module")
def shared_desktop(rights):
    """For tests that restore its state."""
    with System(desktop_kind()) as system:
        yield system


@pytest.fixture(params=["i386", "amd64"])
def builder(request, rights):
    """A system to build in; its architecture is its attribute."""
    with System(build_kind(request.param)) as system:
        system.architecture = request.param
        yield system
