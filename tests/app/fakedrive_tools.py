#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Stub for the tools of the drive, one program under all their names.

It keeps the drive's state below /state, refuses every unknown argument list, and writes messages to
its standard output, which must not reach that of the command.
"""

import os
import re
import sys

STATE = "/state"
ARGUMENTS = {
    "sfdisk": [r"-d /dev/sda", r"-q -L -uM /dev/sda"],
    "mkfs.xfs": [r"-L (?P<label>\w+) -f -l lazy-count=0 (?P<node>/dev/sda\d)"],
    "fsck.ext3": [r"-C (?P<pipe>\d+) -p /dev/sda\d"],
    "xfs_repair": [r"(-n )?/dev/sda\d"],
    "hdparm": [r"-(S24|S0|y) /dev/sda"],
    "mount": [r"-t xfs (?P<node>/dev/sda\d) (?P<directory>/dvr(/data)?)(?P<options> -o prjquota)?"],
}


def sizes():
    with open(f"{STATE}/table", encoding="ascii") as file:
        return [int(line) for line in file]


def dump():
    start = 2048
    for number, size in enumerate(sizes(), 1):
        print(f"/dev/sda{number} : start= {start:8}, size={size * 2048:8}, Id=83")
        start += size * 2048


def write_table():
    left = os.stat("/dev/sda").st_size >> 20
    with open(f"{STATE}/table", "w", encoding="ascii") as table:
        for number, line in enumerate(sys.stdin.read().splitlines(), 1):
            size = left if line == ";" else int(line.removeprefix(","))
            left -= size
            table.write(f"{size}\n")
            os.truncate(f"{STATE}/dev/sda{number}", size << 20)


def make_xfs(label, node):
    with open(f"{STATE}{node}", "r+b") as file:
        file.write(b"XFSB".ljust(131072, b"\0"))  # the tool overwrites old data
        file.seek(108)
        file.write(label.encode().ljust(12, b"\0"))


def check(pipe):
    with open(int(pipe), "w", encoding="ascii") as progress:
        progress.write("3 50 100\n")
        progress.flush()
        wait_at_gate()


def repair():
    print("Phase 1 - find and verify superblock...\nPhase 4 - check for duplicate blocks...",
          file=sys.stderr, flush=True)


def wait_at_gate():
    gate = f"{STATE}/gate-{NAME}"
    if os.path.exists(gate):
        with open(gate, encoding="ascii") as file:
            file.read()


def run(found):
    """Does the tool's work. Returns its exit status."""
    if NAME == "fsck.ext3":
        check(found["pipe"])
    elif NAME == "xfs_repair":
        repair()
        wait_at_gate()
    elif NAME != "sfdisk":
        wait_at_gate()
    failure = f"{STATE}/fail-{NAME}"
    if os.path.exists(failure):
        with open(failure, encoding="ascii") as file:
            return int(file.read())
    if NAME == "sfdisk":
        if sys.argv[1] == "-d":
            dump()
        else:
            write_table()
    elif NAME == "mkfs.xfs":
        make_xfs(found["label"], found["node"])
    elif NAME == "mount":
        # The mount table shows only the source's name; the file itself is not read.
        return os.spawnv(os.P_WAIT, "/real/mount",
                         ["mount", "-t", "tmpfs", found["node"], found["directory"]])
    return 0


NAME = os.path.basename(sys.argv[0])
LINE = " ".join(sys.argv[1:])
MATCH = next(filter(None, (re.fullmatch(text, LINE) for text in ARGUMENTS[NAME])), None)
if MATCH is None:
    sys.exit(f"{NAME}: unexpected arguments: {LINE}")
with open(f"{STATE}/log", "a", encoding="ascii") as LOG:
    LOG.write(f"{NAME} {LINE}\n")
if NAME != "sfdisk":
    print(f"chatter of {NAME}", flush=True)
sys.exit(run(MATCH))
