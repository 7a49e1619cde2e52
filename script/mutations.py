# SPDX-License-Identifier: MIT
"""The changes that script/mutants makes: one token, argument pair or statement of a source."""

import dataclasses
import re

SWAPPED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||",
           "||": "&&", "+": "-", "-": "+", "+=": "-=", "-=": "+=", "|": "&", "|=": "&=",
           "/": "*", "%": "/", "<<": ">>", ">>": "<<"}
OPERATOR = re.compile(r"(?<= )(" + "|".join(map(re.escape, sorted(SWAPPED, key=len, reverse=True)))
                      + r")(?= )")
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9a-fA-F]+|\d+)(?=[uUlL]*(?![\w.']))")
WORD = re.compile(r"\b(true|false)\b")
NOT = re.compile(r"!(?=[\w(:])")
STEP = re.compile(r"(\+\+|--)(?=\w)|(?<=\w)(\+\+|--)")
PAIR = re.compile(r"(?<=\w\()([\w.>-]+), ([\w.>-]+)(?=\))")
STATEMENT = re.compile(r"^\s+((?!return|delete|throw|using|static_assert|case|else|goto)[\w:.>*\[\]-]+"
                       r"(\(.*\)| [-+|&]?= .*)|delete .*|break|continue);$")
# Lines that are not statements of a function, where a change would not change the behaviour.
DECLARATION = re.compile(r"^\s*(#|//|using |namespace |extern |template|static_assert|class |struct |enum )")


@dataclasses.dataclass(frozen=True)
class Mutation:
    """Replaces columns [begin, end) of a line (from 0) with a text."""
    file: str
    line: int
    begin: int
    end: int
    text: str

    def apply(self, lines):
        line = lines[self.line]
        return (lines[:self.line] + [line[:self.begin] + self.text + line[self.end:]]
                + lines[self.line + 1:])


def blanked(text):
    """Returns the text with blanks instead of comments, strings and characters."""
    token = re.compile(r'//[^\n]*|/\*.*?\*/|R"\(.*?\)"|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])+\'',
                       re.DOTALL)

    def blank(match):
        found = match.group()
        if found[0] in "\"'":
            return found[0] + "_" * (len(found) - 2) + found[-1]
        return re.sub(r"[^\n]", " ", found)
    return token.sub(blank, text)


def changed_number(text):
    value = int(text, 0) if text.startswith("0x") else int(text, 10)
    return {0: "1", 1: "0"}.get(value, str(value + 1))


def in_line(line):
    """Yields (begin, end, text) of every change of one line."""
    for match in OPERATOR.finditer(line):
        yield *match.span(), SWAPPED[match.group()]
    for match in NUMBER.finditer(line):
        yield *match.span(1), changed_number(match.group(1))
    for match in WORD.finditer(line):
        yield *match.span(), "false" if match.group() == "true" else "true"
    for match in NOT.finditer(line):
        yield *match.span(), ""
    for match in STEP.finditer(line):
        yield *match.span(), "--" if match.group() == "++" else "++"
    for match in PAIR.finditer(line):
        if match.group(1) != match.group(2):
            yield *match.span(), f"{match.group(2)}, {match.group(1)}"
    match = STATEMENT.match(line)
    if match and line.count("(") == line.count(")"):
        yield match.start(1), match.end() - 1, ""


def of_file(name, text):
    """Returns every mutation of a source, in the order of its lines."""
    result = []
    for number, line in enumerate(blanked(text).split("\n")):
        if not DECLARATION.match(line):
            result += [Mutation(name, number, *change) for change in in_line(line)]
    return result
