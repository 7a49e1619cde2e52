# SPDX-License-Identifier: MIT
"""A sample of the power cuts at block level; script/crash-states --blocks makes thousands."""

import random

import pytest

import blockcuts
import blockstates
import bootpartition
import writelog

BLOCK = blockstates.BLOCK


@pytest.fixture
def needs_program(box_image):
    lacking = bootpartition.missing()
    if lacking:
        pytest.skip(f"needs {lacking}")
    if not blockcuts.PROGRAM.exists():
        pytest.skip(f"{blockcuts.PROGRAM} is not built")


def test_variables_and_tables_are_the_old_or_the_new_ones(needs_program):
    told = []
    count = blockcuts.run(seed=20090412, wanted=80, every_flush=False, tables=20, saves=36,
                          tell=told.append)
    assert count.points >= 60
    assert count.lost == 0, "\n".join(told)


def test_a_library_that_does_not_sync_is_found_out(needs_program):
    # All in one mount that stays read-write, in which only the library's own syncs flush.
    count = blockcuts.run(seed=1, wanted=40, every_flush=False, tables=0, saves=7,
                          without_sync=True)
    assert count.lost > 0, count.figures()


def states(entries, wanted):
    """Returns each position with the first byte of each of two blocks."""
    base = blockstates.Image(2 * BLOCK)
    return {(position, image.read(0, 1), image.read(BLOCK, 1)) for position, image
            in blockstates.points(entries, base, wanted, random.Random(1), True)}


def test_what_was_flushed_stays_and_the_rest_may_be_there():
    a, b = (0, 0, b"a" * BLOCK), (0, BLOCK, b"b" * BLOCK)
    flush = (writelog.FLUSH, 0, b"")
    assert states([a, flush, b], 200) == {
        (1, b"\0", b"\0"), (1, b"a", b"\0"),  # before the flush, and at it
        (3, b"a", b"\0"), (3, b"a", b"b")}
    assert (2, b"\0", b"b") in states([a, b], 200)  # in any order


def test_a_write_that_asked_for_it_is_there_at_once():
    found = states([(writelog.FUA, 0, b"a" * BLOCK), (0, BLOCK, b"b" * BLOCK)], 200)
    assert {first for _, first, _ in found} == {b"a"}


def test_a_write_can_be_torn_between_sectors():
    entries = [(0, 0, b"a" * BLOCK)]
    found = {image.read(0, BLOCK) for _, image in blockstates.points(
        entries, blockstates.Image(BLOCK), 300, random.Random(1))}
    assert len(found) > 20
    for block in found:
        sectors = {block[at:at + 512] for at in range(0, BLOCK, 512)}
        assert sectors <= {b"a" * 512, bytes(512)}


def test_a_mark_tells_what_was_acknowledged():
    def mark(text):
        return 0, blockcuts.MARK_OFFSET, f"KVMARK {text}\n".encode().ljust(512, b"\0")

    found = blockcuts.marks([(0, 0, b""), mark("begin 0"), (0, 0, b""), mark("end 0")])
    assert found == [("end", -1), ("end", -1), ("begin", 0), ("begin", 0), ("end", 0)]
    assert blockcuts.allowed(["old", "new"], found[0]) == ["old"]
    assert blockcuts.allowed(["old", "new"], found[2]) == ["old", "new"]
    assert blockcuts.allowed(["old", "new"], found[4]) == ["new"]
