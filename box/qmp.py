# SPDX-License-Identifier: MIT
"""QEMU's control protocol over a connected socket."""

import json
import time

from box.errors import BoxError


class QmpError(BoxError):
    """QEMU refused a command, did not answer in time or has gone."""


class Qmp:
    """One connection; for one thread at a time. Every wait is bounded."""

    def __init__(self, socket, timeout=60):
        self._socket, self._buffer, self._events = socket, b"", []
        self._next(time.monotonic() + timeout)  # the greeting
        self.command("qmp_capabilities", timeout=timeout)

    def _next(self, deadline):
        while b"\n" not in self._buffer:
            self._socket.settimeout(max(deadline - time.monotonic(), 0.001))
            try:
                data = self._socket.recv(65536)
            except TimeoutError as error:
                raise QmpError("QEMU did not answer in time") from error
            except OSError as error:
                raise QmpError(f"QEMU has gone: {error}") from error
            if not data:
                raise QmpError("QEMU has gone")
            self._buffer += data
        line, self._buffer = self._buffer.split(b"\n", 1)
        return json.loads(line)

    def command(self, name, timeout=30, **arguments):
        """Runs a command and returns its result."""
        request = {"execute": name}
        if arguments:
            request["arguments"] = {key.replace("_", "-"): value
                                    for key, value in arguments.items()}
        deadline = time.monotonic() + timeout
        try:
            self._socket.sendall(json.dumps(request).encode() + b"\n")
        except OSError as error:
            raise QmpError(f"QEMU has gone: {error}") from error
        while True:
            message = self._next(deadline)
            if "event" in message:
                self._events.append(message)
            elif "error" in message:
                raise QmpError(f"{name}: {message['error']['desc']}")
            else:
                return message["return"]

    def wait_event(self, name, timeout=30):
        """Returns the first event of that name that has not been returned yet."""
        deadline = time.monotonic() + timeout
        while True:
            for event in self._events:
                if event["event"] == name:
                    self._events.remove(event)
                    return event
            message = self._next(deadline)
            if "event" in message:
                self._events.append(message)
