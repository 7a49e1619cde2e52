# SPDX-License-Identifier: MIT
"""Reads the documents: tables, code, headings, links."""

import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
CODE_SPAN = re.compile(r"(?<!`)(`+)(?!`)(.+?)(?<!`)\1(?!`)")
FENCE = re.compile(r"^(```+|~~~+)(\w*)[^\n]*\n(.*?)^\1[ \t]*$", re.M | re.S)


def read(name):
    return (ROOT / name).read_text()


def markdown_files():
    listed = subprocess.run([ROOT / "script" / "sources"], capture_output=True, text=True,
                            check=True).stdout
    return sorted(name for name in listed.splitlines() if name.endswith(".md"))


def code_blocks(text):
    """Returns (language, content) of every fenced block, in order."""
    return [(match[2], match[3]) for match in FENCE.finditer(text)]


def without_code_blocks(text):
    return FENCE.sub("", text)


def code_spans(text):
    """Returns the contents of all code spans, without the blank on each side that a span with
    backticks may have."""
    spans = [match[2] for match in CODE_SPAN.finditer(text)]
    return [span[1:-1] if span[0] == span[-1] == " " and span.strip() else span for span in spans]


def rows(text):
    """Returns the cells of every table row, without the headings and their lines."""
    found = []
    lines = without_code_blocks(text).splitlines()
    for line, following in zip(lines, lines[1:] + [""]):
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        rule = all(re.fullmatch(r":?-+:?", cell) for cell in cells)
        heading = re.fullmatch(r"\|[ :|-]+\|", following.strip())
        if line.startswith("|") and not rule and not heading:
            found.append(cells)
    return found


def section(text, heading):
    """Returns the text under a heading, up to the next one of its rank or above."""
    start = re.search(rf"^(#+) {re.escape(heading)}\n", text, re.M)
    assert start, f"no section {heading}"
    end = re.search(rf"^#{{1,{len(start[1])}}} ", text[start.end():], re.M)
    return text[start.end():][:end.start() if end else None]


def anchors(text):
    """Returns the link anchors of the headings of a document, as forges generate them."""
    found = set()
    for heading in re.findall(r"^#{1,6} +(.+?) *#*$", without_code_blocks(text), re.M):
        plain = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).replace("`", "")
        anchor = re.sub(r"[^\w\- ]", "", plain.lower()).replace(" ", "-")
        number = sum(1 for other in found if re.fullmatch(rf"{re.escape(anchor)}(-\d+)?", other))
        found.add(f"{anchor}-{number}" if anchor in found else anchor)
    return found


def links(text):
    """Returns the targets of all links and images, inline and by reference."""
    prose = re.sub(CODE_SPAN, "", without_code_blocks(text))
    return re.findall(r"\]\(<?([^)\s>]+)>?(?: +\"[^\"]*\")?\)", prose) + \
        re.findall(r"^\[[^\]]+\]:\s*<?(\S+?)>?(?:\s|$)", prose, re.M) + \
        re.findall(r"(?:src|href)=\"([^\"]+)\"", prose)
