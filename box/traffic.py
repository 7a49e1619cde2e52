# SPDX-License-Identifier: MIT
"""What goes over a box's wire: its network and its serial lines."""

import struct
import time

from box.errors import BoxTimeout

SECONDS = 60  # for anything that is waited for


class Capture:
    """The packets of a box's network card, in a file (pcap, <pcap/pcap.h>)."""

    _FILE_HEADER, _PACKET_HEADER = 24, 16

    def __init__(self, path):
        self._path = path
        self.machine = ["-object", f"filter-dump,id=capture,netdev=n0,file={path}"]

    def datagrams(self):
        """Target, port and content of each UDP packet from the box so far."""
        data, at, found = self._path.read_bytes(), self._FILE_HEADER, []
        while len(data) >= at + self._PACKET_HEADER:
            length, = struct.unpack_from("<I", data, at + 8)
            at += self._PACKET_HEADER
            frame = data[at:at + length]
            at += length
            # Ethernet with IPv4 and UDP in it
            if len(frame) == length > 42 and frame[12:14] == b"\x08\0" and frame[23] == 17:
                header = 14 + (frame[14] & 15) * 4
                port, size = struct.unpack_from(">HH", frame, header + 2)
                target = ".".join(map(str, frame[30:34]))
                found.append((target, port, frame[header + 8:header + size]))
        return found


class Terminal:
    """Whoever sits at the other end of a serial line."""

    def __init__(self, socket):
        self._socket, self._text = socket, b""

    def expect(self, text):
        """Returns what comes, up to the text."""
        deadline = time.monotonic() + SECONDS
        while text not in self._text:
            self._socket.settimeout(max(deadline - time.monotonic(), 0.001))
            try:
                self._text += self._socket.recv(1000)
            except TimeoutError as error:
                raise BoxTimeout(f"no {text} in {self._text}") from error
        before, self._text = self._text.split(text, 1)
        return before

    def type(self, text):
        """Sends keys."""
        self._socket.sendall(text)
