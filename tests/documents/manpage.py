# SPDX-License-Identifier: MIT
"""Reads manual pages: sections, the declarations of the synopsis, the names that they describe."""

import re

from interface import normalised

LITERAL = re.compile(r"^\.Bd -literal.*?\n(.*?)^\.Ed$", re.M | re.S)
# The first line of a class, its name, and all between the braces.
CLASS = re.compile(r"^(?:class|struct) ([\w:]+)[^\n{;]*\{\n(.*?)^\};$", re.M | re.S)
PUNCTUATION = set(",.;:()")


def plain(text):
    """Returns literal text without its escapes, as a reader copies it."""
    signs = {"&": "", "-": "-", "(aq": "'", "(ga": "`", "(ha": "^", "(ti": "~", "e": "\\"}
    return re.sub(r"\\(\(..|.)", lambda found: signs[found[1]], text)


def declarations(code):
    code = code.replace("public:\n", "").replace("template <class T>\n", "")
    return {normalised(part) for part in code.split(";") if part.strip()}


class Page:
    def __init__(self, path):
        self.path = path
        self.name = path.name
        parts = re.split(r"^\.Sh (.*)\n", path.read_text(), flags=re.M)
        self.headings = parts[1::2]
        self.sections = dict(zip(self.headings, parts[2::2]))

    def macros(self, macro, section=None):
        """Returns the arguments of every use of a macro, including calls from a list item."""
        text = "".join(self.sections.values()) if section is None else \
            self.sections.get(section, "")
        found = []
        for line in LITERAL.sub("", text).splitlines():
            words = line[1:].split() if line.startswith(".") else []
            for at, word in enumerate(words):
                # A macro is called after .It, and after another macro of its kind.
                if word == macro and (at == 0 or words[0] in ("It", "Pq", macro)):
                    arguments = []
                    for argument in words[at + 1:]:
                        if set(argument) <= PUNCTUATION or argument in ("Pq", macro):
                            break
                        arguments.append(argument)
                    found.append(arguments)
        return found

    def values(self):
        """Returns the enumerators that are listed with their values."""
        return dict(re.findall(r"^\.It Dv (\w+) Pq (\d+)$", "".join(self.sections.values()), re.M))

    def described(self):
        """Returns the names of the items in the description's lists that have a text."""
        found = set()
        for heads, text in re.findall(r"((?:^\.(?:It|Fn|Xc).*\n)+)([^.].*|\.Pp)?",
                                      self.sections["DESCRIPTION"], re.M):
            if text:
                found |= set(re.findall(r"^\.(?:It )?(?:Fn|Va|Dv|Vt) (\S+)", heads, re.M))
        return found

    def names(self):
        return [arguments[0] for arguments in self.macros("Nm", "NAME")]

    def includes(self):
        return [arguments[0] for arguments in self.macros("In", "SYNOPSIS")]

    def synopsis(self):
        """Returns the declarations of each class in the synopsis; those outside a class are under ""."""
        found = {"": set()}
        for block in LITERAL.findall(self.sections.get("SYNOPSIS", "")):
            code = plain(block)
            for name, body in CLASS.findall(code):
                found[name] = declarations(body)
            found[""] |= declarations(CLASS.sub("", code))
        return found

    def examples(self):
        return [plain(block) for block in LITERAL.findall(self.sections.get("EXAMPLES", ""))]
