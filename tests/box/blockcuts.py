#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Simulates power cuts at block level, between any two writes of a real file system.

A box changes boot variables, and then partition tables, on disks whose writes and flushes are
logged. From the log this program rebuilds the disk after a power cut, at every flush and at random
positions between two flushes. There a random subset of the unflushed writes is on the disk, some of
them torn. This machine's kernel mounts each software partition, which replays the journal, for the
library and for an independent reader of the format. Both must find all variables from before the
change in progress or all from after it, and only the latter once the change was acknowledged. A
partition table must be the old or the new one.

  script/crash-states --blocks [--points N] [--seed S] [--without-sync]
"""

import argparse
import os
import pathlib
import random
import select
import shutil
import struct
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
for folder in ["", "tests/box", "tests/app", "tests/unit/System/bootvarsmanager"]:
    sys.path.insert(0, str(ROOT / folder))

# After the path has been set.
from box import software  # noqa: E402
from box.errors import BoxError  # noqa: E402
from box.hardware import MIB, Disk  # noqa: E402
from box.machine import Box, end_on_signals, product_files  # noqa: E402
from box.workspace import Workspace  # noqa: E402
import bootimage  # noqa: E402
import bootpartition  # noqa: E402
import blockstates  # noqa: E402
import powercuts  # noqa: E402
import writelog  # noqa: E402

BUILD = powercuts.BUILD
PROGRAM = BUILD / "tests" / "boxprograms" / "block-cuts"
GUEST_PROGRAM = "/usr/lib/kestrova/block-cuts"
SECONDS = 300
SHOWN_LOSSES = 10
POINTS = 4000  # of the variables, in addition to the flushes; many are equivalent
TABLE_POINTS = 300
SAVES = 216
MARK_OFFSET = 64 * writelog.SECTOR
DRIVE_MB = 512
TABLES = [["100"], ["rest"], ["200", "rest"], ["50", "60", "70", "80"], ["rest"],
          ["10", "20", "rest"], ["300", "100"], ["1"]]

# A root directory in which the library finds the partition by its name. $1 the root, $2 the build's
# directory, $3 the program.
ENTER = r"""
set -eu
mount -t tmpfs -o mode=755 blockcuts "$1"
mkdir -p "$1/dev/disk/by-path" "$1/proc" "$1/usr" "$1/boot-sw" "$1$2"
for link in bin sbin lib lib32 lib64 libx32; do
    if [ -L "/$link" ]; then cp -P "/$link" "$1/$link"; fi
done
mount --bind /usr "$1/usr"
mount -t proc proc "$1/proc"
mount --bind "$2" "$1$2"
mknod -m 666 "$1/dev/null" c 1 3
exec chroot "$1" "$3" read
"""


class Reader:
    """Reads software partitions with the library, and the files on them directly."""

    def __init__(self, folder):
        (folder / "root").mkdir()
        # In memory, independent of the machine's disks; it disappears with this process.
        self._memory = os.memfd_create("partition", os.MFD_CLOEXEC)
        self._image = f"/proc/self/fd/{self._memory}"
        self._received = b""
        self._process = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", *bootpartition.INSIDE, "sh", "-c", ENTER, "sh",
             folder / "root", BUILD, PROGRAM], stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0)

    def _line(self):
        output = self._process.stdout.fileno()
        while b"\n" not in self._received:
            ready, _, _ = select.select([output], [], [], SECONDS)
            data = os.read(output, 65536) if ready else b""
            if not data:
                raise BoxError("the reader says nothing")
            self._received += data
        line, self._received = self._received.split(b"\n", 1)
        return line.decode().split(" ")

    def read(self, image):
        """Returns the library's variables, and the files' bytes by name."""
        image.store(self._image)
        name, loop = bootpartition.attach(self._image)
        try:
            number = os.stat(name).st_rdev
            self._process.stdin.write(f"{os.major(number)} {os.minor(number)}\n".encode())
            variables, files = {}, {}
            while (words := self._line())[0] != "done":
                if words[0] == "variable":
                    variables[bytes.fromhex(words[1])] = bytes.fromhex(words[2])
                elif words[0] == "file":
                    files[words[1]] = bytes.fromhex(words[2])
            return variables, files
        finally:
            os.close(loop)

    def close(self):
        """Stops it."""
        self._process.stdin.close()
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()
        os.close(self._memory)


def independent(files):
    """Returns the variables according to the description of the format."""
    for name in ["boot_env", "boot_env.bkp"]:
        try:
            return bootimage.decode(files[name])
        except (KeyError, bootimage.Invalid):
            pass
    return {}


def changes(count, choice):
    """Returns lines for the recorder, and the variables before and after each."""
    lines, states, backup = [], [{}], {}
    current, good, mode = {}, False, "none"
    for number in range(count):
        if number % 12 == 0:
            mode = ["rw", "ro", "none"][number // 12 % 3]
            lines.append(f"mount {mode}")
        elif mode == "rw" and number % 12 == 7:
            lines.append("damage")
            current, good = backup, False
        else:
            key = f"name{choice.randrange(6)}"
            length = choice.choice([0, 1, 40, 500, 3000, 9000])
            letter = "abcdefghij"[number % 10]
            lines.append(f"set {key} {length} {letter}")
            if good:
                backup = current
            good = True
            current = {name: value for name, value in current.items() if name != key.encode()}
            if length:
                current[key.encode()] = letter.encode() * length
        states.append(current)
    return lines, states


def marks(entries):
    """Returns the last mark before each position, up to the end: ("begin" or "end", number)."""
    last, found = ("end", -1), []
    for _, offset, data in entries:
        found.append(last)
        if offset == MARK_OFFSET and data.startswith(b"KVMARK "):
            word, number = data.split(b"\n")[0].decode().split(" ")[1:]
            last = (word, int(number))
    return [*found, last]


def allowed(states, mark):
    """Returns the states that a power cut may leave."""
    word, number = mark
    return [states[number + 1]] if word == "end" else [states[number], states[number + 1]]


class Count:
    """The number of points, of different points, and of losses."""

    def __init__(self, tell):
        self.points = self.lost = 0
        self._seen, self._tell = set(), tell

    def add(self, identity, loss):
        """Counts a point; `loss` describes the problem there, or is None."""
        self.points += 1
        self._seen.add(identity)
        if loss is not None:
            self.lost += 1
            if self.lost <= SHOWN_LOSSES:
                self._tell(f"LOST: {loss}")

    def figures(self):
        """Returns the last line of a report."""
        return f"{self.points} points, {len(self._seen)} of them different, {self.lost} lost"


def first_partition(path):
    """Returns the offset and size in bytes."""
    with open(path, "rb") as file:
        start, sectors = struct.unpack("<II", file.read(512)[454:462])
    return start * writelog.SECTOR, sectors * writelog.SECTOR


def record_variables(folder, lines, without_sync):
    """Makes the changes on a box. Returns the entries of the log."""
    disk = software.software_disk()
    image, log = folder / "software.img", folder / "software.log"
    shutil.copyfile(disk.path, image)
    files = {**product_files(BUILD), PROGRAM: GUEST_PROGRAM}
    command = f"{GUEST_PROGRAM} record"
    if without_sync:
        library = folder / "nosync.so"
        subprocess.run(["gcc", "-m32", "-shared", "-fPIC", "-x", "c", "-o", library, "-"],
                       input=powercuts.NO_SYNC, text=True, check=True)
        files[library] = "/usr/lib/nosync.so"
        command = f"LD_PRELOAD=/usr/lib/nosync.so {command}"
    logged = Disk(bus="scsi", path=image, model="SOFTWARE", write_log=log)
    with Box(disks=[logged], files=files) as box:
        box.check(command, timeout=SECONDS, input="".join(f"{line}\n" for line in lines).encode())
    image.unlink()
    entries = list(writelog.entries(log))
    log.unlink()
    return entries


def cut_variables(folder, seed, wanted, every_flush, count, tell, saves, without_sync=False):
    """Cuts the power while boot variables are changed."""
    choice = random.Random(seed)
    lines, states = changes(saves, choice)
    entries = record_variables(folder, lines, without_sync)
    last = marks(entries)
    if last[-1] != ("end", len(lines) - 1):
        raise BoxError(f"the log ends after {last[-1]}")
    tell(f"{len(lines)} changes, {len(entries)} writes and flushes")
    offset, size = first_partition(software.software_disk().path)
    moved = [(flags, at - offset, data) for flags, at, data in entries]
    base = blockstates.Image.load(software.software_disk().path, offset, size)

    def useful(position):
        word, number = last[position]
        return word == "end" or lines[number] != "damage"

    reader, known = Reader(folder), {}
    try:
        for position, image in blockstates.points(moved, base, wanted, choice, every_flush, useful):
            digest = image.digest()
            if digest not in known:
                variables, files = reader.read(image)
                known[digest] = variables, independent(files)
            found, other = known[digest]
            may_be, loss = allowed(states, last[position]), None
            if found not in may_be or other not in may_be or found != other:
                names = [{name: len(value) for name, value in each.items()}
                         for each in (found, other, *may_be)]
                loss = f"write {position}, after {last[position]}: library, reader, allowed {names}"
            count.add(digest, loss)
    finally:
        reader.close()


def table_of(sector):
    """Returns the used entries of a partition table: type, start and size in sectors. None if there is no table."""
    if sector[510:] != b"\x55\xaa":
        return None
    entries = [struct.unpack("<4xB3xII", sector[at:at + 16]) for at in range(446, 510, 16)]
    return [entry for entry in entries if entry[0]]


def record_tables(folder):
    """Writes tables to a blank drive of a box. Returns the entries of the log."""
    log = folder / "drive.log"
    drive = Disk(path=folder / "drive.img", size=DRIVE_MB * MIB, write_log=log)
    with open(drive.path, "wb") as file:
        file.truncate(drive.size)
    with Box(disks=[drive], files={**product_files(BUILD), PROGRAM: GUEST_PROGRAM}) as box:
        for number, sizes in enumerate(TABLES):
            box.check(f"{GUEST_PROGRAM} mark /dev/sda 'begin {number}' && "
                      f"kestrova drive partition --yes {' '.join(sizes)} && "
                      f"{GUEST_PROGRAM} mark /dev/sda 'end {number}'", timeout=SECONDS)
    entries = list(writelog.entries(log))
    log.unlink()
    return entries


def written_tables(entries, last):
    """Returns the table after each change, which must have the requested size."""
    tables, disk = [None], blockstates.Image(DRIVE_MB * MIB)
    for position, (_, offset, data) in enumerate(entries):
        disk.write(offset, data)
        if last[position + 1] != last[position] and last[position + 1][0] == "end":
            table = table_of(disk.read(0, writelog.SECTOR))
            if table is None or len(table) != len(TABLES[last[position + 1][1]]):
                raise BoxError(f"{table} was written for {TABLES[last[position + 1][1]]}")
            tables.append(table)
    return tables


def sfdisk_table(image, path):
    """Returns sfdisk's view of the table, whose output the library reads."""
    image.store(path)
    done = subprocess.run(["sfdisk", "-d", path], stdout=subprocess.PIPE, text=True, check=False,
                          stderr=subprocess.DEVNULL)
    if done.returncode:
        return None
    found = []
    for line in done.stdout.splitlines():
        if "start=" in line:
            fields = dict(field.split("=") for field in line.split(" : ")[1].replace(" ", "")
                          .split(","))
            found.append((int(fields["type"], 16), int(fields["start"]), int(fields["size"])))
    return found


def cut_tables(folder, seed, wanted, count, tell):
    """Cuts the power while partition tables are written."""
    entries = record_tables(folder)
    last = marks(entries)
    tables = written_tables(entries, last)
    tell(f"{len(TABLES)} partition tables, {len(entries)} writes and flushes")
    known = {}
    base = blockstates.Image(DRIVE_MB * MIB)
    for position, image in blockstates.points(entries, base, wanted, random.Random(seed), True):
        sector = image.read(0, writelog.SECTOR)
        if sector not in known:
            known[sector] = table_of(sector), sfdisk_table(image, folder / "table.img")
        may_be, found = allowed(tables, last[position]), known[sector]
        good = found[0] == found[1] and found[0] in may_be
        count.add(image.digest(), None if good else
                  f"write {position}, after {last[position]}: table, sfdisk {found} not in {may_be}")


def run(seed, wanted, every_flush=True, tables=TABLE_POINTS, saves=SAVES, without_sync=False,
        tell=lambda text: None):
    """Makes the cuts. Returns a Count."""
    end_on_signals()
    workspace = Workspace()
    count = Count(tell)
    try:
        cut_variables(workspace.path, seed, wanted, every_flush, count, tell, saves, without_sync)
        tell(count.figures())
        if tables:
            cut_tables(workspace.path, seed, tables, count, tell)
    finally:
        workspace.remove()
    return count


def main():
    """Returns the exit status."""
    parser = argparse.ArgumentParser(prog="script/crash-states --blocks")
    parser.add_argument("--points", type=int, default=POINTS,
                        help="cuts between flushes while variables are changed (4000)")
    parser.add_argument("--seed", type=int, default=20090412)
    parser.add_argument("--without-sync", action="store_true",
                        help="a library whose fsync does nothing: losses are expected")
    options = parser.parse_args()
    lacking = bootpartition.missing()
    if lacking:
        sys.exit(f"needs {lacking}")
    count = run(options.seed, options.points, without_sync=options.without_sync,
                tell=lambda text: print(text, flush=True))
    print(count.figures())
    return 1 if count.lost else 0


if __name__ == "__main__":
    sys.exit(main())
