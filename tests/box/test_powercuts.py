# SPDX-License-Identifier: MIT
"""A few power cuts during saves; script/power-cuts makes any number."""

import pytest

import powercuts

CUTS = 5


@pytest.fixture(autouse=True)
def needs_writer(box_image):
    if not powercuts.WRITER.exists():
        pytest.skip(f"{powercuts.WRITER} is not built")


def test_a_power_cut_loses_nothing():
    losses, figures = powercuts.run(CUTS, seed=20090412)
    assert losses == 0, figures


def test_a_library_that_does_not_sync_is_found_out():
    losses, figures = powercuts.run(CUTS, seed=1, without_sync=True)
    assert losses > 0, figures
