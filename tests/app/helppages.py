# SPDX-License-Identifier: MIT
"""Reads what `kestrova --help` and `kestrova COMMAND --help` print."""

import re
import shlex

GROUPS = ["drive", "vars", "serial", "syslog"]


def section(text, title):
    """Returns the non-empty lines of a section."""
    found = re.search(rf"^{title}:\n((?:  .*\n)*)", text, re.M)
    return found[1].splitlines() if found else []


def arguments(text):
    """Returns the names of the arguments and of its own options' values, and whether one is repeated."""
    usage = text.split("\n\n", 1)[0].replace("[OPTION...]", "")
    values = re.findall(r"^  [-\w,]+ ([A-Z]+)  ", "\n".join(section(text, "Options of this command")),
                        re.M)
    return re.findall(r"[A-Z]{3,}", usage) + values, "..." in usage


def commands(text):
    """Returns the commands of a page, without their arguments."""
    words = r"  ([a-z](?:[a-z-]| (?! ))*[a-z])(?: --)?(?: [][A-Z.]+)*  "
    return [re.match(words, line)[1] for line in section(text, "Commands")]


def options(text, title="Options"):
    """Returns the options of a section: all names of each, and whether a value follows."""
    found = {}
    for line in section(text, title):
        names, value = re.match(r" +((?:-\w,)?--?[\w-]+)( [A-Z]+)?  ", line).groups()
        found.update({name: bool(value) for name in names.split(",")})
    return found


def own_options(text):
    return options(text, "Options of this command")


def statuses(text):
    return [line.split()[0] for line in section(text, "Exit status")]


def is_good(kestrova, line):
    """Returns whether a command line of an example can be parsed. A bad option is appended, so that
    nothing is run, and what the surrounding shell removes is removed."""
    words = shlex.split(re.sub(r" [<>][A-Z]+$", "", line))
    script = words[words.index("-e") + 1] if "-e" in words else shlex.join(words[1:])
    run = kestrova("--minimal", "shell", "-e", f"{script}; table --bogus")
    return words[0] == "kestrova" and re.search(
        "unknown option '--bogus'|--yes is needed|no shell in|URLs are arguments", run.stderr)
