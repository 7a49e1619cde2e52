# SPDX-License-Identifier: MIT
"""Fixtures for the tests of the recipes.

image   the root of an image, before the adapters are put in place
"""

import pytest

import recipes


@pytest.fixture
def image(tmp_path):
    """The root of an image with a merged /usr and the two current tools."""
    root = tmp_path / "image"
    (root / "usr" / "sbin").mkdir(parents=True)
    (root / "usr" / "lib").mkdir()
    (root / "sbin").symlink_to("usr/sbin")
    for name in recipes.ADAPTERS:
        tool = root / "usr" / "sbin" / name
        tool.write_text("#!/bin/sh\necho the tool itself\n")
        tool.chmod(0o755)
    return root
