# SPDX-License-Identifier: MIT
"""The reference that is generated from the public headers: the site, and the manual pages of section 3.

The interface in the pages is compared with the headers, as read by Doxygen.
"""

import html
import pathlib
import re
import shutil
import subprocess

import pytest

from interface import Interface
from manpage import Page

ROOT = pathlib.Path(__file__).resolve().parents[2]
SECTIONS = ["NAME", "LIBRARY", "SYNOPSIS", "DESCRIPTION", "THREAD SAFETY", "EXAMPLES", "SEE ALSO"]
# Manual pages of others that ours point to.
OTHERS = {"blkid 8", "execve 2", "flock 1", "flock 2", "fsck.ext3 8", "getty 8", "hdparm 8",
          "mkfs.ext3 8", "mkfs.xfs 8", "mount 8", "perror 3", "sfdisk 8", "sync 2", "syslogd 8"}
OVERVIEW = ROOT / "man" / "kestrova-system.7"
# What the examples of the comments leave to the reader.
EXAMPLE_HEADERS = "#include <cstdio>\n#include <string>\n"


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
    # Even with warnings there is a site: only one test reports them, not all.
    folder = ROOT / "build" / "docs" / "xml"
    assert (folder / "index.xml").is_file(), site.stderr
    return Interface(folder)


@pytest.fixture(scope="session", name="manual")
def manual_fixture(tmp_path_factory):
    """The pages of section 3 by name."""
    if shutil.which("doxygen") is None:
        pytest.skip("doxygen is not installed")
    folder = tmp_path_factory.mktemp("man3")
    headers = re.search(r"^set\(KESTROVA_PUBLIC_HEADERS\n(.*?)\)",
                        (ROOT / "cmake" / "Library.cmake").read_text(), re.M | re.S)[1].split()
    made = run("python3", "script/manual.py", str(folder), *headers)
    assert (made.returncode, made.stdout + made.stderr) == (0, "")
    return {path.stem: Page(path) for path in sorted(folder.iterdir())}


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


def test_everything_public_has_a_page(manual, interface):
    pages = [page.synopsis() for page in manual.values()]
    shown = {name: found for page in pages for name, found in page.items() if name}
    assert set(shown) == set(interface.classes)
    for name, found in shown.items():
        assert found ^ interface.classes[name].declarations == set(), name
    in_the_open = set().union(*(owner.declarations for owner in interface.free.values()))
    assert in_the_open ^ set().union(*(page[""] for page in pages)) == set()


def test_a_page_describes_what_it_declares(manual, interface):
    """Each name is in a list, with text below it."""
    for page in manual.values():
        told = page.described()
        owners = [interface.classes[name] for name in page.synopsis() if name]
        for owner in owners:
            functions = {name for name in owner.functions
                         if not any(name in interface.classes[base].functions
                                    for base in owner.bases)}
            assert functions | owner.fields | set(owner.enumerators) <= told, page.name
    free = set().union(*({*owner.functions, *owner.enumerators} for owner in interface.free.values()))
    assert free - set().union(*(page.described() for page in manual.values())) == set()


def test_a_page_states_the_values_of_the_enumerators(manual, interface):
    enumerators = {name: value for owner in interface.everything()
                   for name, value in owner.enumerators.items() if value}
    stated = {name: value for page in manual.values() for name, value in page.values().items()}
    assert {name: stated.get(name) for name in enumerators} == enumerators


def test_a_page_is_named_after_what_it_describes(manual):
    for name, page in manual.items():
        assert page.names()[0] == name
        assert all((ROOT / header).is_file() for header in page.includes()) and page.includes()


def test_a_page_has_its_sections_in_order(manual):
    for page in manual.values():
        assert page.headings == [heading for heading in SECTIONS if heading in page.headings]
        assert {"NAME", "SYNOPSIS", "DESCRIPTION", "SEE ALSO"} <= set(page.headings)


def test_references_lead_somewhere(manual):
    ours = {f"{name} 3" for name in manual} | {"kestrova-system 7", "kestrova 1"}
    for page in [*manual.values(), Page(OVERVIEW)]:
        references = {" ".join(arguments[:2]) for arguments in page.macros("Xr")}
        assert references - ours - OTHERS == set(), page.name
        assert f"{page.path.stem} {page.path.suffix[1:]}" not in references


def test_every_page_can_be_reached_from_the_overview(manual):
    references = {arguments[0] for arguments in Page(OVERVIEW).macros("Xr") if arguments[1] == "3"}
    assert set(manual) - references == set()


def test_the_overview_names_nothing_that_is_not_there(interface):
    page = Page(OVERVIEW)
    functions = set().union(*(owner.functions for owner in interface.everything()))
    assert {arguments[0] for arguments in page.macros("Fn")} <= functions
    fields = set().union(*(owner.fields for owner in interface.everything()))
    assert {arguments[0] for arguments in page.macros("Va")} <= fields


@needs("mandoc")
def test_mandoc_has_nothing_to_complain_of(manual):
    result = run("mandoc", "-T", "lint", "-W", "warning", str(OVERVIEW),
                 *(str(page.path) for page in manual.values()))
    assert (result.returncode, result.stdout + result.stderr) == (0, "")


@needs("mandoc")
def test_mandoc_complains_of_a_broken_page(tmp_path):
    page = tmp_path / "broken.7"
    page.write_text(OVERVIEW.read_text().replace(".Sh FILES", ".Sh FILES\n.Bl -tag"))
    assert "WARNING" in run("mandoc", "-T", "lint", "-W", "warning", str(page)).stdout


@needs("man")
@needs("groff")
def test_groff_has_nothing_to_complain_of(manual):
    for path in [OVERVIEW, *(page.path for page in manual.values())]:
        result = run("man", "--warnings", "-E", "UTF-8", "-l", str(path))
        assert (result.returncode, result.stderr) == (0, ""), path.name
        assert len(result.stdout) > 500


@needs("g++")
def test_examples_compile(manual):
    shown = [page for page in [*manual.values(), Page(OVERVIEW)] if page.examples()]
    assert len(shown) > 1
    for page in shown:
        headers = [f"#include <{name}>\n" for name in page.includes()]
        if "BlockdeviceConfig" in page.examples()[0]:
            headers.append("#include <System/BlockdevCfg.fmp.h>\n")
        code = EXAMPLE_HEADERS + "".join(headers) + page.examples()[0]
        result = run("g++", "-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic",
                     "-Werror", f"-I{ROOT}", "-x", "c++", "-", input=code)
        assert result.returncode == 0, result.stderr
