#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Measures the library and prints a row a figure; script/bench builds and starts it.

A row is, tab-separated: name, measured ratio, bound, "held" or "short". A figure that misses its
bound does not change the exit status; a figure that could not be measured makes it 1.
"""

import argparse
import datetime
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT))

# After the modules' path has been set.
import bootvars  # noqa: E402
import plot  # noqa: E402
from box import image, packages  # noqa: E402
from box.agent import BoxError  # noqa: E402
from box.hardware import MIB, Disk  # noqa: E402
from box.machine import Box  # noqa: E402

LIBRARY = "libkestrova-system.so.1"
LIBRARY_BYTES = 192 * 1024
MEMORY_KIB = 200
MEMORY_ROUNDS = 101

AT_MOST, AT_LEAST = "<=", ">="
# Every figure, in the order of the rows.
BOUNDS = {
    "library-size": (AT_MOST, 1.0),
    "minimal-memory": (AT_MOST, 1.0),
    "system-init-term": (AT_MOST, 1.10),
    "xfs-format": (AT_MOST, 1.02),
    "ext3-format": (AT_MOST, 1.02),
    "is-mounted": None,
    "log-suppressed": None,
    "log-printed": None,
    "crc32": None,
    "is-mounted-native": None,
    "log-suppressed-native": None,
    "log-printed-native": None,
    "crc32-native": None,
    "start": (AT_MOST, 1.0),
    "start-plain": (AT_MOST, 1.0),
    "start-native": (AT_MOST, 1.0),
    "start-plain-native": (AT_MOST, 1.0),
    "boot-set": (AT_MOST, 1.10),
    "boot-set-small": (AT_MOST, 1.10),
    "boot-get": (AT_MOST, 1.25),
    "boot-get-mounts": None,
    "boot-get-small": None,
    "boot-get-mounts-small": None,
    "boot-set-native": (AT_MOST, 1.10),
    "boot-set-small-native": (AT_MOST, 1.10),
    "boot-get-native": (AT_MOST, 1.25),
    "boot-get-mounts-native": None,
    "boot-get-small-native": None,
    "boot-get-mounts-small-native": None,
    "boot-set-process-native": (AT_MOST, 1.0),
    "boot-set-process-memory-native": (AT_MOST, 1.0),
    "http-read": (AT_LEAST, 0.95),
    "http-fetcher": (AT_LEAST, 0.90),
    "http-first-byte": (AT_LEAST, 0.95),
    "http-chain": (AT_MOST, 1.05),
    "http-cancel": (AT_MOST, 1.0),
    "http-memory": (AT_MOST, 1.0),
    "http-read-native": (AT_LEAST, 0.95),
    "http-read-libcurl-native": (AT_LEAST, 1.0),
    "http-fetcher-native": (AT_LEAST, 0.90),
    "http-first-byte-native": (AT_LEAST, 0.95),
    "http-chain-native": (AT_MOST, 1.05),
    "http-cancel-native": (AT_MOST, 1.0),
    "http-memory-native": (AT_MOST, 1.0),
    "fetch-process-large": (AT_MOST, 0.9),
    "fetch-process-large-processor": (AT_MOST, 0.9),
    "fetch-process-small": (AT_MOST, 0.9),
    "fetch-process-small-processor": (AT_MOST, 0.9),
    "fetch-process-large-native": (AT_MOST, 0.9),
    "fetch-process-large-processor-native": (AT_MOST, 0.9),
    "fetch-process-small-native": (AT_MOST, 0.9),
    "fetch-process-small-processor-native": (AT_MOST, 0.9),
}
SPAWN_MIB = [0, 64, 256, 1024]
for word_size in ["", "-native"]:
    for mib in SPAWN_MIB:
        BOUNDS |= {f"spawn-{mib}{word_size}": (AT_MOST, 1.15),
                   f"spawn-fork-{mib}{word_size}": None}

DRIVE_BYTES = 4096 * MIB
STORAGE_MB = 2048
ROUNDS = {"system": 41, "xfs": 41, "ext3": 31}
# Every instruction takes two nanoseconds of the box's time, independent of other load on the host;
# while the box waits for its disk, its clock follows the host's. The same work then measures the
# same within a thousandth; with plain emulation it differs by a tenth and more.
CLOCK = ["-icount", "shift=1,sleep=on"]
TIMEOUT_SECONDS = 900
FAILURES = (OSError, subprocess.SubprocessError, BoxError, image.ImageError,
            packages.PackageError, bootvars.BenchError, ValueError)


def verdict(name, ratio):
    """Returns the row's last two columns."""
    if BOUNDS[name] is None:
        return "-", "held"
    relation, bound = BOUNDS[name]
    held = ratio <= bound if relation == AT_MOST else ratio >= bound
    return f"{relation}{bound:.2f}", "held" if held else "short"


def parse(text, suffix=""):
    """Returns ratios by name from a program's output; prints its comments."""
    ratios = {}
    for line in text.splitlines():
        if line.startswith("#"):
            print(line.replace(":", suffix + ":", 1), flush=True)
        else:
            name, ratio = line.split("\t")
            ratios[name + suffix] = float(ratio)
    return ratios


def library_size(build):
    """Measures the library as shipped, without its symbol table."""
    with tempfile.TemporaryDirectory() as folder:
        stripped = pathlib.Path(folder) / LIBRARY
        subprocess.run(["strip", "-o", stripped, build / LIBRARY], check=True)
        size = stripped.stat().st_size
    print(f"# library-size: {size} bytes stripped")
    return {"library-size": size / LIBRARY_BYTES}


def services(build, zlib, suffix):
    """Measures the small services, on this machine's own processor."""
    done = subprocess.run([build / "bench" / "kestrova-bench-services", zlib], check=True,
                          stdout=subprocess.PIPE, text=True)
    return parse(done.stdout, suffix)


def http(build, suffix, *libcurl):
    """Measures the HTTP client with a server on this machine."""
    done = subprocess.run([build / "bench" / "kestrova-bench-http", *libcurl], check=True,
                          stdout=subprocess.PIPE, text=True)
    return parse(done.stdout, suffix)


def fetch_process(build, suffix):
    """Compares the command's fetch with curl, both as processes; the file is in memory."""
    with tempfile.TemporaryDirectory(dir=bootvars.MEMORY) as folder:
        done = subprocess.run([build / "bench" / "kestrova-bench-fetchprocess", build / "kestrova",
                               "/usr/bin/curl", folder],
                              check=True, stdout=subprocess.PIPE, text=True)
    return parse(done.stdout, suffix)


def spawn(build, suffix):
    """Measures starting and reaping a child by the memory of its caller; on this machine's kernel."""
    ratios = {}
    for mib in SPAWN_MIB:
        done = subprocess.run([build / "bench" / "kestrova-bench-spawn", str(mib)], check=True,
                              stdout=subprocess.PIPE, text=True)
        ratios |= parse(done.stdout, suffix)
    return ratios


def start(build, suffix=""):
    """Measures the cost of linking a program with the library; on this machine's kernel."""
    programs = [build / "bench" / f"kestrova-bench-start{kind}"
                for kind in ("", "-linked", "-empty", "-plain")]
    done = subprocess.run(programs, check=True, stdout=subprocess.PIPE, text=True)
    return parse(done.stdout, suffix)


def private_kib(smaps):
    """Returns the memory that would be freed if the process exited."""
    return sum(int(kib) for kib in re.findall(r"^Private_(?:Clean|Dirty): +(\d+) kB", smaps, re.M))


def memory(box):
    """Measures the memory of the system without a drive, beyond that of an empty program."""
    # Addresses are random, and so is the number of neighbours of a page that the kernel maps along
    # with it: single runs differ by a hundred KiB. Each round uses a new shell, because pages of
    # the C library that the shell has mapped do not count as private.
    programs = ["kestrova-bench-memory-empty", "kestrova-bench-memory-minimal"]
    both = "".join(f"{program} && echo && " for program in programs) + "true"
    runs = box.check(f"for round in $(seq {MEMORY_ROUNDS}); do sh -c '{both}' || exit; done",
                     TIMEOUT_SECONDS)
    found = [private_kib(text) for text in runs.split("\n\n")]
    empty, minimal = statistics.median(found[0::2]), statistics.median(found[1::2])
    print(f"# minimal-memory: {minimal:.0f} KiB private, {empty:.0f} KiB of an empty program")
    return {"minimal-memory": (minimal - empty) / MEMORY_KIB}


def drive(box):
    """Measures the recording drive."""
    for command in (f"printf ',{STORAGE_MB}\\n;\\n' | /sbin/sfdisk -q -L -uM /dev/sda",
                    "/sbin/mkfs.xfs -L DVRStorage -f -l lazy-count=0 /dev/sda1",
                    "/sbin/mkfs.xfs -L DVRData -f -l lazy-count=0 /dev/sda2"):
        box.check(command)
    ratios = {}
    # The formats come last, because they remove the labels.
    for what, rounds in ROUNDS.items():
        partition = [] if what == "system" else ["/dev/sda2"]
        ratios |= parse(box.check(["kestrova-bench-drive", what, rounds, *partition],
                                  TIMEOUT_SECONDS))
    return ratios


def in_box(build):
    """Measures everything that is measured in the virtual box."""
    programs = build.glob("bench/kestrova-bench-*")
    files = {path: f"/usr/bin/{path.name}" for path in programs}
    files[build / LIBRARY] = f"/usr/lib/{LIBRARY}"
    with Box(disks=[Disk(size=DRIVE_BYTES)], files=files, machine=CLOCK) as box:
        return memory(box) | drive(box)


def groups(i686, native):
    """Returns the functions that measure each group, by the group's name."""
    zlib = image.BUILD / "root/lib/i386-linux-gnu/libz.so.1"  # one of the box's packages
    return {
        "size": [lambda: library_size(i686)],
        "box": [lambda: in_box(i686)],
        "services": [lambda: services(i686, zlib, ""),
                     lambda: services(native, "libz.so.1", "-native")],
        "start": [lambda: start(i686), lambda: start(native, "-native")],
        "spawn": [lambda: spawn(i686, ""), lambda: spawn(native, "-native")],
        "boot": [lambda: bootvars.measure(i686, parse),
                 lambda: bootvars.measure(native, parse, "-native"),
                 lambda: bootvars.list_calls(i686)],
        "http": [lambda: http(i686, ""), lambda: http(native, "-native", "libcurl.so.4")],
        "fetch": [lambda: fetch_process(i686, ""), lambda: fetch_process(native, "-native")],
    }


def measure(parts):
    """Returns all ratios by name; reports and omits failed measurements."""
    ratios = {}
    for part in parts:
        try:
            ratios |= part()
        except FAILURES as error:
            print(f"script/bench: {error}", file=sys.stderr)
    return ratios


def print_rows(ratios):
    for name in BOUNDS:
        if name in ratios:
            print(name, f"{ratios[name]:.3f}", *verdict(name, ratios[name]), sep="\t", flush=True)


def print_summary(runs):
    """Prints each figure that has a bound as a comment, for all runs."""
    for name, bound in BOUNDS.items():
        found = [ratios[name] for ratios in runs if name in ratios]
        if bound is not None and found:
            held = sum(verdict(name, ratio)[1] == "held" for ratio in found)
            listed = " ".join(f"{ratio:.3f}" for ratio in found)
            print(f"# {name}: held in {held} of {len(runs)} runs: {listed}")


def processor():
    """Returns the processor's name."""
    match = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    return match[1] if match else platform.machine()


def main():
    """Returns the exit status."""
    parser = argparse.ArgumentParser(prog="script/bench", description=__doc__.splitlines()[0])
    parser.add_argument("i686", type=pathlib.Path, help="folder of the 32-bit release build")
    parser.add_argument("native", type=pathlib.Path, help="folder of this machine's one")
    parser.add_argument("groups", nargs="*", metavar="GROUP",
                        help="size, box, services, start, spawn, boot, http or fetch; without one "
                        "all of them")
    parser.add_argument("--runs", type=int, default=1, metavar="N", help="measure N times")
    parser.add_argument("--plot", type=pathlib.Path, metavar="FILE",
                        help="draw the last run's figures against their bounds, as SVG")
    options = parser.parse_intermixed_args()
    known = groups(options.i686, options.native)
    unknown = [name for name in options.groups if name not in known]
    if unknown:
        parser.error(f"no group {unknown[0]}; there are {', '.join(known)}")
    parts = [part for name in options.groups or known for part in known[name]]
    print(f"# {datetime.date.today()}, {processor()}, Linux {platform.release()}", flush=True)
    runs = []
    for _ in range(options.runs):
        runs.append(measure(parts))
        print_rows(runs[-1])
    if options.runs > 1:
        print_summary(runs)
    if options.plot:
        options.plot.write_text(plot.draw(runs[-1], BOUNDS), encoding="utf-8")
    missing = [name for name in BOUNDS if any(name not in ratios for ratios in runs)]
    if missing and not options.groups:
        print("script/bench: not measured:", ", ".join(missing), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
