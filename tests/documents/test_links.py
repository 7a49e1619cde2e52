# SPDX-License-Identifier: MIT
"""Every link between the documents leads somewhere."""

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
