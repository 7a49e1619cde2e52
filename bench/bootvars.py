# SPDX-License-Identifier: MIT
"""Measures the boot variables on this machine: on an ext3 file system on a loop device, in its own
mount namespace. Needs root."""

import contextlib
import pathlib
import re
import struct
import sys
import tempfile
import zlib

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/app"))

# After the module's path has been set.
from bootpartition import BootPartition, image, missing, record  # noqa: E402

PROGRAM = "bench/kestrova-bench-bootvars"
ROUNDS = {"set": 201, "set-small": 201, "get": 101, "get-small": 101, "processes": 101,
          "processes-memory": 101}
MEMORY = "/dev/shm"
TIMEOUT_SECONDS = 900
NAME = "name0010"
SMALL = 20
# 61 bytes each; the rest of the file's 65536 bytes has room for another value of NAME.
MANY = 1072
FILE_BYTES = 65536
REPEATED = 50


class BenchError(Exception):
    """A measurement failed."""


def variables(count):
    """Names and values, in the order of the names, including NAME."""
    return [(f"name{number:04}", f"{number:050}") for number in range(count)]


def environment(count):
    return image(*(record(name.encode(), value.encode()) for name, value in variables(count)))


def foreign_environment(count):
    """The same variables in fw_setenv's format."""
    area = b"".join(f"{name}={value}".encode() + b"\0" for name, value in variables(count))
    area = area.ljust(FILE_BYTES - 4, b"\0")
    return struct.pack("<I", zlib.crc32(area)) + area


@contextlib.contextmanager
def boot_partition(build, count, where=None):
    """A partition with both kinds of environment, stored in the directory `where`."""
    with tempfile.TemporaryDirectory(dir=where) as name:
        with BootPartition(build, pathlib.Path(name)) as partition:
            partition.put("boot_env", environment(count))
            partition.put("uboot.env", foreign_environment(count))
            (partition.state / "fw.config").write_text(
                f"/boot-sw/uboot.env 0x0000 {FILE_BYTES:#x}\n")
            yield partition


def run(partition, *arguments, **options):
    """Returns the output of the measuring program."""
    done = partition.run(*map(str, arguments), program=PROGRAM, timeout=TIMEOUT_SECONDS, **options)
    if done.returncode != 0:
        raise BenchError(f"{PROGRAM} {arguments}: {done.stderr}")
    return done.stdout


def calls(build, what, mounted, times):
    """Counts the system calls of a program that does `what` this many times."""
    strace = ["/usr/bin/strace", "-c", "-U", "calls,name", "-o", "/state/calls"]
    with boot_partition(build, MANY) as partition:
        run(partition, "repeat", what, times, NAME, mounted=mounted, before=strace)
        found = re.findall(r"^ *(\d+) (\w+)$", (partition.state / "calls").read_text(), re.M)
    return {name: int(count) for count, name in found if name != "total"}


def list_calls(build):
    """Prints the system calls of one operation as comments, for each mount state. No ratios."""
    for what in ["get", "set"]:
        for mounted, state in [("rw", "mounted rw"), ("ro", "mounted ro"), ("", "not mounted")]:
            few, many = (calls(build, what, mounted, times) for times in [1, 1 + REPEATED])
            each = {name: round((count - few.get(name, 0)) / REPEATED)
                    for name, count in sorted(many.items())}
            listed = ", ".join(f"{name} {count}" for name, count in each.items() if count)
            print(f"# {what}VarS, {state}: {sum(each.values())} system calls: {listed}")
    return {}


def measure(build, parse, suffix=""):
    """Returns ratios by name; `parse` reads the program's output."""
    lacking = missing()
    if lacking:
        raise BenchError(f"the boot variables need {lacking}")
    ratios = {}
    for what, rounds in ROUNDS.items():
        processes = what.startswith("processes")
        if processes and suffix == "":
            continue  # the tool for comparison exists only in the host's word size
        tools = [build / "kestrova", "/state/fw.config"] if processes else []
        with boot_partition(build, SMALL if what.endswith("-small") else MANY,
                            MEMORY if what.endswith("-memory") else None) as partition:
            ratios |= parse(run(partition, what, rounds, NAME, *tools, mounted="rw"), suffix)
    return ratios
