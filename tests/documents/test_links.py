# SPDX-License-Identifier: MIT
"""Every link between the documents has a target."""

import re

import pytest

import documents

LEADS_OUT = ("http://", "https://", "mailto:")


@pytest.mark.parametrize("name", documents.markdown_files())
def test_links_lead_to_what_is_there(name):
    text = documents.read(name)
    lost = []
    for target in documents.links(text):
        if target.startswith(LEADS_OUT):
            continue
        file, _, anchor = target.partition("#")
        path = (documents.ROOT / name).parent / file if file else documents.ROOT / name
        if not path.exists() or not path.resolve().is_relative_to(documents.ROOT):
            lost.append(target)
        elif anchor and (path.suffix != ".md"
                         or anchor not in documents.anchors(path.read_text())):
            lost.append(target)
    assert not lost


PATH = re.compile(r"(app|base|bench|box|cmake|completion|docs|examples|fuzz|man|packaging|script|System"
                  r"|tests)(/[\w.*+-]+)+/?")


@pytest.mark.parametrize("name", [name for name in documents.markdown_files()
                                  if name != "CHANGELOG.md"])     # which has a past
def test_paths_in_the_text_are_there(name):
    """A span of code that is a path of this tree, optionally followed by arguments, names a file, a
    directory, or with a pattern several. A message names its source without the extension."""
    named = {match[0].rstrip("/") for span in documents.code_spans(documents.read(name))
             if (match := PATH.fullmatch(span.split()[0]))}
    lost = {path for path in named
            if not [*documents.ROOT.glob(path), *documents.ROOT.glob(f"{path}.cpp")]}
    assert not lost


def test_every_document_is_reachable_from_the_readme():
    seen, found = set(), ["README.md"]
    while found:
        name = found.pop()
        if name in seen or not name.endswith(".md"):
            continue
        seen.add(name)
        for target in documents.links(documents.read(name)):
            path = (documents.ROOT / name).parent / target.partition("#")[0]
            if not target.startswith((*LEADS_OUT, "#")) and path.is_file():
                found.append(str(path.resolve().relative_to(documents.ROOT)))
    assert set(documents.markdown_files()) == seen


def test_the_reader_of_documents():
    text = ("# One `two` (3)\n## Same\n## Same\n```\n# no\n[a](no.md)\n```\n"
            "[b](c.md#d) ![e](f.svg) `[g](h)`\n[i]: j.md\n| a | b |\n| --- | --- |\n| 1 | ` 2` |\n")
    assert documents.anchors(text) == {"one-two-3", "same", "same-1"}
    assert documents.links(text) == ["c.md#d", "f.svg", "j.md"]
    assert documents.rows(text) == [["1", "` 2`"]]
    assert documents.section(text, "Same").strip() == ""
    assert documents.code_spans("a `` b`c `` d `e` ` f`") == ["b`c", "e", " f"]
