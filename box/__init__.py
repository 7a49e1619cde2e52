# SPDX-License-Identifier: MIT
"""A virtual 32-bit set-top box: image building and running under QEMU."""
