# SPDX-License-Identifier: MIT
"""A virtual 32-bit set-top box: image building and running under QEMU."""

import os

# depmod and modprobe stand where a plain user's path does not lead
os.environ["PATH"] = os.environ.get("PATH", "/usr/bin:/bin") + ":/usr/sbin:/sbin"
