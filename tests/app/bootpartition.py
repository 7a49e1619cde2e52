# SPDX-License-Identifier: MIT
"""A replacement for the software partition: a real ext3 file system on a loop device. A program runs
in its own mount namespace and root directory, in which the device has the name from the box's
table; all mounts end with the program. The benchmarks use it as well."""

import errno
import fcntl
import os
import pathlib
import shutil
import struct
import subprocess
import zlib

import documentschema

TIMEOUT = 60
MOUNT_POINT = "/boot-sw"
NODE = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0-part1"

# In a PID namespace: nothing that runs inside outlives the first process.
INSIDE = ["unshare", "--mount", "--pid", "--fork", "--kill-child"]

# $1 new root, $2 state, $3 the build's directory, $4 loop device, $5 "", "ro" or "rw", $6 the name
# for the mount; then the command line. Stores the mount state at its end.
ENTER = r"""
set -eu
root=$1 state=$2 product=$3 loop=$4 mode=$5 name=$6
shift 6
mount -t tmpfs -o mode=755 bootpartition "$root"
mkdir -p "$root/dev/disk/by-path" "$root/proc" "$root/usr" "$root/boot-sw" "$root/state" \
    "$root$product" "$root/run/lock" "$root/var"
ln -s /run/lock "$root/var/lock"
for link in bin sbin lib lib32 lib64 libx32; do
    if [ -L "/$link" ]; then cp -P "/$link" "$root/$link"; fi
done
mount --bind /usr "$root/usr"
mount -t proc proc "$root/proc"
mount --bind "$state" "$root/state"
mount --bind "$product" "$root$product"
mknod -m 666 "$root/dev/null" c 1 3
cp -a "$loop" "$root/dev/alias"
cp -a "$loop" "$root/dev/disk/node"
ln -s ../node "$root$NODE"
if [ -n "$mode" ]; then chroot "$root" /usr/bin/mount -t ext3 -o "$mode" "$name" /boot-sw; fi
if [ "${HIDE-}" ]; then rm "$root$NODE"; fi
status=0
chroot "$root" "$@" || status=$?
awk -v at="$root/boot-sw" '$2 == at { print substr($4, 1, 2) }' /proc/mounts >"$state/after"
exit "$status"
"""


def missing():
    """Returns what this machine lacks, or None."""
    for tool in ["unshare", "losetup", "mkfs.ext3"]:
        if shutil.which(tool) is None:
            return tool
    if os.geteuid() != 0 or not os.path.islink("/sbin"):
        return "root, and a Debian with one /usr"
    if subprocess.run([*INSIDE, "true"], check=False,
                      stderr=subprocess.DEVNULL).returncode != 0:
        return "a mount namespace of its own"
    if subprocess.run(["losetup", "-f"], check=False, stdout=subprocess.DEVNULL,
                      stderr=subprocess.DEVNULL).returncode != 0:
        return "a free loop device"
    return None


def attach(path):
    """Attaches a file to a loop device. Returns its name and an open descriptor. The kernel detaches it
    when the descriptor and every mount are closed, even if this process is killed."""
    get_free, set_fd, clear_fd, set_status = 0x4c82, 0x4c00, 0x4c01, 0x4c04
    autoclear = struct.pack("<52xI176x", 4)  # a loop_info64 with only this flag
    with open(path, "r+b") as file, open("/dev/loop-control", "rb") as control:
        while True:
            name = f"/dev/loop{fcntl.ioctl(control, get_free)}"
            loop = os.open(name, os.O_RDWR | os.O_CLOEXEC)
            try:
                fcntl.ioctl(loop, set_fd, file.fileno())
            except OSError as error:
                os.close(loop)
                if error.errno != errno.EBUSY:  # another process was faster
                    raise
                continue
            try:
                fcntl.ioctl(loop, set_status, autoclear)
            except OSError:
                fcntl.ioctl(loop, clear_fd)
                os.close(loop)
                raise
            return name, loop


def record(name, value):
    return name + b"\0" + value + b"\0\0"


def image(*records, flags=0x00ffffff, crc=None, size=None):
    """Returns an environment file; `records` are bytes of the variable area."""
    area = b"".join(records)
    crc = zlib.crc32(area) if crc is None else crc
    size = len(area) if size is None else size
    return struct.pack("<I", flags) + struct.pack(">II", crc, size) + area


def parse(content):
    """Returns the variables of an environment file, which must be as the library writes it."""
    flags, = struct.unpack("<I", content[:4])
    crc, size = struct.unpack(">II", content[4:12])
    area = content[12:]
    assert (flags, crc, size) == (0x00ffffff, zlib.crc32(area), len(area))
    assert area == b"" or area.endswith(b"\0\0")
    return dict(entry.split(b"\0") for entry in area.split(b"\0\0")[:-1])


class BootPartition:
    """The partition before, during and after runs of the command."""

    def __init__(self, build, folder):
        self.state = folder / "state"
        self._build = build
        self._root = folder / "root"
        self._files = folder / "files"
        for path in [self.state, self._root, self._files]:
            path.mkdir()
        disk = folder / "disk"
        disk.touch()
        os.truncate(disk, 4 << 20)
        subprocess.run(["mkfs.ext3", "-q", "-F", disk], check=True)
        self.loop, self._held = attach(disk)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self._held)

    def _inside(self, script):
        """Runs a shell script in the root directory of the mounted partition."""
        subprocess.run([*INSIDE, "sh", "-c",
                        f'set -eu; mount "$0" "$1"; cd "$1"; {script}', self.loop, self._files],
                       check=True, timeout=TIMEOUT)

    def put(self, name, content):
        (self.state / "file").write_bytes(content)
        self._inside(f'cp "{self.state}/file" "{name}"')

    def get(self, name):
        """Returns the bytes of a file, or None."""
        copy = pathlib.Path(self.state / "copy")
        copy.unlink(missing_ok=True)
        self._inside(f'if [ -e "{name}" ]; then cp "{name}" "{copy}"; fi')
        return copy.read_bytes() if copy.exists() else None

    def variables(self):
        return parse(self.get("boot_env"))

    def run(self, *arguments, program="kestrova", mounted="", name=NODE, hide=False, before=(),
            **options):
        """Runs a program of the build, with the words of `before` before it; `mounted` and `name` are
        the partition's mount state and device name."""
        options = {"input": "", "stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                   "text": True, "timeout": TIMEOUT, **options}
        environment = {**os.environ, "NODE": NODE, "HIDE": "1" if hide else ""}
        result = subprocess.run([*INSIDE, "sh", "-c", ENTER, "sh", self._root, self.state,
                                 self._build, self.loop, mounted, name, *before,
                                 self._build / program, *arguments],
                                check=False, env=environment, **options)
        if program == "kestrova":
            documentschema.check(arguments, result.stdout)
        return result

    def left(self):
        """Returns the mount state after the last run: "", "ro" or "rw"."""
        return (self.state / "after").read_text().strip()
