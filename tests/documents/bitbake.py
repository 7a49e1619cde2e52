# SPDX-License-Identifier: MIT
"""A small parser of bitbake's files: only assignments, inherit and functions."""

import re

ASSIGNMENT = re.compile(r"(?P<name>[A-Za-z_][\w${}:.-]*(?:\[[\w-]+\])?)\s*"
                        r"(?P<how>\?\?=|\?=|:=|\+=|=\+|\.=|=\.|=)\s*(?P<quote>[\"'])(?P<value>.*)"
                        r"(?P=quote)", re.S)
FUNCTION = re.compile(r"(?P<name>[a-z_][\w:-]*|python )\(\) \{")
PYTHON = re.compile(r"def \w+\(\w+\):")
INHERIT = re.compile(r"inherit (?P<classes>[\w .-]+)")


class Recipe:
    """The contents of a file. Raises SyntaxError for lines that bitbake would reject."""

    def __init__(self, path):
        self.variables, self.functions, self.inherited = {}, {}, []
        self.python = ""    # the functions that begin with def
        self._lines = path.read_text().splitlines()
        self._number = 0
        while self._number < len(self._lines):
            self._statement(self._next(), path)

    def _next(self):
        line = self._lines[self._number]
        self._number += 1
        return line

    def _statement(self, line, path):
        while line.endswith("\\") and not line.startswith("#"):
            line = line[:-1] + self._next()
        if not line.strip() or line.startswith("#"):
            return
        if match := FUNCTION.fullmatch(line):
            body = []
            while (inner := self._next()) != "}":
                body.append(inner)
            self.functions[match["name"].strip()] = "\n".join(body) + "\n"
        elif PYTHON.fullmatch(line):
            self.python += line + "\n"
            while self._number < len(self._lines) and self._lines[self._number].startswith(" "):
                self.python += self._next() + "\n"
        elif match := INHERIT.fullmatch(line):
            self.inherited += match["classes"].split()
        elif (match := ASSIGNMENT.fullmatch(line)) and match["quote"] not in match["value"]:
            self._assign(match["name"], match["how"], match["value"])
        else:
            raise SyntaxError(f"{path}, line {self._number}: {line}")

    def _assign(self, name, how, value):
        old = self.variables.get(name, "")
        if how == "+=":
            value = f"{old} {value}"
        elif how == "=+":
            value = f"{value} {old}"
        elif how == ".=":
            value = old + value
        elif how in ("?=", "??=") and name in self.variables:
            return
        self.variables[name] = value

    def words(self, name):
        """Returns the words of a variable, which the recipe must set."""
        return self.variables[name].split()
