# SPDX-License-Identifier: MIT
"""Finds every message that the library's sources can write.

A message is a pair (text, way): the text is the format string without its newline, and the way is a
level ("1", "2"), a level after a context line ("1 @", "2 @"), "assertion" or "attention" for the
condition of such a check, "perror", "stderr", "stdout", or "format" for a line into which others
are formatted. NO_END follows the way of a text without a newline.
"""

import ast
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
NO_END = ", no line end"

# Functions that write a message: the argument with the text, and the level or stream. A number
# after "level" is the argument with the level.
WRITERS = {
    "base::logMessage": (1, "level 0"),
    "base::logMessageAt": (3, "level 2 @"),
    "base::logNameAt": (3, "level 2 @"),
    "base::reportFailedAssertion": (2, "assertion"),
    "base::reportFailedAssertionWithValues": (2, "assertion"),
    "base::reportFailedAttention": (2, "attention"),
    "base::reportInChild": (0, "perror"),
    "reportInChild": (0, "perror"),
    "std::perror": (0, "perror"),
    "mountAs": (4, "perror"),
    "std::fputs": (0, "stderr"),
    "std::puts": (0, "stdout"),
    "std::printf": (0, "stdout"),
}

# Arguments that are not literals here, because the literal is in the caller.
PASSED_ON = {
    ("System/bootvarsmanager/softwarepartition.cpp", "failure"),    # of mountAs
    ("base/process/childprocess.cpp", "settings.mFailureText"),     # of a ChildSettings
    ("base/process/tool.cpp", '"%s"'),                              # of a ToolCommand
    ("base/io/file.cpp", "path"),                                   # nobody in the library asks
}

# The only places that write by other means, and what they write.
OTHER_MEANS = re.compile(r"\b(?:writeConsole|kestrova_print_\w+|beginMessageAt|logBytes|[fdv]printf|putchar)\("
                         r"|\bstd::c(?:out|err|log)\b|\bSTD(?:OUT|ERR)_FILENO, ")
BY_OTHER_MEANS = {
    "System/BlockdevCfg.fmp.cpp": [(r'console << ("[^\\"]+")', "2 @")],
    "System/bootvarsmanager/sysBootVarsManager.cpp": [],    # "Setting key %s %s" in pieces
    "System/drivemanager/partitionformat.cpp": [(r'logBytes\(1, ()output', "1" + NO_END)],
    "base/process/childprocess.cpp": [],        # the child's perror
    "base/log/console.cpp": [],  # the end of all output
    "base/log/console.h": [],
    "base/log/log.cpp": [(r'("%s:%d [^\n]*\\n")', "format")],
    "base/log/log.h": [],
    "base/stream.cpp": [],
}

STRING = re.compile(r'"(?:[^"\\\n]|\\.)*"')
TOKEN = re.compile(r"//[^\n]*|/\*.*?\*/|" + STRING.pattern + r"|'(?:[^'\\\n]|\\.)+'", re.S)


def sources():
    return sorted(path for folder in ("System", "base") for path in (ROOT / folder).rglob("*")
                  if path.suffix in (".cpp", ".h"))


def without_comments(text):
    """Replaces comments with blanks; strings and line numbers stay."""
    return TOKEN.sub(lambda match: re.sub(r"[^\n]", " ", match[0])
                     if match[0].startswith("/") else match[0], text)


def arguments(text, start):
    """Returns the arguments of a call whose opening bracket is at `start`, as texts."""
    depth, parts, position, begin = 0, [], start, start + 1
    while True:
        token = TOKEN.match(text, position)
        if token:
            position = token.end()
            continue
        character = text[position]
        if character in "([{":
            depth += 1
        elif character in ")]}":
            depth -= 1
            if depth == 0:
                return [part.strip() for part in parts + [text[begin:position]]]
        elif character == "," and depth == 1:
            parts.append(text[begin:position])
            begin = position + 1
        position += 1


def literal(argument):
    """Returns the value of an argument that consists of string literals; None for any other."""
    pieces = STRING.findall(argument)
    if not pieces or STRING.sub("", argument).strip():
        return None
    return "".join(ast.literal_eval(piece) for piece in pieces)


def told(text, way):
    ended = text.endswith("\n") or way in ("perror",)
    return text.removesuffix("\n"), way + ("" if ended else NO_END)


def of_call(name, given, place):
    position, way = WRITERS[name]
    if (place, given[position]) in PASSED_ON:
        return []
    text = literal(given[position])
    assert text is not None, f"{place}: the text of {name}({given[position]}) is not known"
    kind, _, rest = way.partition(" ")
    if kind == "level":
        number, _, mark = rest.partition(" ")
        level = given[int(number)]
        assert level in ("1", "2"), f"{place}: {name} at level {level}"
        if name == "base::logNameAt":
            text += "%s\n"  # the name, and a newline
        return [told(text, level + (" " + mark if mark else ""))]
    if kind in ("assertion", "attention"):
        values = [literal(piece) for piece in given[position + 1:]]
        return [(piece, kind) for piece in [text, *values] if piece]
    if name == "std::puts":
        text += "\n"
    return [told(text, way)]


def of_file(path):
    place = str(path.relative_to(ROOT))
    text = without_comments(path.read_text())
    found = []
    if place not in ("base/log/log.cpp", "base/log/log.h", "base/process/childprocess.h"):
        for match in re.finditer(r"(?<![\w:])((?:base::|std::|::)?\w+)\(", text):
            if match[1] in WRITERS and not re.search(r"\b(void|bool) $", text[:match.start()]):
                found += of_call(match[1], arguments(text, match.end() - 1), place)
    # Texts in the settings of a tool or of another child: for perror(), or for a message.
    for field, way in (("mExecFailure", "perror"), ("mFailureText", "perror"),
                       ("mStreamFailure", "1")):
        found += [told(literal(piece), way)
                  for piece in re.findall(rf"\.{field} = ({STRING.pattern})", text)]
    for pattern, way in BY_OTHER_MEANS.get(place, []):
        pieces = re.findall(pattern, text)
        assert pieces, f"{place}: no {pattern}"
        found += [((literal(piece) or "%c").removesuffix("\n"), way) for piece in pieces]
    return found


def places_of_other_means():
    return {str(path.relative_to(ROOT)) for path in sources()
            if OTHER_MEANS.search(without_comments(path.read_text()))}


def all_messages():
    return {message for path in sources() for message in of_file(path)}
