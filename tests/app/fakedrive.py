# SPDX-License-Identifier: MIT
"""A fake recording drive for the command.

The command runs in its own mount namespace and root directory. There /dev/sda and its partitions
are files, the tools are fakedrive_tools.py, and a preloaded fakedrive.c implements the requests that
only a disk supports. The library's use of real tools and disks is not tested here.
"""

import errno
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import time

import documentschema

HERE = pathlib.Path(__file__).resolve().parent
TOOLS = ["sfdisk", "mkfs.xfs", "fsck.ext3", "hdparm", "xfs_repair"]
TIMEOUT = 60
DISK_SIZE = 1 << 30

# $1 new root, $2 state, $3 the command's directory; then the command line. All mounts end with it.
ENTER = r"""
set -eu
root=$1 state=$2 product=$3
shift 3
mount -t tmpfs -o mode=755 fakedrive "$root"
mkdir -p "$root/dev" "$root/run" "$root/var/lib" "$root/proc" "$root/usr" "$root/dvr" "$root/state" "$root/product"
for link in bin sbin lib lib32 lib64 libx32; do
    if [ -L "/$link" ]; then cp -P "/$link" "$root/$link"; fi
done
mount --bind /usr "$root/usr"
mount --bind /proc "$root/proc"
mount --bind "$state" "$root/state"
mount --bind "$state/run" "$root/run"
mount --bind "$state/lib" "$root/var/lib"
mount --bind "$product" "$root/product"
mknod -m 666 "$root/dev/null" c 1 3
for node in "$state"/dev/*; do ln -s "/state/dev/${node##*/}" "$root/dev/"; done
mkdir "$root/real"
cp /usr/bin/mount "$root/real/mount"
mount --bind "$state/tools/mount" "$root/usr/bin/mount"
mount -t tmpfs tools "$root/usr/sbin"
cp "$state"/tools/* "$root/usr/sbin/"
cp /usr/sbin/chroot "$root/real/chroot"
exec "$root/real/chroot" "$root" "$@"
"""
# The command line inside the root.
COMMAND_IN_ROOT = ["/usr/bin/env", "LD_PRELOAD=/state/fakedrive.so",
                   "ASAN_OPTIONS=verify_asan_link_order=0", "/product/kestrova"]


def available():
    """Returns whether this machine can create a namespace and a preloaded library."""
    return (os.geteuid() == 0 and shutil.which("gcc") is not None and os.path.islink("/sbin")
            and subprocess.run(["unshare", "-m", "true"], check=False,
                               stderr=subprocess.DEVNULL).returncode == 0)


def build(command, folder):
    """Compiles the preloaded library in the command's word size."""
    with open(command, "rb") as file:
        bits = "-m32" if file.read(5)[4] == 1 else "-m64"
    subprocess.run(["gcc", bits, "-O1", "-Wall", "-Werror", "-shared", "-fPIC", "-o",
                    folder / "fakedrive.so", HERE / "fakedrive.c"], check=True)
    return command.parent, folder / "fakedrive.so"


def plain_screen():
    """Returns the environment of a terminal that can redraw a line, without colours."""
    return {**os.environ, "TERM": "xterm", "NO_COLOR": "1"}


class Terminal:
    """A command on its own pseudo-terminal."""

    def __init__(self, arguments, environment):
        self.text = ""
        self._position = 0
        self.pid, self.master = pty.fork()
        if self.pid == 0:
            os.execvpe(arguments[0], arguments, environment)

    def expect(self, pattern):
        """Reads until the pattern appears, and returns its match; later calls search after it."""
        deadline = time.monotonic() + TIMEOUT
        while True:
            found = re.compile(pattern, re.DOTALL).search(self.text, self._position)
            if found:
                self._position = found.end()
                return found
            assert self._read(deadline), f"no {pattern!r} in {self.text[self._position:]!r}"

    def _read(self, deadline):
        left = max(0, deadline - time.monotonic())
        if not select.select([self.master], [], [], left)[0]:
            return False
        try:
            piece = os.read(self.master, 4096)
        except OSError:  # the other side is closed
            return False
        self.text += piece.decode(errors="replace").replace("\r\n", "\n")
        return bool(piece)

    def type(self, text):
        os.write(self.master, text.encode())

    def end(self):
        """Reads the rest and returns the exit status."""
        deadline = time.monotonic() + TIMEOUT
        while self._read(deadline):
            pass
        _, status = os.waitpid(self.pid, 0)
        self.pid = 0
        return os.waitstatus_to_exitcode(status)

    def close(self):
        if self.pid:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        os.close(self.master)


class FakeDrive:
    """The drive's state: files that the tools and the tests read and write."""

    def __init__(self, fake_root, folder):
        self._product, library = fake_root
        self.state = folder / "state"
        self._root = folder / "root"
        self._terminals = []
        self._processes = []
        for path in [self._root,
                     *(self.state / name for name in ["dev", "tools", "run/lock", "lib"])]:
            path.mkdir(parents=True)
        shutil.copy(library, self.state / "fakedrive.so")
        for tool in TOOLS + ["mount"]:
            path = self.state / "tools" / tool
            shutil.copy(HERE / "fakedrive_tools.py", path)
            path.chmod(0o755)
        for number in ["", *range(1, 7)]:
            (self.state / f"dev/sda{number}").touch()
        os.truncate(self.state / "dev/sda", DISK_SIZE)
        self.table([])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for gate in self.state.glob("gate-*"):
            gate.unlink()
        for terminal in self._terminals:
            terminal.close()
        for process in self._processes:
            process.kill()
            process.wait()
            for stream in [process.stdin, process.stdout, process.stderr]:
                stream.close()

    def table(self, sizes):
        """Sets the partition table: sizes in MB."""
        (self.state / "table").write_text("".join(f"{size}\n" for size in sizes))
        for number, size in enumerate(sizes, 1):
            os.truncate(self.state / f"dev/sda{number}", size << 20)

    def format(self, number, label, size=0):
        """Writes the parts of an XFS file system of this many MB that the library checks."""
        with open(self.state / f"dev/sda{number}", "r+b") as file:
            file.write(b"XFSB" + struct.pack(">IQ", 4096, size * 256))
            file.seek(108)
            file.write(label.encode().ljust(12, b"\0"))

    def format_ext3(self, number, label):
        """Writes the parts of an ext3 file system that the library checks; number 0 is the disk."""
        with open(self.state / f"dev/sda{number or ''}", "r+b") as file:
            file.seek(1024 + 56)
            file.write(b"\x53\xef")
            file.seek(1024 + 92)
            file.write(b"\4\0\0\0")  # it has a journal
            file.seek(1024 + 120)
            file.write(label.encode().ljust(16, b"\0"))

    def add_tool(self, name, script):
        """Adds the test's own tool."""
        path = self.state / "tools" / name
        path.write_text(script)
        path.chmod(0o755)

    def formatted(self):
        """Makes it a ready drive."""
        self.table([256, 512])
        self.format(1, "DVRStorage")
        self.format(2, "DVRData")
        return self

    def fail(self, tool, status=1):
        """Makes all further runs of the tool exit at once with this status."""
        (self.state / f"fail-{tool}").write_text(str(status))

    def hold(self, tool):
        """Blocks the next run of the tool until the returned function is called."""
        gate = self.state / f"gate-{tool}"
        os.mkfifo(gate)

        def release():
            with open(gate, "w", encoding="ascii") as file:  # waits for the tool
                gate.unlink()
                file.write("go")

        return release

    def let_go(self, tool):
        """Ends a hold(), whether the tool still exists or was killed."""
        gate = self.state / f"gate-{tool}"
        try:
            os.close(os.open(gate, os.O_WRONLY | os.O_NONBLOCK))
        except OSError as error:
            assert error.errno == errno.ENXIO  # no reader
        gate.unlink()

    def calls(self):
        """Returns the command lines of the tools so far, without those that only read."""
        log = self.state / "log"
        lines = log.read_text().splitlines() if log.exists() else []
        return [line for line in lines if not line.startswith("sfdisk -d")]

    def _command(self, arguments):
        return ["unshare", "-m", "sh", "-c", ENTER, "sh", str(self._root), str(self.state),
                str(self._product), *COMMAND_IN_ROOT, *arguments]

    @staticmethod
    def _beside(process, arguments):
        return ["nsenter", f"--mount=/proc/{process.pid}/ns/mnt",
                f"--root=/proc/{process.pid}/root", "--wd=/", *COMMAND_IN_ROOT, *arguments]

    def join(self, process, *arguments, around=(), **options):
        """Runs the command in the root and the mount namespace of a running one, with the words of
        another program before it."""
        return self._run([*around, *self._beside(process, arguments)], arguments, options)

    def start_beside(self, process, *arguments):
        """Starts the command in the same place as join()."""
        return self._start(self._beside(process, arguments))

    def run(self, *arguments, **options):
        """Runs the command without a terminal."""
        return self._run(self._command(arguments), arguments, options)

    @staticmethod
    def _run(command, arguments, options):
        options = {"input": "", "stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                   "text": True, "timeout": TIMEOUT, **options}
        result = subprocess.run(command, check=False, **options)
        documentschema.check(arguments, result.stdout)
        return result

    def start(self, *arguments):
        """Starts the command on pipes."""
        return self._start(self._command(arguments))

    def _start(self, command):
        pipe = subprocess.PIPE
        process = subprocess.Popen(command, stdin=pipe, stdout=pipe, stderr=pipe, text=True)
        self._processes.append(process)
        return process

    def terminal(self, *arguments, **environment):
        """Starts the command on a terminal, by default with plain_screen()."""
        terminal = Terminal(self._command(arguments), {**plain_screen(), **environment})
        self._terminals.append(terminal)
        return terminal
