# SPDX-License-Identifier: MIT
"""Shared by the tests of both recipes: the project's properties, and its adapters."""

import os
import re
import subprocess

import documents

ROOT = documents.ROOT
ADAPTERS = ("sfdisk", "mkfs.xfs")


def project_version():
    return re.search(r"project\(kestrova-system VERSION ([\d.]+)", documents.read("CMakeLists.txt"))[1]


def project_options():
    return set(re.findall(r"^option\((KESTROVA_\w+)", documents.read("CMakeLists.txt"), re.M))


def assert_adapted(image):
    for name in ADAPTERS:
        adapter = ROOT / "box" / "tools" / name
        place = image / "sbin" / name
        assert place.is_symlink()
        installed = image / os.readlink(place).lstrip("/")
        assert installed.read_bytes() == adapter.read_bytes() and os.access(installed, os.X_OK)
        tool = image / "usr" / "lib" / "kestrova" / "tools" / name
        assert "the tool itself" in tool.read_text() and os.access(tool, os.X_OK)


def configured(options, folder):
    """Configures the project with a recipe's options, each of which must exist."""
    done = subprocess.run(["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", *options],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    assert "not used by the project" not in done.stderr, done.stderr


def decided(options):
    return {option[2:].partition("=")[0] for option in options
            if option.startswith("-DKESTROVA_")}
