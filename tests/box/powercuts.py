#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Cuts the power of a box that continuously changes a boot variable, and checks the result.

The machine is booted once, up to a waiting application. Each cut continues from there, with the
disk that the previous cut has left. The library loads from that disk and must find the variable as
last acknowledged, or as in the save in progress. Then it changes the variable repeatedly, until the
machine is killed and the unflushed part of its last writes is lost.

  script/power-cuts [N] [--seed S] [--without-sync]
"""

import argparse
import os
import pathlib
import random
import select
import shutil
import socket
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))
sys.path.insert(0, str(ROOT / "tests" / "box"))

# After the path has been set.
from box import hardware, image, software  # noqa: E402
from box.cpio import Archive  # noqa: E402
from box.errors import BoxError  # noqa: E402
from box.machine import FAST_START, end_on_signals, product_files  # noqa: E402
from box.qmp import Qmp  # noqa: E402
from box.workspace import Workspace  # noqa: E402
import writelog  # noqa: E402

BUILD = pathlib.Path(os.environ.get("KESTROVA_BUILD", ROOT / "build" / "i686")).resolve()
WRITER = BUILD / "tests" / "boxprograms" / "bootvars-writer"
GUEST_WRITER = "/usr/lib/kestrova/bootvars-writer"
NO_SYNC = "int fsync(int descriptor) { (void)descriptor; return 0; }"
SECONDS = 180  # for everything that the machine is awaited for
MODES = ["rw", "rw", "ro", "none"]  # in "rw" only the library's own syncs flush
# As slow as a real disk, so that a cut happens between two writes and not during processing.
WRITES_A_SECOND = 100
LOG_BYTES = 256 * 1024 * 1024


class Loss(Exception):
    """The variables were not the expected ones."""


class Machine:
    """One run of the machine, from the state that the first one saved."""

    def __init__(self, folder, initrd, incoming=None):
        self._port, port = socket.socketpair()
        control, theirs = socket.socketpair()
        built = image.build()
        command = hardware.machine_arguments(
            built, initrd, hardware.DEFAULT_CPU, 128,
            " ".join(["console=ttyS0", "quiet", "panic=-1", *FAST_START, "box.disks=1",
                      "box.mode=console"]))
        command += ["-chardev", f"file,id=con,path={folder}/console.log", "-serial", "chardev:con",
                    "-chardev", f"socket,id=s1,fd={port.fileno()}", "-serial", "chardev:s1",
                    "-chardev", f"socket,id=qmp,fd={theirs.fileno()}",
                    "-mon", "chardev=qmp,mode=control"]
        command += hardware.disk_arguments([]) + self._disk(folder)
        command += ["-incoming", f"exec:cat {incoming}"] if incoming else []
        with open(folder / "qemu.log", "wb") as log:
            self._process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", *command], cwd=folder, stdout=log, stderr=log,
                stdin=subprocess.DEVNULL, pass_fds=[port.fileno(), theirs.fileno()])
        port.close()
        theirs.close()
        self._control, self._received = control, b""
        self.qmp = Qmp(control, SECONDS)

    @staticmethod
    def _disk(folder):
        log = folder / "log"
        log.unlink(missing_ok=True)
        with open(log, "wb") as file:
            file.truncate(LOG_BYTES)
        return ["-blockdev", f"driver=file,node-name=image,filename={folder}/run.img",
                "-blockdev", "driver=raw,node-name=disk,file=image",
                "-blockdev", f"driver=file,node-name=log,filename={log}",
                "-blockdev", "driver=blklogwrites,node-name=logged,file=disk,log=log,"
                             "log-sector-size=512,log-super-update-interval=1",
                "-object", f"throttle-group,id=slow,x-iops-write={WRITES_A_SECOND}",
                "-blockdev", "driver=throttle,node-name=slowed,throttle-group=slow,file=logged",
                "-device", "scsi-hd,bus=scsi0.0,scsi-id=0,lun=0,drive=slowed,write-cache=on,"
                           "vendor=KESTROVA,product=SOFTWARE"]

    def line(self, timeout=SECONDS):
        """Returns the next line of the application, or None after the time limit."""
        deadline = time.monotonic() + timeout
        while b"\n" not in self._received:
            ready, _, _ = select.select([self._port], [], [],
                                        max(deadline - time.monotonic(), 0))
            data = self._port.recv(4096) if ready else None
            if data is None:
                return None
            if not data:
                raise BoxError("the machine has gone")
            self._received += data
        line, self._received = self._received.split(b"\n", 1)
        return line.decode("ascii", "replace").rstrip("\r")

    def tell(self, text):
        """Sends the application a line."""
        self._port.sendall(text.encode() + b"\n")

    def save_state(self, path):
        """Writes the machine's state to a file, and leaves the machine stopped."""
        self.qmp.command("stop")
        self.qmp.command("migrate", uri=f"exec:cat > {path}")
        deadline = time.monotonic() + SECONDS
        while (status := self.qmp.command("query-migrate").get("status")) != "completed":
            if status in ("failed", "cancelled") or time.monotonic() > deadline:
                raise BoxError(f"the machine's state could not be saved: {status}")

    def kill(self):
        """Kills the machine; lines in transit can still be read."""
        self._process.kill()
        self._process.wait()

    def remaining(self):
        """Returns the complete lines that arrived before the end."""
        while data := self._port.recv(4096):
            self._received += data
        return self._received.decode("ascii", "replace").replace("\r", "").split("\n")[:-1]

    def close(self):
        """Kills it and closes the connections to it."""
        self.kill()
        self._port.close()
        self._control.close()


class PowerCuts:
    """The machine and its disk across the cuts."""

    def __init__(self, folder, seed, without_sync=False):
        self._folder, self._random = folder, random.Random(seed)
        self._without_sync = without_sync
        self._state = folder / "state"
        self._base = folder / "base.img"
        self._acknowledged = 0
        self.saves = self.under_way = self.in_writes = self.lost_sectors = 0
        shutil.copyfile(software.software_disk().path, self._base)
        self._prepare()

    def _prepare(self):
        """Boots to the waiting application and saves that state."""
        profile = "blockdev --flushbufs /dev/sda\n"
        archive = Archive()
        for host, guest in {**product_files(BUILD), WRITER: GUEST_WRITER}.items():
            archive.host(host, guest)
        if self._without_sync:
            library = self._folder / "nosync.so"
            subprocess.run(["gcc", "-m32", "-shared", "-fPIC", "-x", "c", "-o", library, "-"],
                           input=NO_SYNC, text=True, check=True)
            archive.host(library, "/usr/lib/nosync.so")
            profile += "export LD_PRELOAD=/usr/lib/nosync.so\n"
        archive.file("/root/.profile", (profile + f"exec {GUEST_WRITER} /dev/ttyS1\n").encode())
        self._initrd = self._folder / "initrd"
        shutil.copyfile(image.build().initrd, self._initrd)
        with open(self._initrd, "ab") as file:
            file.write(archive.bytes())
        shutil.copyfile(self._base, self._folder / "run.img")
        machine = Machine(self._folder, self._initrd)
        try:
            if machine.line() != "ready":
                raise BoxError("the application did not start")
            machine.save_state(self._state)
        finally:
            machine.close()

    def _check(self, found):
        """Expects the last acknowledged variables, or those of the save in progress."""
        if found is None:
            raise BoxError("the application says nothing")
        last = self._acknowledged
        allowed = {f"found {last}", f"found {last + 1}"} | (set() if last else {"found nothing"})
        if found not in allowed:
            raise Loss(f"{found}, but {last} was acknowledged")
        if found == f"found {last + 1}":
            self.under_way += 1
            self._acknowledged += 1

    def _write(self, machine):
        """Lets it save for a random time."""
        pause = 0.2
        for _ in range(self._random.randrange(10)):
            start = time.monotonic()
            self._take(machine.line())
            pause = time.monotonic() - start
        # During the next save, which takes about as long as the last one.
        select.select([], [], [], self._random.random() * 1.5 * pause)

    def _take(self, line):
        if line is None or not line.isdecimal():
            raise BoxError(f"the application said {line!r}")
        self._acknowledged = int(line)
        self.saves += 1

    def cut(self):
        """Makes one power cut; raises Loss if the previous one has lost something."""
        shutil.copyfile(self._base, self._folder / "run.img")
        machine = Machine(self._folder, self._initrd, self._state)
        try:
            while machine.qmp.command("query-status")["status"] == "inmigrate":
                pass
            machine.qmp.command("cont")
            machine.tell("rw" if self._without_sync else self._random.choice(MODES))
            found = machine.line()
            self._check(found)
            self._write(machine)
            machine.kill()
            for line in machine.remaining():
                self._take(line)
        finally:
            machine.close()
        doubtful, lost = writelog.cut(self._base, self._folder / "log", self._random)
        self.in_writes += doubtful > 0
        self.lost_sectors += lost

    def renew(self):
        """Restores an undamaged disk after a loss."""
        shutil.copyfile(software.software_disk().path, self._base)
        self._acknowledged = 0


def run(count, seed, without_sync=False, tell=lambda text: None):
    """Makes this many cuts; returns the number of losses and a line of figures."""
    end_on_signals()
    workspace = Workspace()
    losses = 0
    try:
        cuts = PowerCuts(workspace.path, seed, without_sync)
        for number in range(1, count + 2):  # the last one only checks the result of the one before
            try:
                cuts.cut()
            except Loss as loss:
                losses += 1
                tell(f"cut {number - 1}: LOST: {loss}")
                cuts.renew()
            if number % 10 == 0:
                tell(f"{number} cuts, {losses} losses")
    finally:
        workspace.remove()
    return losses, (f"{count} cuts, {cuts.saves} saves acknowledged, {cuts.under_way} saves under "
                    f"way that were there, {cuts.in_writes} cuts between a write and its flush, "
                    f"{cuts.lost_sectors} unflushed sectors lost, {losses} losses")


def main():
    """Returns the exit status."""
    parser = argparse.ArgumentParser(prog="script/power-cuts")
    parser.add_argument("count", nargs="?", type=int, default=20, metavar="N")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--without-sync", action="store_true",
                        help="a library whose fsync does nothing: losses are expected")
    options = parser.parse_args()
    print(f"seed {options.seed}", flush=True)
    losses, figures = run(options.count, options.seed, options.without_sync,
                          lambda text: print(text, flush=True))
    print(figures)
    return 1 if losses else 0


if __name__ == "__main__":
    sys.exit(main())
