# SPDX-License-Identifier: MIT
"""The acts of script/demo.

One process of the command kestrova stays up in the box from the first act to the last but
one, as a recorder would, and is told over a pipe what to do next.
"""

import hashlib
import json
import pathlib
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from box.errors import BoxError
from box.hardware import MIB, Disk
from box.image import ImageError
from box.machine import Box, product_files
from box.packages import PackageError
from box.qmp import QmpError
from box.software import software_disk
from box.workspace import Workspace

DISK_MB, STORAGE_MB = 8192, 6000
RECORDING_MB = 64
RECORDING = "/dvr/data/recording"
PATTERN = b"Nothing is as fast as a picture that is already on the disk.\n"
PIPE = "/tmp/commands"
COMMAND_SECONDS = 120


class Failed(Exception):
    """An act did not hold."""


class Kestrova:
    """The command's shell in the box: one JSON answer for each command."""

    def __init__(self, box):
        self._box, self._answers = box, 0
        box.check(f"mkfifo {PIPE}")
        # open for both, so that the pipe does not end between two commands
        self.job = box.start(f"exec kestrova --json shell <>{PIPE}")

    def __call__(self, command):
        self._box.check(["sh", "-c", f'echo "$1" >{PIPE}', "-", command])
        self._answers += 1
        deadline = time.monotonic() + COMMAND_SECONDS
        ended = False
        while True:
            lines = self.job.output()[0].splitlines(keepends=True)
            if len(lines) >= self._answers and lines[self._answers - 1].endswith(b"\n"):
                break
            if ended or time.monotonic() > deadline:
                raise Failed(f"no answer to '{command}'\n" + self.job.output()[1].decode())
            ended = self.job.poll(0.05) is not None
        answer = json.loads(lines[self._answers - 1])
        if "error" in answer:
            raise Failed(f"{command}: {answer['error']}")
        return answer

    def exit(self):
        """Ends the shell, and with it the system; returns the exit status."""
        self._box.check(f"echo exit >{PIPE}")
        return self.job.wait().status


def require(condition, text):
    """Ends the act when what it shows is not so."""
    if not condition:
        raise Failed(text)


def mebibytes(size):
    """A number of bytes for a reader."""
    return f"{size / MIB:.0f} MiB"


def mounts(box):
    """The box's own list of what is mounted from the recording drive."""
    return box.check("grep '^/dev/sda' /proc/mounts || true").splitlines()


def timed(box, command):
    """What a command took, in the box's own seconds."""
    text = box.check(f"""read -r before _ </proc/uptime
                         {command} || exit
                         read -r after _ </proc/uptime
                         echo "$before $after\"""", timeout=COMMAND_SECONDS)
    before, after = map(float, text.split())
    return max(after - before, 0.01)


class Play:
    """The acts, in their order. Each returns the line that tells what was seen."""

    def __init__(self, image):
        self.image = image
        self.box = self.kestrova = self.running = None
        self.digest = hashlib.sha256((PATTERN * (RECORDING_MB * MIB // len(PATTERN) + 1))
                                     [:RECORDING_MB * MIB]).hexdigest()

    def boot(self):
        """A 32-bit box starts"""
        self.end()
        self.running = Box(disks=[Disk(path=self.image, model="DEMO RECORDER", serial="DEMO-1"),
                                  software_disk()], files=product_files())
        self.box = self.running.__enter__()
        processor = self.box.check("grep -m 1 '^model name' /proc/cpuinfo").split(":")[1].strip()
        return f"{self.box.check('uname -srm')} on {processor}, emulated"

    def detect(self):
        """The bare disk is detected"""
        self.kestrova = Kestrova(self.box)
        info = self.kestrova("drive info")
        require(info["status"] == "not-formatted" and not info["partitions"],
                f"the disk is not bare: {info}")
        require(info["capacity"] == DISK_MB * MIB, f"capacity {info['capacity']}")
        return (f"{info['device']} is a {info['model']}, serial number {info['serial']}, "
                f"{mebibytes(info['capacity'])}, no partitions, status {info['status']}")

    def partition(self):
        """It is partitioned"""
        answer = self.kestrova(f"drive partition {STORAGE_MB} rest --yes")
        sizes = [part["capacity"] for part in answer["partitions"]]
        require(len(sizes) == 2 and sizes[0] == STORAGE_MB * MIB, f"partitions: {sizes}")
        return ", ".join(f"{part['path']} of {mebibytes(part['capacity'])}"
                         for part in answer["partitions"])

    def format(self):
        """It is formatted"""
        answer = self.kestrova("drive format --yes")
        steps = [change["progress"] for change in answer["changes"]
                 if change["status"] == "formatting"]
        require(answer["status"] == "ready", f"status {answer['status']}")
        require(steps and steps == sorted(steps) and steps[-1] == 90, f"progress {steps}")
        return ("progress " + ", ".join(f"{step} %" for step in steps)
                + f", then status {answer['status']}")

    def start(self):
        """It is mounted for recording"""
        answer = self.kestrova("drive start")
        lines = [line.split() for line in mounts(self.box)]
        require(answer["status"] == "started", f"status {answer['status']}")
        require([line[1] for line in lines] == ["/dvr", "/dvr/data"], f"mounted: {lines}")
        require("prjquota" in lines[0][3].split(","), f"no project quotas: {lines[0]}")
        return ("/dvr with project quotas and /dvr/data, "
                f"{answer['freeMiB']} MiB free for recordings")

    def record(self):
        """A recording is written and read back"""
        text = PATTERN.decode().strip()
        wrote = timed(self.box, f"yes '{text}' | dd of={RECORDING} bs=1M count={RECORDING_MB}"
                                " iflag=fullblock conv=fsync")
        self.box.check("echo 3 >/proc/sys/vm/drop_caches")
        read = timed(self.box, f"dd if={RECORDING} of=/dev/null bs=1M")
        self._compare()
        return (f"{RECORDING_MB} MiB written at {RECORDING_MB / wrote:.0f} MiB/s and synced, "
                f"read at {RECORDING_MB / read:.0f} MiB/s, the same byte for byte")

    def _compare(self):
        digest = self.box.check(f"sha256sum {RECORDING}").split()[0]
        require(digest == self.digest, "what was read is not what was written")

    def measure(self):
        """Its space is measured"""
        status = self.kestrova("drive status")
        block, blocks, free = map(int, self.box.check("stat -f -c '%S %b %f' /dvr/data").split())
        kernel = {"totalMiB": block * blocks // MIB, "freeMiB": block * free // MIB,
                  "blockSize": block}
        seen = {key: status[key] for key in kernel}
        require(seen == kernel, f"the library says {seen}, the kernel {kernel}")
        require(status["totalMiB"] - status["freeMiB"] >= RECORDING_MB, f"too much free: {seen}")
        return (f"{status['freeMiB']} MiB free of {status['totalMiB']} MiB, blocks of "
                f"{status['blockSize']} bytes, as the kernel has it")

    def stop(self):
        """It is stopped"""
        answer = self.kestrova("drive stop")
        require(answer["status"] == "ready" and not mounts(self.box),
                f"status {answer['status']}, mounted: {mounts(self.box)}")
        return f"both file systems unmounted, status {answer['status']}"

    def shut(self):
        """The system is shut"""
        status = self.kestrova.exit()
        require(status == 0, f"kestrova ended with {status}")
        require(self.box.run("pidof kestrova").status == 1, "kestrova still runs")
        require(self.box.power_off() == 0, "the box did not power off")
        return "kestrova ended with status 0, the box is powered off"

    def come_back(self):
        """The box is started again"""
        self.boot()
        self.kestrova = Kestrova(self.box)
        info = self.kestrova("drive info")
        labels = [part["label"] for part in info["partitions"]]
        require(info["status"] == "ready" and labels == ["DVRStorage", "DVRData"],
                f"found {info['status']}, labels {labels}")
        self.kestrova("drive start")
        self._compare()
        self.kestrova("drive stop")
        require(self.kestrova.exit() == 0, "kestrova failed")
        return f"the drive is found {info['status']}, and the recording is on it, whole"

    def acts(self):
        """All acts; the first line of each one's text is its title."""
        return [self.boot, self.detect, self.partition, self.format, self.start, self.record,
                self.measure, self.stop, self.shut, self.come_back]

    def end(self):
        """Ends the box, if one runs."""
        if self.running is not None:
            self.running.close()
            self.running = None


def show(number, act):
    """Plays one act; whether it held."""
    title, begin = act.__doc__, time.monotonic()
    try:
        seen, held = act(), True
    except (Failed, BoxError, QmpError, ImageError, PackageError, ValueError, KeyError) as error:
        seen, held = f"DID NOT HOLD: {error}", False
    print(f"{number:3}. {title}: {seen} ({time.monotonic() - begin:.1f} s)", flush=True)
    return held


def main():
    """Returns the exit status."""
    begin = time.monotonic()
    workspace = Workspace()
    image = workspace.path / "recorder.img"
    with open(image, "wb") as file:
        file.truncate(DISK_MB * MIB)
    play = Play(image)
    print("A recording drive's life, in a virtual box without hardware acceleration:", flush=True)
    try:
        for number, act in enumerate(play.acts(), 1):
            if not show(number, act):
                # each act stands on those before it
                print(f"Act {number} of {len(play.acts())} did not hold; those after it were "
                      "not played.")
                return 1
    finally:
        play.end()
        workspace.remove()
    print(f"All {len(play.acts())} acts held, in {time.monotonic() - begin:.0f} s.")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
