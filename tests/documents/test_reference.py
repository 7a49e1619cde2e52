# SPDX-License-Identifier: MIT
"""The reference: the site that Doxygen makes of the public headers, and the man pages of man/.

What the pages say of the interface is compared with the headers, as Doxygen has read them.
"""

import html
import itertools
import pathlib
import re
import shutil
import subprocess

import pytest

from interface import Interface
from manpage import Page, pages

ROOT = pathlib.Path(__file__).resolve().parents[2]
SECTIONS = ["NAME", "LIBRARY", "SYNOPSIS", "DESCRIPTION", "RETURN VALUES", "THREADS", "EXAMPLES",
            "ERRORS", "SEE ALSO"]
# Manual pages of others that ours point to.
OTHERS = {"blkid 8", "fclose 3", "flock 1", "flock 2", "fork 2", "fsck.ext3 8", "getty 8",
          "hdparm 8", "mkfs.ext3 8", "mkfs.xfs 8", "mount 8", "nice 1", "perror 3", "pkg-config 1",
          "popen 3", "printf 3", "pthread_create 3", "recv 2", "sfdisk 8", "statfs 2"}
CLASS_PAGES = [pytest.param(Page(path), id=path.name) for path in pages("*.3")]
OUR_PAGES = CLASS_PAGES + [pytest.param(Page(path), id=path.name)
                           for path in pages("kestrova-system.7")]


def needs(program):
    return pytest.mark.skipif(shutil.which(program) is None, reason=f"{program} is not installed")


def run(*command, **options):
    return subprocess.run(command, cwd=ROOT, capture_output=True, text=True, check=False, **options)


@pytest.fixture(scope="session", name="site")
def site_fixture():
    if shutil.which("doxygen") is None:
        pytest.skip("doxygen is not installed")
    return run("script/docs")


@pytest.fixture(scope="session", name="interface")
def interface_fixture(site):
    # With warnings there is a site all the same: one test complains of them, not all.
    folder = ROOT / "build" / "docs" / "xml"
    assert (folder / "index.xml").is_file(), site.stderr
    return Interface(folder)


def described(page, interface):
    """The classes of a page, and what stands in the open in the headers that it includes."""
    names = [name for name in page.synopsis() if name]
    owners = list(itertools.chain.from_iterable(interface.with_bases(name) for name in names))
    return owners + [interface.free[header] for header in page.includes()
                     if header in interface.free]


def test_the_site_builds_without_a_warning(site):
    assert site.stderr == ""
    assert site.returncode == 0
    assert (ROOT / "build" / "docs" / "html" / "index.html").is_file()


def test_links_of_the_site_lead_somewhere(site):
    assert site.returncode == 0, site.stderr
    folder = ROOT / "build" / "docs" / "html"
    links = {(page.name, html.unescape(link.partition("#")[0])) for page in folder.glob("*.html")
             for link in re.findall(r'(?:href|src)="([^"]+)"', page.read_text())
             if not re.match(r"\w+:", link)}
    assert ("index.html", "md_docs_architecture.html") in links
    assert {link for link in links if link[1] and not (folder / link[1]).is_file()} == set()


def test_the_site_keeps_every_conversion_of_a_message(site):
    """Doxygen drops a "%" that starts a word in the text or a code span."""
    assert site.returncode == 0, site.stderr
    page = ROOT / "build" / "docs" / "html" / "md_docs_operating.html"
    text = html.unescape(re.sub("<[^>]+>", "", page.read_text()))
    assert text.count("%") == (ROOT / "docs" / "operating.md").read_text().count("%") > 0


@needs("doxygen")
@pytest.mark.parametrize("comment", ["", "/// Adds.\n", "/// Adds.\n/// @param a first\n"],
                         ids=["no comment", "no parameters", "not every parameter"])
def test_what_is_not_documented_fails_the_site(tmp_path, comment):
    header = tmp_path / "sum.h"
    header.write_text(f"/// @file\n/// A sum.\n{comment}int sum(int a, int b);\n"
                      "/// @file\n/// A class.\nclass Sum { public: int mSum; };\n")
    configuration = (ROOT / "docs" / "Doxyfile").read_text()
    result = run("doxygen", "-", input=f"{configuration}\nINPUT = {header}\n"
                 f"USE_MDFILE_AS_MAINPAGE =\nOUTPUT_DIRECTORY = {tmp_path}\n")
    assert result.returncode != 0
    assert "mSum" in result.stderr
    if comment:
        assert "sum" in result.stderr.replace("mSum", "").replace("sum.h", "")


def test_everything_public_has_a_page(interface):
    shown = {name for page in pages("*.3") for name in Page(page).synopsis()}
    assert set(interface.classes) - shown == set()
    in_the_open = set().union(*(owner.declarations for owner in interface.free.values()))
    on_pages = set().union(*(Page(page).synopsis()[""] for page in pages("*.3")))
    assert in_the_open ^ on_pages == set()


@pytest.mark.parametrize("page", CLASS_PAGES)
def test_a_synopsis_is_the_interface(page, interface):
    classes = {name: found for name, found in page.synopsis().items() if name}
    for name, found in classes.items():
        assert found ^ interface.classes[name].declarations == set(), name
        assert interface.classes[name].header in page.includes()
    headers = page.includes()
    assert headers and all((ROOT / header).is_file() for header in headers)
    in_the_open = set().union(*(interface.free[header].declarations for header in headers
                                if header in interface.free))
    assert page.synopsis()[""] - in_the_open == set()


@pytest.mark.parametrize("page", CLASS_PAGES)
def test_a_page_names_what_it_describes(page, interface):
    used = {arguments[0].rsplit("::")[-1] for arguments in page.macros("Fn")}
    constants = {arguments[0] for arguments in page.macros("Dv")}
    fields = {arguments[0] for arguments in page.macros("Va")}
    for name in filter(None, page.synopsis()):
        owner = interface.classes[name]
        operations = {function for function in owner.functions
                      if function.lstrip("~") not in name.split("::")}
        assert operations - used == set()
        assert set(owner.enumerators) - constants == set()
        assert owner.fields - fields == set()
    for declaration in page.synopsis()[""]:
        owners = [interface.free[header] for header in page.includes() if header in interface.free]
        functions = [function for owner in owners for function in owner.functions
                     if f"{function}(" in declaration]
        assert set(functions) - used == set()


@pytest.mark.parametrize("page", CLASS_PAGES)
def test_a_page_is_named_after_what_it_describes(page):
    assert page.names()[0] == page.path.stem
    assert page.path.stem == "KestrovaPOpen" or \
        any(page.path.stem in part for part in [page.synopsis(), *page.synopsis()[""]])


def overloads(page, interface, name):
    """Parameter names of every function that a name on a page can mean."""
    if "::" in name:
        owner, name = name.rsplit("::", 1)
        owners = interface.with_bases(owner) if owner in interface.classes else []
    else:
        owners = described(page, interface) + list(interface.free.values())
    return [names for owner in owners for names in owner.functions.get(name, [])]


@pytest.mark.parametrize("page", OUR_PAGES)
def test_a_page_names_nothing_that_is_not_there(page, interface):
    for name, *arguments in page.macros("Fn"):
        known = overloads(page, interface, name)
        assert known, f"no function {name}"
        if arguments:
            assert arguments in [[word for word in names if word] for names in known], name
    everything = interface.everything()
    enumerators = {name: value for owner in everything for name, value in owner.enumerators.items()}
    for name, *_ in page.macros("Dv"):
        assert name in enumerators or name.isupper(), f"no constant {name}"
    for name, number in page.values().items():
        assert enumerators[name] == number, name
    fields = set().union(*(owner.fields for owner in everything))
    for name, *_ in page.macros("Va"):
        assert name in fields | {"errno"}, f"no variable {name}"
    for name, *_ in page.macros("Vt"):
        assert name.startswith("std::") or name in interface.types, f"no type {name}"


@pytest.mark.parametrize("page", CLASS_PAGES)
def test_a_page_has_its_sections_in_order(page):
    assert [heading for heading in page.headings if heading in SECTIONS] == SECTIONS


@pytest.mark.parametrize("page", OUR_PAGES)
def test_references_lead_somewhere(page):
    ours = {f"{path.stem} {path.suffix[1:]}" for path in pages()}
    references = {" ".join(arguments[:2]) for arguments in page.macros("Xr")}
    assert references - ours - OTHERS == set()
    own = f"{page.path.stem} {page.path.suffix[1:]}"
    assert own not in {" ".join(arguments[:2]) for arguments in page.macros("Xr", "SEE ALSO")}


def test_every_page_can_be_reached_from_the_overview():
    overview = Page(ROOT / "man" / "kestrova-system.7")
    references = {" ".join(arguments[:2]) for arguments in overview.macros("Xr")}
    assert {f"{path.stem} 3" for path in pages("*.3")} - references == set()


@needs("mandoc")
@pytest.mark.parametrize("path", pages(), ids=lambda path: path.name)
def test_mandoc_has_nothing_to_complain_of(path):
    result = run("mandoc", "-T", "lint", "-W", "warning", str(path))
    assert result.stdout + result.stderr == ""
    assert result.returncode == 0


@needs("mandoc")
def test_mandoc_complains_of_a_broken_page(tmp_path):
    page = tmp_path / "broken.3"
    page.write_text(pages("*.3")[0].read_text().replace(".Sh ERRORS", ".Sh ERRORS\n.Bl -tag"))
    assert "WARNING" in run("mandoc", "-T", "lint", "-W", "warning", str(page)).stdout


@needs("man")
@needs("groff")
@pytest.mark.parametrize("path", pages(), ids=lambda path: path.name)
def test_groff_has_nothing_to_complain_of(path):
    result = run("man", "--warnings", "-E", "UTF-8", "-l", str(path))
    assert result.stderr == ""
    assert result.returncode == 0
    assert len(result.stdout) > 500


@needs("g++")
@pytest.mark.parametrize("page", OUR_PAGES)
def test_examples_compile(page):
    assert page.examples()
    for example in page.examples():
        result = run("g++", "-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic",
                     "-Werror", f"-I{ROOT}", "-x", "c++", "-", input=example)
        assert result.returncode == 0, result.stderr
