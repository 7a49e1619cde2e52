# SPDX-License-Identifier: MIT
"""The acts of script/demo.

One process of the command kestrova runs in the box, like a recorder, until the power is cut, and
another one after that; each receives its commands through a pipe.
"""

import functools
import hashlib
import http.server
import json
import pathlib
import random
import shutil
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from box.errors import BoxError
from box.hardware import MIB, NETWORK_LOOPBACK, Disk
from box.image import ImageError
from box.machine import Box, product_files
from box.packages import PackageError
from box.qmp import QmpError
from box.software import software_disk
from box.traffic import SECONDS, Capture, Terminal
from box.workspace import Workspace

DISK_MB, STORAGE_MB = 8192, 6000
RECORDING_MB = 64
RECORDING = "/dvr/data/recording"
PATTERN = b"Nothing is as fast as a picture that is already on the disk.\n"
HOST = "10.0.2.2"  # the box's name for the loopback of this machine
FILM, FILM_BYTES = "/dvr/data/film", 16 * MIB
PAGES = {"guide": 20479, "logo": 4321, "news": 1}
VARIABLES = {"bootpart": "software-b", "language": "en", "greeting": "good evening"}
LOG_PORT = 514
PIPE = "/tmp/commands"
COMMAND_SECONDS = 120


class Failed(Exception):
    """An act failed."""


class Kestrova:
    """The command's shell in the box: one JSON answer for each command."""

    def __init__(self, box):
        self._box, self._answers = box, 0
        box.check(f"[ -p {PIPE} ] || mkfifo {PIPE}")
        # Open for both directions, so that the pipe does not end between two commands.
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


class Documents:
    """A web server on this machine's loopback, with a film and some pages of random bytes."""

    class _Handler(http.server.SimpleHTTPRequestHandler):
        def log_message(self, *_):
            """Logs nothing: the acts print their results."""

    def __init__(self, folder):
        folder.mkdir()
        self.digests = {}
        for name, size in {"film": FILM_BYTES, **PAGES}.items():
            content = random.Random(size).randbytes(size)
            (folder / name).write_bytes(content)
            self.digests[name] = hashlib.sha256(content).hexdigest()
        self._server = http.server.ThreadingHTTPServer(
            ("127.0.0.1", 0), functools.partial(self._Handler, directory=folder))
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def url(self, name):
        """Returns the box's URL of a document."""
        return f"http://{HOST}:{self._server.server_port}/{name}"

    def close(self):
        """Stops the server."""
        self._server.shutdown()
        self._server.server_close()


def require(condition, text):
    """Fails the act unless the condition holds."""
    if not condition:
        raise Failed(text)


def mebibytes(size):
    """Formats a number of bytes."""
    return f"{size / MIB:.0f} MiB"


def mounts(box):
    """Returns the box's mounts of the recording drive."""
    return box.check("grep '^/dev/sda' /proc/mounts || true").splitlines()


def timed(box, command):
    """Returns the duration of a command, in the box's own seconds."""
    text = box.check(f"""read -r before _ </proc/uptime
                         {command} || exit
                         read -r after _ </proc/uptime
                         echo "$before $after\"""", timeout=COMMAND_SECONDS)
    before, after = map(float, text.split())
    return max(after - before, 0.01)


class Play:
    """The acts, in order. Each returns a line about its result."""

    def __init__(self, folder):
        self.image, self.software = folder / "recorder.img", folder / "software.img"
        with open(self.image, "wb") as file:
            file.truncate(DISK_MB * MIB)
        shutil.copyfile(software_disk().path, self.software)
        self.documents = Documents(folder / "documents")
        self.capture = Capture(folder / "traffic")
        self.box = self.kestrova = self.running = None
        self.digest = hashlib.sha256((PATTERN * (RECORDING_MB * MIB // len(PATTERN) + 1))
                                     [:RECORDING_MB * MIB]).hexdigest()

    def boot(self):
        """A 32-bit box starts"""
        self.end()
        self.running = Box(disks=[Disk(path=self.image, model="DEMO RECORDER", serial="DEMO-1"),
                                  Disk(bus="scsi", path=self.software, model="SOFTWARE")],
                           files=product_files(), serial_ports=1, network=NETWORK_LOOPBACK,
                           machine=self.capture.machine)
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

    def record_with(self):
        """A program records, and a second process looks on"""
        require(self.kestrova.exit() == 0, "the first kestrova did not end well")
        text = PATTERN.decode().strip()
        job = self.box.start(["kestrova", "drive", "with", "--", "sh", "-c",
                              f"yes '{text}' | dd of=$KESTROVA_RECORDINGS/recording bs=1M"
                              f" count={RECORDING_MB} iflag=fullblock conv=fsync"])
        self.box.check("until [ -s /dvr/data/recording ]; do usleep 10000; done")
        seen = json.loads(self.box.check("kestrova --json drive status"))
        require(seen["status"] == "started" and seen["holder"], f"the onlooker saw {seen}")
        require(job.wait().status == 0, "the recording failed")
        require(not mounts(self.box), "the drive was not stopped")
        self.kestrova = Kestrova(self.box)
        return (f"{RECORDING_MB} MiB; the onlooker saw it {seen['status']} by process "
                f"{seen['holder']['pid']} ({seen['holder']['command']}), "
                "and it was stopped at the end")

    def start(self):
        """It is mounted again"""
        answer = self.kestrova("drive start")
        lines = [line.split() for line in mounts(self.box)]
        require(answer["status"] == "started", f"status {answer['status']}")
        require([line[1] for line in lines] == ["/dvr", "/dvr/data"], f"mounted: {lines}")
        require("prjquota" in lines[0][3].split(","), f"no project quotas: {lines[0]}")
        return ("/dvr with project quotas and /dvr/data, "
                f"{answer['freeMiB']} MiB free for recordings")

    def read(self):
        """The recording is read back"""
        self.box.check("echo 3 >/proc/sys/vm/drop_caches")
        read = timed(self.box, f"dd if={RECORDING} of=/dev/null bs=1M")
        self._compare()
        return f"at {RECORDING_MB / read:.0f} MiB/s, the same byte for byte"

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

    def fetch(self):
        """Documents are fetched onto it"""
        begin = time.monotonic()
        answer = self.kestrova(f"fetch {self.documents.url('film')} -o {FILM}")
        seconds = time.monotonic() - begin
        require(answer["bytes"] == FILM_BYTES, f"{answer['bytes']} bytes came")
        self.box.check("mkdir /dvr/data/pages")
        urls = " ".join(map(self.documents.url, PAGES))
        pages = self.kestrova(f"fetch-all -d /dvr/data/pages {urls}")
        require(pages["failed"] == 0 and pages["count"] == len(PAGES), f"pages: {pages}")
        self._compare_documents()
        return (f"{mebibytes(FILM_BYTES)} at {FILM_BYTES / MIB / seconds:.1f} MiB/s and "
                f"{len(PAGES)} pages over HTTP, by SHA-256 what the server has")

    def _compare_documents(self):
        paths = [FILM, *(f"/dvr/data/pages/{name}" for name in PAGES)]
        lines = self.box.check(["sha256sum", *paths]).splitlines()
        found = {pathlib.PurePath(line.split()[1]).name: line.split()[0] for line in lines}
        require(found == self.documents.digests, "a document is not what the server has")

    def set_variables(self):
        """Boot variables are set"""
        for name, value in VARIABLES.items():
            self.kestrova(f"vars set {name} '{value}'")
        self._compare_variables()
        return (", ".join(f"{name}={value}" for name, value in VARIABLES.items())
                + ", each on the disk when its command returned")

    def _compare_variables(self):
        found = {entry["name"]: entry["value"]
                 for entry in self.kestrova("vars list")["variables"]}
        require(found == VARIABLES, f"found {found}")

    def cut(self):
        """The power is cut"""
        self.box.start("yes >/dvr/cut")
        self.box.check("until [ -s /dvr/cut ]; do usleep 1000; done")
        pid = self.box.pid
        self.box.kill()
        return f"process {pid} is killed while the drive is mounted and written to"

    def come_back(self):
        """The box is started again"""
        self.boot()
        self.kestrova = Kestrova(self.box)
        self._find_drive()
        self.kestrova("drive start")
        self._compare()
        self._compare_documents()
        self._compare_variables()
        return (f"the drive is found ready, recording and documents are whole, "
                f"all {len(VARIABLES)} variables are as they were set")

    def remote_log(self):
        """The system log is sent elsewhere"""
        self.box.check("syslogd -C")
        self.kestrova(f"syslog set {HOST}")
        self.kestrova("syslog apply")
        text, deadline = "the film has begun", time.monotonic() + SECONDS
        while True:
            self.box.check(["logger", "-t", "demo", text])
            lines = [content.decode("ascii", "replace").rstrip("\n")
                     for target, port, content in self.capture.datagrams()
                     if (target, port) == (HOST, LOG_PORT) and text.encode() in content]
            if lines:
                return f"a UDP packet to {HOST}, port {LOG_PORT}: {lines[0]}"
            require(time.monotonic() < deadline, "no line came by on the network")

    def login(self):
        """Service staff log in on the second serial port"""
        ports = self.kestrova("serial count")["ports"]
        terminal = Terminal(self.box.serial[0])
        self.kestrova("serial login 1")
        prompt = terminal.expect(b"login:").decode("ascii", "replace").split("\n")[-1] + "login:"
        terminal.type(b"root\n")
        terminal.expect(b"# ")
        terminal.type(b"echo $((6 * 7)) on $(tty)\n")
        terminal.expect(b"42 on /dev/ttyS1")
        terminal.type(b"exit\n")
        return f"'{prompt}' on one of {ports} ports, and a shell that says 42 on /dev/ttyS1"

    def stop(self):
        """The drive is stopped"""
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

    def _find_drive(self):
        info = self.kestrova("drive info")
        labels = [part["label"] for part in info["partitions"]]
        require(info["status"] == "ready" and labels == ["DVRStorage", "DVRData"],
                f"found {info['status']}, labels {labels}")

    def acts(self):
        """Returns all acts; the docstring of each is its title."""
        return [self.boot, self.detect, self.partition, self.format, self.record_with, self.start,
                self.read, self.measure, self.fetch, self.set_variables, self.cut, self.come_back,
                self.remote_log, self.login, self.stop, self.shut]

    def end(self):
        """Stops the box, if one runs."""
        if self.running is not None:
            self.running.close()
            self.running = None

    def close(self):
        """Stops everything."""
        self.end()
        self.documents.close()


def show(number, act):
    """Plays one act. Returns whether it succeeded."""
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
    play = Play(workspace.path)
    print("A box's life, on a virtual one without hardware acceleration:", flush=True)
    try:
        for number, act in enumerate(play.acts(), 1):
            if not show(number, act):
                # Each act depends on those before it.
                print(f"Act {number} of {len(play.acts())} did not hold; those after it were "
                      "not played.")
                return 1
    finally:
        play.close()
        workspace.remove()
    print(f"All {len(play.acts())} acts held, in {time.monotonic() - begin:.0f} s.")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
