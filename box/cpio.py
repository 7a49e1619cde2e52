# SPDX-License-Identifier: MIT
"""Writes the archives that the kernel unpacks as its first root (cpio "newc").

Written here rather than by the cpio tool: the owner is always root and device nodes
need no rights of the person who builds, and equal contents give equal archives.
"""

import os
import stat

BLOCK = 512


class Archive:
    """An archive that is filled in memory; parents of an entry are made on demand."""

    def __init__(self):
        self._data = bytearray()
        self._names = set()

    def _entry(self, name, mode, data=b"", device=(0, 0)):
        self._names.add(name)
        encoded = os.fsencode(name) + b"\0"
        # a fixed time keeps the archive the same for the same contents
        fields = (len(self._names), mode, 0, 0, 1, 0, len(data), 0, 0, *device, len(encoded), 0)
        self._data += b"070701" + b"".join(b"%08x" % field for field in fields) + encoded
        self._pad(4)
        self._data += data
        self._pad(4)

    def _pad(self, boundary):
        self._data += bytes(-len(self._data) % boundary)

    def directory(self, path, mode=0o755):
        name = path.strip("/")
        if not name or name in self._names:
            return
        self.directory(os.path.dirname(name))
        self._entry(name, stat.S_IFDIR | mode)

    def _new(self, path):
        name = path.strip("/")
        if name in self._names:
            raise ValueError(f"/{name} is added twice")
        self.directory(os.path.dirname(name))
        return name

    def file(self, path, data, mode=0o644):
        self._entry(self._new(path), stat.S_IFREG | mode, data)

    def link(self, path, target):
        self._entry(self._new(path), stat.S_IFLNK | 0o777, os.fsencode(target))

    def character_device(self, path, major, minor, mode=0o600):
        self._entry(self._new(path), stat.S_IFCHR | mode, device=(major, minor))

    def host(self, source, path):
        """Adds a host file, following links, or a folder with all that it holds."""
        source = os.path.realpath(source)
        if os.path.isdir(source):
            self.directory(path)
            for name in sorted(os.listdir(source)):
                self.host(os.path.join(source, name), f"{path}/{name}")
            return
        with open(source, "rb") as file:
            self.file(path, file.read(), stat.S_IMODE(os.stat(source).st_mode) | 0o444)

    def __contains__(self, path):
        return path.strip("/") in self._names

    def bytes(self):
        """The finished archive; another one may be appended to it."""
        finished = Archive()
        finished._data = bytearray(self._data)
        finished._entry("TRAILER!!!", 0)
        finished._pad(BLOCK)
        return bytes(finished._data)
