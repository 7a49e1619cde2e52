#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Boots the box for a person: with a shell on the terminal, or to run one command."""

import argparse
import contextlib
import pathlib
import re
import subprocess
import sys
import termios

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from box import hardware
from box.errors import BoxError
from box.machine import Box, product_files
from box.software import software_disk

UNITS = {"": 1, "K": 1024, "M": 1024 ** 2, "G": 1024 ** 3, "T": 1024 ** 4}
FAILED = 125  # of the box itself; the command's own statuses pass through
POLL_SECONDS = 0.1


def size(text):
    """Bytes in text such as 4G."""
    match = re.fullmatch(r"([1-9]\d*)([KMGT]?)", text.upper())
    if not match:
        raise argparse.ArgumentTypeError(f"{text}: give a size such as 500M or 40G")
    value = int(match[1]) * UNITS[match[2]]
    if value % 512:
        raise argparse.ArgumentTypeError(f"{text}: not a multiple of 512 bytes")
    return value


def existing(text):
    """A path that exists."""
    if not pathlib.Path(text).exists():
        raise argparse.ArgumentTypeError(f"{text}: no such file")
    return pathlib.Path(text).resolve()


def arguments():
    """The command line."""
    parser = argparse.ArgumentParser(
        prog="script/box",
        description="Boots the virtual 32-bit box: with a shell on this terminal, or to run "
                    "COMMAND, whose outputs and exit status are passed on.",
        epilog="Disks: the recording drive is /dev/sda, the software disk /dev/sdb. A disk "
               "given as a file keeps what is written; all else is lost at the end.")
    parser.add_argument("--disk", type=existing, metavar="FILE",
                        help="raw image that is the recording drive")
    parser.add_argument("--blank-disk", type=size, metavar="SIZE", default=size("4G"),
                        help="size of the recording drive without --disk (default 4G)")
    parser.add_argument("--no-drive", action="store_true", help="no recording drive at all")
    parser.add_argument("--cpu", default=hardware.DEFAULT_CPU,
                        help="QEMU's processor (default %(default)s)")
    parser.add_argument("--memory", type=int, default=256, metavar="MIB")
    parser.add_argument("--put", action="append", default=[], metavar="FILE:PATH",
                        help="adds a file of the host under a path of the box")
    parser.add_argument("--stdin", action="store_true",
                        help="gives this command's standard input to COMMAND")
    parser.add_argument("--timeout", type=float, default=600, metavar="SECONDS",
                        help="for COMMAND (default %(default)s)")
    parser.add_argument("command", nargs=argparse.REMAINDER, metavar="COMMAND")
    options = parser.parse_args()
    options.put = [word.rpartition(":") for word in options.put]
    for host, colon, _ in options.put:
        if not colon or not pathlib.Path(host).exists():
            parser.error(f"--put {host}: give an existing file as FILE:PATH")
    return options


def disks(options):
    """The recording drive, if any, and the software disk."""
    if options.no_drive:
        drive = []
    elif options.disk:
        drive = [hardware.Disk(path=options.disk)]
    else:
        drive = [hardware.Disk(size=options.blank_disk)]
    return [*drive, software_disk()]


def run_command(box, command, data, timeout):
    """Runs the command, passing its outputs on while it runs; returns its status."""
    # several words are a command and its arguments, a single one is a line for the shell
    job = box.start(command if len(command) > 1 else command[0], data)
    passed = [0, 0]
    status = None
    while status is None:
        if timeout <= 0:
            job.kill()
            raise BoxError(f"not done in time: {job.command}")
        status = job.poll(POLL_SECONDS)
        timeout -= POLL_SECONDS
        for number, text in enumerate(job.output(passed)):
            stream = (sys.stdout, sys.stderr)[number].buffer
            stream.write(text)
            stream.flush()
            passed[number] += len(text)
    return status


@contextlib.contextmanager
def terminal_kept():
    """Gives the terminal back as it was, however the box that works on it ends."""
    if not sys.stdin.isatty():
        yield
        return
    state = termios.tcgetattr(sys.stdin)
    try:
        yield
    finally:
        termios.tcsetattr(sys.stdin, termios.TCSADRAIN, state)


def main():
    """Returns the exit status."""
    options = arguments()
    files = {**product_files(), **{host: guest for host, _, guest in options.put}}
    interactive = not options.command
    data = sys.stdin.buffer.read() if options.stdin else b""
    try:
        with terminal_kept(), Box(
                disks=disks(options), cpu=options.cpu, memory=options.memory, files=files,
                interactive=interactive) as box:
            if interactive:
                return box.wait_end()  # a person takes the time that it takes
            return run_command(box, options.command, data, options.timeout)
    except (BoxError, subprocess.CalledProcessError) as error:
        print(f"script/box: {error}", file=sys.stderr)
    except KeyboardInterrupt:
        return 130
    return FAILED


if __name__ == "__main__":
    sys.exit(main())
