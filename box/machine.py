# SPDX-License-Identifier: MIT
"""A running box."""

import os
import pathlib
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import threading

from box import hardware, image
from box.agent import Agent
from box.cpio import Archive
from box.errors import BoxError, BoxTimeout
from box.qmp import Qmp
from box.workspace import Workspace

ROOT = pathlib.Path(__file__).resolve().parent.parent
START_SECONDS = 120  # about 6 on an idle machine
# the kernel's look for old plug-in cards and the trials of its own ciphers: 1.7 s
FAST_START = ["noisapnp", "cryptomgr.notests=1"]


def product_files(build=ROOT / "build" / "i686"):
    """The library and the command of a build, as far as built: host path -> box path."""
    files = {build / "libkestrova-system.so.1": "/usr/lib/libkestrova-system.so.1",
             build / "kestrova": "/usr/bin/kestrova"}
    return {host: guest for host, guest in files.items() if host.exists()}


def end_on_signals():
    """Makes the signals that end a process unwind it, so that boxes are closed.

    Signals that the application handles or ignores are left as they are.
    """
    if threading.current_thread() is not threading.main_thread():
        return
    for number in (signal.SIGTERM, signal.SIGHUP):
        if signal.getsignal(number) is signal.SIG_DFL:
            signal.signal(number, lambda number, _: sys.exit(128 + number))


def _confined(command, network):
    """The command so that it ends with the thread that starts it and can't reach a network."""
    command = ["setpriv", "--pdeathsig", "KILL", *command]
    if network == hardware.NETWORK_LOOPBACK or os.geteuid() != 0:
        return command  # without root, restrict=on alone keeps the box in
    return ["unshare", "--net", "--", *command]


class Box:
    """A virtual box, started by entering the context and ended by leaving it.

    disks             list of Disk; by default a blank ATA disk of 1 GiB. The first ATA
                      disk is /dev/sda, SCSI disks follow the ATA ones.
    files             host path -> box path, added to the first root
    serial_ports      0 to 3: ttyS1 and on; box.serial[0] is the socket of ttyS1
    network           hardware.NETWORK_*; 10.0.2.2 is the host's loopback
    interactive       a shell on the terminal instead of commands from the host
    machine           further arguments for QEMU

    QEMU ends with the thread that entered, however that ends; so enter from a thread
    that lives on. One thread at a time, but jobs may be waited for by several.
    """

    def __init__(self, disks=None, cpu=hardware.DEFAULT_CPU, memory=256, files=None,
                 serial_ports=0, network=hardware.NETWORK_NONE, kernel_arguments="",
                 interactive=False, machine=()):
        self.disks = [hardware.Disk()] if disks is None else list(disks)
        self._cpu, self._memory, self._network = cpu, memory, network
        self._files, self._kernel_arguments = files or {}, kernel_arguments
        self._interactive, self._serial_ports = interactive, serial_ports
        self._machine = list(machine)
        self._workspace = self._process = self._agent = None
        self.serial, self.qmp = [], None

    # Starting and ending

    def __enter__(self):
        built = image.build()
        end_on_signals()
        self._workspace = Workspace()
        try:
            self._start(built)
            if not self._interactive:
                self._agent.wait_ready(START_SECONDS)
        except BoxError as error:
            report = self.report()
            self.close()
            raise BoxError(f"{error}\n{report}") from error
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_):
        self.close()

    def _channel(self, theirs, name, *extra):
        """A socket of ours whose other end is QEMU's character device of that name."""
        mine, other = socket.socketpair()
        theirs.append(other)
        return mine, ["-chardev", f"socket,id={name},fd={other.fileno()}", *extra]

    def _start(self, built):
        folder, theirs = self._workspace.path, []
        share = folder / "share"
        share.mkdir()
        for number, disk in enumerate(self.disks):
            disk.name = f"d{number}"
            disk.create(folder)
        console = ("stdio,id=con,signal=off" if self._interactive
                   else f"file,id=con,path={folder}/console.log")
        words = ["console=ttyS0", "quiet", "panic=-1", *FAST_START, f"box.disks={len(self.disks)}",
                 f"box.mode={'console' if self._interactive else 'agent'}",
                 self._kernel_arguments]
        command = hardware.machine_arguments(built, self._initrd(built), self._cpu,
                                             self._memory, " ".join(words).strip())
        command += [*self._machine, "-chardev", console, "-serial", "chardev:con"]
        for number in range(1, self._serial_ports + 1):
            mine, arguments = self._channel(theirs, f"s{number}", "-serial", f"chardev:s{number}")
            self.serial.append(mine)
            command += arguments
        agent, arguments = self._channel(theirs, "agent", "-device", "virtio-serial-pci",
                                         "-device", "virtserialport,chardev=agent,name=agent")
        command += arguments
        control, arguments = self._channel(theirs, "qmp", "-mon", "chardev=qmp,mode=control")
        command += arguments
        command += hardware.disk_arguments(self.disks) + hardware.share_arguments(share)
        command += hardware.network_arguments(self._network)

        descriptors = [end.fileno() for end in theirs]
        with open(folder / "qemu.log", "wb") as log:
            self._process = subprocess.Popen(
                _confined(command, self._network), pass_fds=descriptors, cwd=folder,
                stdin=None if self._interactive else subprocess.DEVNULL,
                stdout=None if self._interactive else log, stderr=log)
        for end in theirs:
            end.close()
        self._agent = Agent(agent, share)
        self._sockets = [agent, control]
        self.qmp = Qmp(control)

    def _initrd(self, built):
        if not self._files:
            return built.initrd
        more = Archive()
        for host, guest in self._files.items():
            more.host(host, guest)
        path = self._workspace.path / "initrd"
        shutil.copyfile(built.initrd, path)
        with open(path, "ab") as file:
            file.write(more.bytes())
        return path

    def kill(self):
        """A power cut: nothing is flushed. The images keep what has reached them."""
        if self._process is not None:
            self._process.kill()
            self._process.wait()

    def close(self):
        """Ends the box and removes what was made for it; again does nothing."""
        self.kill()
        for end in [*self.serial, *getattr(self, "_sockets", [])]:
            end.close()
        if self._workspace is not None:
            self._workspace.remove()

    def power_off(self, timeout=60):
        """Ends the box in an orderly way: file systems unmounted, everything written."""
        self._agent.start("umount -a -t noproc,nosysfs,nodevtmpfs,no9p; sync; poweroff -f")
        return self.wait_end(timeout)

    def wait_end(self, timeout=None):
        """Returns when the box has ended by itself."""
        try:
            return self._process.wait(timeout)
        except subprocess.TimeoutExpired as error:
            raise BoxTimeout(f"the box still runs after {timeout} s") from error

    @property
    def pid(self):
        """QEMU's process id."""
        return self._process.pid

    def report(self):
        """What QEMU and the box's console said last, for error messages."""
        texts = []
        for name in ("qemu.log", "console.log"):
            path = self._workspace.path / name
            if path.exists() and path.stat().st_size:
                texts.append(f"--- {name}\n" + path.read_text(errors="replace")[-4000:])
        return "\n".join(texts)

    # Commands and files

    def start(self, command, input=b""):
        """Starts a shell command (or a list of words) and returns its Job."""
        return self._agent.start(command, input)

    def run(self, command, timeout=60, input=b""):
        """Runs a shell command (or a list of words) and returns its Result."""
        return self.start(command, input).wait(timeout)

    def check(self, command, timeout=60, input=b""):
        """Runs a command that has to succeed and returns its output as text."""
        result = self.run(command, timeout, input)
        if result.status:
            raise BoxError(f"status {result.status}: {command}\n"
                           + (result.stdout + result.stderr).decode(errors="replace"))
        return result.text

    def put(self, host, guest):
        """Copies a host file into the box, with its mode."""
        passing = self._workspace.path / "share" / "passing"
        shutil.copy(host, passing)
        mode = oct(os.stat(host).st_mode & 0o7777)[2:]
        guest = shlex.quote(str(guest))
        self.check(f'mkdir -p "$(dirname {guest})" && cp /host/passing {guest} && '
                   f"chmod {mode} {guest}")
        passing.unlink()

    def get(self, guest, host):
        """Copies a file of the box to the host."""
        passing = self._workspace.path / "share" / "passing"
        self.check(f"cp {shlex.quote(str(guest))} /host/passing")
        shutil.move(passing, host)

    # Hardware

    def pull(self, disk):
        """Pulls a disk away while the box runs.

        A SCSI disk leaves its bus. An ATA disk, which has no plug to be pulled in this
        machine, loses its medium: every access fails from then on.
        """
        if disk.bus == "scsi":
            self.qmp.command("device_del", id=f"dev-{disk.name}")
            self.qmp.wait_event("DEVICE_DELETED")
        else:
            self.qmp.command("human-monitor-command", command_line=f"drive_del {disk.name}")

    def stop(self):
        """Halts the processor; commands wait meanwhile."""
        self.qmp.command("stop")

    def resume(self):
        """Lets the processor go on."""
        self.qmp.command("cont")
