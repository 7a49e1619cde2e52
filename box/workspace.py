# SPDX-License-Identifier: MIT
"""A temporary folder that never outlives its process for long.

Killed outright, a process can't clean up: the next one that makes a folder removes
those whose owner is gone. A lock on the folder, which the kernel releases with the
process, tells which those are.
"""

import fcntl
import os
import pathlib
import shutil
import tempfile
import time

PREFIX = "kestrova-box-"
# a folder is younger than this between its making and its locking
GRACE_SECONDS = 60


def _try_lock(path):
    descriptor = os.open(path, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW)
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
        return descriptor
    except OSError:
        os.close(descriptor)
        return None


def remove_abandoned():
    """Removes folders of processes that have ended without doing so."""
    for path in pathlib.Path(tempfile.gettempdir()).glob(PREFIX + "*"):
        try:
            status = path.lstat()
            if status.st_uid != os.getuid() or time.time() - status.st_mtime < GRACE_SECONDS:
                continue
            descriptor = _try_lock(path)
        except OSError:
            continue  # gone meanwhile, or no folder of ours
        if descriptor is not None:
            shutil.rmtree(path, ignore_errors=True)
            os.close(descriptor)


class Workspace:
    """A folder of our own."""

    def __init__(self):
        remove_abandoned()
        self.path = pathlib.Path(tempfile.mkdtemp(prefix=PREFIX))
        self._lock = _try_lock(self.path)

    def remove(self):
        """Removes the folder with all that it holds; again does nothing."""
        if self._lock is not None:
            shutil.rmtree(self.path, ignore_errors=True)
            os.close(self._lock)
            self._lock = None
