# SPDX-License-Identifier: MIT
"""Clean Debian systems in a folder, for building packages and for trying them.

Each kind is made once by mmdebstrap and kept as an archive; a Chroot is a copy of it that lasts as
long as it is used. What runs in it has mounts, processes and (no) network of its own, which the
kernel takes away with the last process: nothing is ever mounted where the host can see it.
"""

import contextlib
import dataclasses
import fcntl
import hashlib
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CACHE = ROOT / "build" / "chroots"
sys.path.insert(0, str(ROOT))

# The module's name is set after the path on purpose.
import project  # noqa: E402
from box.workspace import Workspace  # noqa: E402

SUITE = "bookworm"
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LC_ALL": "C.UTF-8"}


class ChrootError(Exception):
    """A clean system could not be had."""


@dataclasses.dataclass(frozen=True)
class Kind:
    """What a clean system holds. The first of the architectures is its own."""
    name: str
    variant: str
    architectures: tuple
    packages: tuple
    excluded: tuple = ()

    def arguments(self):
        return [f"--variant={self.variant}",
                "--architectures=" + ",".join(self.architectures),
                "--include=" + ",".join(self.packages),
                *(f"--dpkgopt=path-exclude={path}" for path in self.excluded)]


def build_kind(architecture):
    """Debian's usual place to build in, with what the packages need there, and pkg-config for their
    clients."""
    needed = project.control_names("Build-Depends") + ["pkg-config"]
    return Kind(f"build-{architecture}", "buildd", (architecture,), tuple(needed),
                # never used there, and half of it: every build unpacks the rest
                ("/usr/share/doc/*", "/usr/share/info/*", "/usr/share/locale/*",
                 "/usr/share/man/*", "/usr/lib/*/gconv/*", "/usr/lib/*/lib*san.*",
                 "/usr/lib/gcc/*/lib*san*", "/usr/lib/gcc/*/lto1", "/usr/bin/*lto-dump*"))


def trial_kind(architecture):
    """What autopkgtest asks for, and the needs of debian/tests and of the packages: no network can
    bring more."""
    return Kind(f"trial-{architecture}", "minbase", (architecture,),
                ("apt-utils", "cmake", "dpkg-dev", "g++", "make"),
                ("/usr/share/locale/*", "/usr/share/man/*", "/usr/lib/*/gconv/*",
                 "/usr/lib/gcc/*/lto1", "/usr/bin/*lto-dump*"))


def desktop_kind():
    """A small amd64 system that also takes i386 packages, with the tools behind the adapters."""
    return Kind("desktop", "essential", ("amd64", "i386"),
                ("fdisk", "xfsprogs", "libstdc++6:amd64", "libstdc++6:i386"),
                ("/usr/share/locale/*", "/usr/lib/*/gconv/*"))


def missing_rights():
    """Why no clean system can be made or entered here, or None."""
    if os.geteuid() != 0:
        return "only root can make and enter clean systems"
    tried = subprocess.run(["unshare", "--mount", "--pid", "--net", "--ipc", "--uts", "--fork",
                            "true"], capture_output=True, text=True, check=False)
    return f"no namespaces of one's own: {tried.stderr.strip()}" if tried.returncode else None


def _mirror():
    """The release as the host gets it. Its updates are left out: what a package depends on is the
    same, and one index less can break."""
    found = subprocess.run(
        ["apt-get", "indextargets", "--format", "$(REPO_URI)", "Created-By: Packages",
         "Origin: Debian", f"Codename: {SUITE}", "Component: main"],
        capture_output=True, text=True, check=False).stdout.split()
    return f"deb {found[0] if found else 'http://deb.debian.org/debian'} {SUITE} main"


def _proxy_options():
    dump = subprocess.run(["apt-config", "dump", "--no-empty"], capture_output=True, text=True,
                          check=True).stdout
    return [f"--aptopt={line}" for line in dump.splitlines()
            if line.startswith(("Acquire::http::", "Acquire::https::"))]


@contextlib.contextmanager
def only_one(path):
    """Holds off others that want the same; the lock ends with its process at the latest."""
    path.parent.mkdir(parents=True, exist_ok=True)
    with open(path, "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def archive(kind):
    """The archive of a kind, made when it is not there yet."""
    key = hashlib.sha256(" ".join([SUITE, *kind.arguments()]).encode()).hexdigest()[:12]
    path = CACHE / f"{kind.name}-{key}.tar"
    with only_one(CACHE / f"{kind.name}.lock"):
        if not path.is_file():
            for old in CACHE.glob(f"{kind.name}-*.tar"):
                old.unlink()
            _make(kind, path)
    return path


def _make(kind, path):
    print(f"Making a clean system: {kind.name}", file=sys.stderr, flush=True)
    # Not yet complete, it must not bear the name of the whole. The check is for emulators: an
    # amd64 kernel runs i386 programs itself.
    partial = path.with_suffix(".partial.tar")
    made = subprocess.run(["mmdebstrap", "--mode=root", "--skip=check/qemu", *_proxy_options(),
                           *kind.arguments(), SUITE, partial, _mirror()],
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    if made.returncode:
        raise ChrootError(f"mmdebstrap failed for {kind.name}:\n{made.stderr}")
    partial.rename(path)


class Chroot:
    """A clean system of a kind, to be changed at will; gone at the end of the with block."""

    def __init__(self, kind):
        source = archive(kind)
        self._workspace = Workspace()
        self.path = self._workspace.path / "root"
        self.path.mkdir()
        try:
            subprocess.run(["tar", "--numeric-owner", "-C", self.path, "-xf", source], check=True)
        except BaseException:
            self._workspace.remove()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._workspace.remove()

    def run(self, command, folder="/", environment=None, **options):
        """Runs a command in it as root, without a network. Options are subprocess.run's."""
        return subprocess.run(
            ["unshare", "--mount", "--pid", "--net", "--ipc", "--uts", "--fork", "--kill-child",
             f"--root={self.path}", f"--wd={folder}", "--mount-proc", *command],
            env={**ENVIRONMENT, **(environment or {})}, stdin=subprocess.DEVNULL, check=False,
            **options)
