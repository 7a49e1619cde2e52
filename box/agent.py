# SPDX-License-Identifier: MIT
"""The host's side of the box's agent: starts commands and collects what they give."""

import dataclasses
import itertools
import pathlib
import shlex
import threading
import time

from box.errors import BoxError, BoxTimeout


@dataclasses.dataclass(frozen=True)
class Result:
    """How a command ended: its exit status (128 + N for signal N) and its outputs."""
    status: int
    stdout: bytes
    stderr: bytes

    @property
    def text(self):
        """The standard output as text without the last line end."""
        return self.stdout.decode(errors="replace").rstrip("\n")


def _command_text(command):
    return command if isinstance(command, str) else shlex.join(map(str, command))


class Job:
    """A command that runs in the box, or has ended."""

    def __init__(self, agent, number, command):
        self._agent, self._number, self.command = agent, number, command
        self._stem = agent.share / str(number)

    def _read(self, kind, skip):
        with open(f"{self._stem}.{kind}", "rb") as file:
            file.seek(skip)
            return file.read()

    def output(self, skip=(0, 0)):
        """Standard output and error so far, as a pair, without the first bytes of each."""
        return self._read("out", skip[0]), self._read("err", skip[1])

    def done(self):
        """Whether the command has ended."""
        return self._agent.status(self._number) is not None

    def poll(self, timeout):
        """Exit status, or None when the command still runs after timeout seconds."""
        return self._agent.wait_status(self._number, timeout)

    def kill(self):
        """Ends the command with all that it started in its process group."""
        self._agent.send(f"kill {self._number}")

    def wait(self, timeout=60):
        """Returns the Result; a command that takes longer is killed: BoxTimeout."""
        status = self._agent.wait_status(self._number, timeout)
        if status is None:
            self.kill()
            raise BoxTimeout(f"not done after {timeout} s: {self.command}\n"
                             + b"\n".join(self.output()).decode(errors="replace"))
        return Result(status, *self.output())


class Agent:
    """The line to the agent. Safe for several threads."""

    def __init__(self, socket, share):
        self.share = pathlib.Path(share)
        self._socket = socket
        self._numbers = itertools.count(1)
        self._changed = threading.Condition()
        self._ready, self._gone = False, False
        self._statuses = {}
        threading.Thread(target=self._read_answers, daemon=True).start()

    def _read_answers(self):
        try:
            with self._socket.makefile("r", encoding="ascii") as lines:
                for line in lines:
                    self._take(line.split())
        except (OSError, ValueError):
            pass  # the same as an orderly end: nothing more will come
        with self._changed:
            self._gone = True
            self._changed.notify_all()

    def _take(self, words):
        with self._changed:
            if words == ["ready"]:
                self._ready = True
            else:
                self._statuses[int(words[0])] = int(words[1])
            self._changed.notify_all()

    def wait_ready(self, timeout):
        """Returns when the box takes commands."""
        with self._changed:
            self._changed.wait_for(lambda: self._ready or self._gone, timeout)
            if not self._ready:
                raise BoxError("the box ended while starting" if self._gone
                               else f"the box did not start within {timeout} s")

    def send(self, line):
        """Sends one request."""
        try:
            self._socket.sendall(line.encode() + b"\n")
        except OSError as error:
            raise BoxError(f"the box has gone: {error}") from error

    def start(self, command, data=b""):
        """Starts a shell command, or a list of words, with data on standard input."""
        number = next(self._numbers)
        stem = self.share / str(number)
        text = _command_text(command)
        for kind, content in (("cmd", text.encode()), ("out", b""), ("err", b""),
                              ("in", data.encode() if isinstance(data, str) else data)):
            pathlib.Path(f"{stem}.{kind}").write_bytes(content)
        self.send(f"run {number}")
        return Job(self, number, text)

    def status(self, number):
        """Exit status of a command, or None while it runs."""
        with self._changed:
            return self._statuses.get(number)

    def wait_status(self, number, timeout):
        """Exit status of a command, or None when the time is over."""
        deadline = time.monotonic() + timeout
        with self._changed:
            self._changed.wait_for(lambda: number in self._statuses or self._gone,
                                   max(deadline - time.monotonic(), 0))
            if number not in self._statuses and self._gone:
                raise BoxError("the box has gone")
            return self._statuses.get(number)
