# SPDX-License-Identifier: MIT
"""The guides agree with the sources: messages, states, threads, names."""

import re
import subprocess
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


def test_a_table_headed_by_a_source_file_holds_the_messages_of_that_file():
    sections = re.split(r"^##+ ", documents.read(OPERATING), flags=re.M)
    headed = {match[1]: section for section in sections
              if (match := re.match(r"`(System/bootvarsmanager/\w+\.cpp)`\n", section))}
    assert len(headed) == 5
    for place, section in headed.items():
        texts = {span[1:-1] for cells in documents.rows(section)
                 for span in documents.code_spans(cells[0]) if span.startswith('"')}
        assert texts == {text for text, _ in messages.of_file(documents.ROOT / place)}, place


def test_every_message_has_a_meaning_and_what_to_do():
    for cells in documents.rows(documents.read(OPERATING)):
        if cells[0].startswith('`"') and cells[1] != "format":
            assert len(cells) == 4 and cells[2] and cells[3], cells


def test_nothing_else_in_the_library_writes_to_the_console():
    assert messages.places_of_other_means() == set(messages.BY_OTHER_MEANS)


def drive_statuses():
    header = documents.read(DRIVE + ".h")
    body = re.search(r"enum Status : int \{(.*?)\};", header, re.S)[1]
    return dict(re.findall(r"^\s*(eSt\w+) = (\d+),", body, re.M))


def drive_functions():
    """Returns the code of each function of the recording drive, without comments."""
    code = messages.without_comments(documents.read(DRIVE + ".cpp"))
    return dict(re.findall(r"^\w[^\n;]*?sysDVRDrive::(\w+)\([^)]*\)[^\n;]* \{\n(.*?)^\}", code,
                           re.M | re.S))


def stored(code):
    """Returns the statuses that a function may store."""
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


ARCHITECTURE = "docs/architecture.md"
OBJECTS = documents.ROOT / "build" / "i686" / "CMakeFiles" / "kestrova-objects.dir"
LOCK = re.compile(r"^\s*(?:mutable )?(?:std::(?:\w*mutex|condition_variable\w*)|sem_t"
                  r"|base::(?:Mutex|Semaphore|PrintLock)"
                  r"|pthread_(?:mutex|cond|rwlock|spinlock)_t) (?:base::)?(\w+)(?! KESTROVA_CAP)", re.M)


def callers(*functions):
    """Returns the library sources whose object files call one of the functions."""
    if not OBJECTS.is_dir():
        pytest.skip("build/i686 is not built")
    found = set()
    for path in OBJECTS.rglob("*.cpp.o"):
        symbols = subprocess.run(["nm", "-u", path], capture_output=True, text=True,
                                 check=True).stdout.split()
        if {symbol.partition("@")[0] for symbol in symbols} & set(functions):
            found.add(str(path.relative_to(OBJECTS)).removesuffix(".o"))
    assert found
    return found


def locks_and_threads():
    """Returns the rows of both tables: a lock's name is code, a thread's is not."""
    return documents.rows(documents.section(documents.read(ARCHITECTURE), "Threads and locks"))


def test_every_creator_of_threads_is_listed():
    listed = {cells[1].strip("`") for cells in locks_and_threads() if "`" not in cells[0]}
    start = "_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE"
    assert listed == callers("pthread_create", start)


def test_every_lock_is_listed_and_drawn():
    """clang checks how the locks are used; this checks their names."""
    named = {(cells[1].strip("`"), span) for cells in locks_and_threads()
             for span in documents.code_spans(cells[0])}
    declared = {(str(path.relative_to(documents.ROOT)), match[1]) for path in messages.sources()
                for match in LOCK.finditer(messages.without_comments(path.read_text()))}
    assert named == declared
    svg = xml.etree.ElementTree.fromstring(documents.read("docs/threads.svg"))
    drawn = {name for element in svg.iter("{http://www.w3.org/2000/svg}text")
             for name in "".join(element.itertext()).split(", ")}
    assert {name for _, name in declared} - drawn == {"mAnswered"}      # it guards nothing


def test_every_starter_of_children_is_listed():
    text = documents.section(documents.read(ARCHITECTURE), "Layers")
    listed = {f"base/process/{span}" for span in documents.code_spans(text) if span.endswith(".cpp")}
    assert listed == callers("fork", "_Fork", "vfork", "clone", "execve", "execvp", "execvpe",
                             "posix_spawn", "posix_spawnp", "system", "popen", "daemon")


INTEGRATING = "docs/integrating.md"


def test_the_guide_leads_to_every_example():
    linked = {target.removeprefix("../") for target in documents.links(documents.read(INTEGRATING))}
    examples = {str(path.relative_to(documents.ROOT))
                for path in (documents.ROOT / "examples").glob("*.cpp")}
    assert examples <= linked and len(examples) == 5


def test_every_guide_names_devices_and_folders_that_the_sources_name():
    """A path that the guide attributes to a source is in that source."""
    looked_at = set()
    for cells in documents.rows(documents.section(documents.read(INTEGRATING), "Device names")):
        names = [span for span in documents.code_spans(cells[0]) if span.startswith("/dev/")]
        places = [span for span in documents.code_spans(cells[2]) if span.startswith("System/")]
        for place in places:
            code = messages.without_comments(documents.read(place))
            stems = {re.sub(r"(-part)?\d$", "", name) for name in names}
            assert names and all(f'"{stem}"' in code for stem in stems), (names, place)
            looked_at.add(place)
    assert looked_at == {DRIVE + ".cpp", "System/BlockdevCfg.fmp.cpp", "System/sysSuperUserUtils.cpp"}


TESTING = "docs/testing.md"


def test_the_suites_are_those_that_are_run():
    """Those with a star are the quick ones."""
    rows = documents.rows(documents.section(documents.read(TESTING), "Suites"))
    named = [name.strip() for cells in rows if len(cells) == 4 for name in cells[0].split(",")]
    code = documents.read("script/testrun.py")
    lists = code[code.index("    suites = ["):code.index("    total = ")]
    quick, _, others = (re.findall(r'\("([\w-]+)", ', part)
                        for part in lists.partition("    else:\n"))
    assert {name.removesuffix(" *") for name in named if name} == {*quick, *others}
    assert {name.removesuffix(" *") for name in named if name.endswith("*")} == set(quick)


def test_every_folder_of_tests_is_named():
    text = documents.read(TESTING)
    folders = {str(path.parent.relative_to(documents.ROOT))
               for pattern in ("*_test.cpp", "test_*.py")
               for path in (documents.ROOT / "tests").rglob(pattern)}
    missing = {folder for folder in folders
               if not any(f"`{folder[:end]}`" in text for end in
                          [len(folder)] + [at.start() for at in re.finditer("/", folder)])}
    assert not missing
