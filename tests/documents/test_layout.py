# SPDX-License-Identifier: MIT
"""The directories match docs/architecture.md: a source's tests are found by its name."""

import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
UNIT = ROOT / "tests" / "unit"
SUFFIX = "_test"


def has_source(test):
    """Returns whether tests/unit/x/y_test.cpp or y_ASPECT_test.cpp has a source x/y."""
    name = test.stem[:-len(SUFFIX)]
    folder = ROOT / test.parent.relative_to(UNIT)
    while name:
        if any((folder / f"{name}{suffix}").is_file() for suffix in (".cpp", ".h")):
            return True
        name = name.rpartition("_")[0]
    return False


def test_unit_tests_mirror_the_sources():
    tests = list(UNIT.rglob(f"*{SUFFIX}.cpp"))
    assert len(tests) > 50
    assert not [str(test.relative_to(UNIT)) for test in tests if not has_source(test)]
