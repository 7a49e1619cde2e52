# SPDX-License-Identifier: MIT
"""Debian's own way to test packages: debian/tests of the tree, in a clean system."""

import os
import pathlib
import shutil
import subprocess

import pytest

# After the tests' conftest has put the packaging directory on the path.
import build
from chroot import trial_kind
from conftest import System


def test_the_installed_packages_pass_their_own_test(packages, tmp_path):
    if shutil.which("autopkgtest") is None:
        pytest.skip("autopkgtest is not installed")
    source = tmp_path / "source"
    build.export_tree(source)
    debs = [packages.deb(name, "i386") for name in
            ("libkestrova-system1", "libkestrova-system-dev", "kestrova-tools")]
    debs += [packages.deb(name, "all") for name in ("libkestrova-system-doc", "kestrova-box-tools")]
    # The clean system has no compiler cache that this machine's CMake may be told to use.
    environment = {name: value for name, value in os.environ.items()
                   if not name.startswith("CMAKE_")}
    with System(trial_kind("i386")) as system:
        # In separate namespaces: without a network, and with mounts that end with it.
        tried = subprocess.run(
            ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child", "sh", "-c",
             'mount -t proc proc "$0/proc" && exec "$@"', system.path,
             "autopkgtest", "--no-built-binaries", f"--output-dir={tmp_path / 'output'}",
             *debs, f"{source}/", "--", "chroot", system.path],
            env=environment, stdin=subprocess.DEVNULL, capture_output=True, text=True,
            check=False)
    assert tried.returncode == 0, tried.stdout + tried.stderr
    assert pathlib.Path(tmp_path, "output", "summary").read_text().split() == ["examples", "PASS"]
