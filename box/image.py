#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Builds the box's kernel and first root from Debian's i386 packages."""

import dataclasses
import fcntl
import hashlib
import os
import pathlib
import re
import subprocess
import sys

if __name__ == "__main__":
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from box import packages
from box.cpio import Archive
from box.errors import BoxError

HERE = pathlib.Path(__file__).resolve().parent
BUILD = HERE.parent / "build" / "box"
# The same file that the packages for images install.
BY_PATH = HERE.parent / "packaging" / "start" / "by-path"

# The code that decides what the image holds.
BUILDERS = [HERE / name for name in ("image.py", "cpio.py", "packages.py")]

# Where the adapters find today's tools (the default of their TOOLS variable).
REAL_TOOLS = "/usr/lib/kestrova/tools"

# Today's tools that are driven as they are, at the paths where the library looks.
TOOLS = """
/bin/mount /bin/umount /bin/lsblk /bin/findmnt /sbin/blkid /sbin/blockdev /sbin/losetup
/sbin/mke2fs /sbin/mkfs.ext2 /sbin/mkfs.ext3 /sbin/mkfs.ext4 /sbin/e2fsck /sbin/fsck.ext2
/sbin/fsck.ext3 /sbin/fsck.ext4 /sbin/debugfs /sbin/dumpe2fs /sbin/tune2fs /sbin/e2label
/sbin/xfs_repair /usr/sbin/xfs_db /usr/sbin/xfs_io /usr/sbin/xfs_quota /sbin/hdparm
/sbin/wipefs
""".split()

# Today's tools that stand behind an adapter.
ADAPTED = ["sfdisk", "mkfs.xfs"]

# Opened by name at run time, so that no tool's list of needed libraries shows them.
LIBRARIES = ["libgcc_s.so.1", "libstdc++.so.6", "libm.so.6", "libpthread.so.0",
             "libdl.so.2", "librt.so.1"]

# Loaded in this order. The ATA driver comes first: its disk is to be /dev/sda.
MODULES = """virtio_pci virtio_console 9pnet_virtio 9p sd_mod ata_piix sym53c8xx
crc32c_generic ext4 xfs loop e1000""".split()
MODULE_OPTIONS = {"sym53c8xx": "settle=0"}  # else each bus reset waits three seconds
# needs an instruction that the emulated processors lack
UNLOADABLE = {"crc32c-intel"}

LIBRARY_FOLDERS = ["lib/i386-linux-gnu", "usr/lib/i386-linux-gnu", "lib", "usr/lib"]
FOLDERS = ["usr/bin", "usr/sbin", "dev", "proc", "sys", "run", "root", "mnt", "media", "var/log",
           "dvr", "settings", "boot-sw", "host"]


class ImageError(BoxError):
    """The image can't be built from what is there."""


@dataclasses.dataclass(frozen=True)
class Image:
    """What QEMU boots."""
    kernel: pathlib.Path
    initrd: pathlib.Path


def _needed(elf):
    text = subprocess.run(["readelf", "-d", elf], capture_output=True, text=True,
                          check=True).stdout
    return re.findall(r"\(NEEDED\).*\[(.+)\]", text)


def _library(root, name):
    for folder in LIBRARY_FOLDERS:
        path = root / folder / name
        if path.exists():
            return path
    raise ImageError(f"no package in box/packages.txt holds the library {name}")


def _add_libraries(archive, root, names):
    """Adds the named libraries and all that those need."""
    waiting, done = list(names), set()
    while waiting:
        name = waiting.pop()
        if name in done:
            continue
        done.add(name)
        path = _library(root, name)
        waiting += _needed(path)
        archive.host(path, str(path.relative_to(root)))


def _add_tools(archive, root):
    """Adds tools and adapters; returns the names of the libraries that they need."""
    needed = set(LIBRARIES)
    for path in TOOLS:
        archive.host(root / path[1:], path)
        needed.update(_needed(root / path[1:]))
    for name in ADAPTED:
        archive.host(root / "sbin" / name, f"{REAL_TOOLS}/{name}")
        archive.host(HERE / "tools" / name, f"/sbin/{name}")
        needed.update(_needed(root / "sbin" / name))
    return needed


def _busybox(package):
    """The program of one of the two packages, which use the same path."""
    deb = next((BUILD / "debs").glob(f"{package}_*.deb"))
    tar = subprocess.run(["dpkg-deb", "--fsys-tarfile", deb], capture_output=True, check=True)
    return subprocess.run(["tar", "-xO", "./bin/busybox"], input=tar.stdout,
                          capture_output=True, check=True).stdout


def _add_busybox(archive):
    # The static one prefers its own applets to the tools in the path, so it serves the
    # start alone, where it saves half a second; every shell after that is the dynamic one.
    archive.file("/usr/lib/box/busybox", _busybox("busybox-static"), 0o755)
    archive.file("/bin/busybox", _busybox("busybox"), 0o755)
    archive.link("/bin/sh", "busybox")
    # where every program's header says that the loader is
    archive.link("/lib/ld-linux.so.2", "i386-linux-gnu/ld-linux.so.2")
    return ["libc.so.6", "libresolv.so.2"]


def _add_modules(archive, root):
    version = next((root / "lib" / "modules").iterdir()).name
    subprocess.run(["depmod", "-b", root, version], check=True)
    lines = []
    for module in MODULES:
        text = subprocess.run(["modprobe", "-d", root, "-S", version, "--show-depends", module],
                              capture_output=True, text=True, check=True).stdout
        for path in re.findall(r"^insmod (\S+)", text, re.MULTILINE):
            name = pathlib.Path(path).stem
            line = f"/lib/modules/{name}.ko {MODULE_OPTIONS.get(name, '')}".strip()
            if name in UNLOADABLE or line in lines:
                continue
            archive.host(path, f"/lib/modules/{name}.ko")
            lines.append(line)
    archive.file("/lib/modules/order", ("\n".join(lines) + "\n").encode())
    return version


def _add_own_files(archive):
    for folder in FOLDERS:
        archive.directory(folder)
    archive.directory("tmp", 0o1777)
    archive.character_device("/dev/console", 5, 1)
    archive.host(HERE / "guest" / "init", "/init")
    for path in (HERE / "guest" / "agent", BY_PATH):
        archive.host(path, f"/usr/lib/box/{path.name}")
    archive.link("/etc/mtab", "/proc/self/mounts")
    for name, text in {
            "passwd": "root::0:0:root:/root:/bin/sh\nnobody:*:65534:65534:nobody:/:/bin/false\n",
            "group": "root:x:0:\ntty:x:5:\ndisk:x:6:\nnogroup:x:65534:\n",
            "hostname": "box\n",
            "hosts": "127.0.0.1 localhost box\n",
            "nsswitch.conf": "passwd: files\ngroup: files\nhosts: files dns\n"}.items():
        archive.file(f"/etc/{name}", text.encode())


def _inputs_key():
    """Changes whenever the image has to be built anew."""
    digest = hashlib.sha256()
    for path in sorted([*BUILDERS, packages.LIST, BY_PATH, *(HERE / "guest").iterdir(),
                        *(HERE / "tools").iterdir()]):
        digest.update(str(path).encode() + path.read_bytes())
    return digest.hexdigest()


def _build(folder):
    """Writes what QEMU boots into a folder."""
    root = packages.fetch(BUILD)
    archive = Archive()
    _add_own_files(archive)
    _add_libraries(archive, root, [*_add_tools(archive, root), *_add_busybox(archive)])
    version = _add_modules(archive, root)
    (folder / "base.cpio").write_bytes(archive.bytes())
    (folder / "vmlinuz").write_bytes((root / "boot" / f"vmlinuz-{version}").read_bytes())


def build():
    """Returns the box's Image, made anew only when what it is made of has changed."""
    fresh, stamp, key = BUILD / "new", BUILD / "image.stamp", _inputs_key()
    fresh.mkdir(parents=True, exist_ok=True)
    with open(BUILD / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not stamp.is_file() or stamp.read_text() != key:
            stamp.unlink(missing_ok=True)
            _build(fresh)
            # a box that starts meanwhile reads the old files whole
            for path in fresh.iterdir():
                os.replace(path, BUILD / path.name)
            stamp.write_text(key)
    return Image(BUILD / "vmlinuz", BUILD / "base.cpio")


if __name__ == "__main__":
    print(build().initrd)
