# SPDX-License-Identifier: MIT
"""The guides say what the sources say: messages, states, examples."""

import re
import xml.etree.ElementTree

import pytest

import documents
import messages

OPERATING = "docs/operating.md"
STATES = "docs/drive-states.md"
DRIVE = "System/drivemanager/dvrdrive"


def documented_messages():
    found = []
    for cells in documents.rows(documents.read(OPERATING)):
        texts = [span for span in documents.code_spans(cells[0])
                 if span.startswith('"') and span.endswith('"')]
        found += [(text[1:-1], cells[1]) for text in texts]
    return found


def test_every_message_of_the_sources_is_explained():
    assert messages.all_messages() - set(documented_messages()) == set()


def test_every_explained_message_is_in_the_sources():
    assert set(documented_messages()) - messages.all_messages() == set()


def test_no_message_is_explained_twice():
    assert len(documented_messages()) == len(set(documented_messages()))


def test_every_message_has_a_meaning_and_a_cure():
    for cells in documents.rows(documents.read(OPERATING)):
        if cells[0].startswith('`"') and cells[1] != "format":
            assert len(cells) == 4 and cells[2] and cells[3], cells


def test_nothing_else_in_the_library_writes_to_the_console():
    assert messages.places_of_other_means() == set(messages.BY_OTHER_MEANS)


def drive_statuses():
    header = documents.read(DRIVE + ".h")
    body = re.search(r"enum Status \{(.*?)\};", header, re.S)[1]
    return dict(re.findall(r"^\s*(eSt\w+) = (\d+),", body, re.M))


def drive_functions():
    """The code of each function of the recording drive, without comments."""
    code = messages.without_comments(documents.read(DRIVE + ".cpp"))
    return dict(re.findall(r"^\w[^\n;]*?sysDVRDrive::(\w+)\([^)]*\)[^\n;]* \{\n(.*?)^\}", code,
                           re.M | re.S))


def stored(code):
    """The statuses that a function may store."""
    return {status for call in re.findall(r"\bsetStatus\(([^;]*)\);", code)
            for status in re.findall(r"eSt\w+", call)}


def transitions():
    found = []
    for source, target, cause, place in documents.rows(
            documents.section(documents.read(STATES), "Transitions")):
        found.append((source.strip("`"), target.strip("`"), cause, place.strip("`")))
    return found


def test_every_status_has_its_row_and_value():
    rows = {cells[1].strip("`"): cells[0] for cells in documents.rows(documents.read(STATES))
            if cells[0].isdigit()}
    assert rows == drive_statuses() and len(rows) == 7


def test_the_transitions_are_those_that_the_code_stores():
    in_code = {(function, status) for function, code in drive_functions().items()
               for status in stored(code)}
    assert {(place, target) for _, target, _, place in transitions()} == in_code


@pytest.mark.parametrize("call", ["initialize", "start", "stop"])
def test_calls_are_accepted_in_the_statuses_that_the_code_compares(call):
    compared = set(re.findall(r"status [!=]= (eSt\w+)", drive_functions()[call]))
    accepted = {source for source, _, cause, _ in transitions() if f"call of `{call}()`" in cause}
    assert accepted == compared and compared


def test_the_drawing_has_every_status_and_every_arrow_of_the_table():
    svg = xml.etree.ElementTree.fromstring(documents.read("docs/drive-states.svg"))
    texts = {"".join(element.itertext()) for element in svg.iter()}
    assert set(drive_statuses()) <= texts
    arrows = [element.get("id") for element in svg.iter() if "-" in (element.get("id") or "")]
    assert sorted(arrows) == sorted({f"{source}-{target}" for source, target, _, _ in transitions()})


def test_the_drawing_as_text_has_every_status():
    drawing = documents.code_blocks(documents.read(STATES))[0][1]
    assert set(re.findall(r"eSt\w+", drawing)) == set(drive_statuses())


THREADS = "docs/threads.md"
MAKES_THREAD = re.compile(r"\bpthread_create\(|\bstd::(?:j?thread|async)\b(?!::)")
LOCK = re.compile(r"^\s*(?:mutable )?(?:std::(?:\w*mutex|condition_variable\w*)|sem_t"
                  r"|pthread_(?:mutex|cond|rwlock|spinlock)_t) (\w+)", re.M)
STARTS_CHILD = re.compile(r"(?<!:)::?_?[fF]ork\(\)|\b(?:posix_spawnp?|execve|std::system|popen)\(")


def in_sources(pattern):
    """(file, what the pattern's first group found, or "") for every occurrence."""
    return {(str(path.relative_to(documents.ROOT)), match[1] if pattern.groups else "")
            for path in messages.sources()
            for match in pattern.finditer(messages.without_comments(path.read_text()))}


def listed(heading, column):
    return {cells[column].strip("`") for cells in
            documents.rows(documents.section(documents.read(THREADS), heading))}


def test_every_maker_of_threads_is_listed():
    assert listed("Threads of the library", 2) == {file for file, _ in in_sources(MAKES_THREAD)}


def test_every_lock_is_listed():
    rows = documents.rows(documents.section(documents.read(THREADS), "Locks"))
    named = {(cells[1].strip("`"), span) for cells in rows
             for span in documents.code_spans(cells[0]) if not span.startswith("sys")}
    assert named == in_sources(LOCK)


def test_every_starter_of_children_is_listed():
    helpers = {"base/childprocess.cpp"}     # the login prompt's second fork
    assert listed("Children", 2) == {file for file, _ in in_sources(STARTS_CHILD)} - helpers
