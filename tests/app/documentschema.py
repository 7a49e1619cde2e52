# SPDX-License-Identifier: MIT
"""The schema of the command's JSON documents; the output of the tests is checked against it."""

import json
import os
import pathlib

try:
    import jsonschema
except ImportError:  # its own test is then skipped, and the others run without the check
    jsonschema = None

PATH = pathlib.Path(__file__).resolve().parents[2] / "docs/kestrova.schema.json"
TEXTS = {"--help", "-h", "help", "--version"}
SCHEMA = json.loads(PATH.read_text(encoding="utf-8"))


def definition(command):
    """Returns the name of a command's definition."""
    return command.replace(" ", "-")


def validate(document):
    """Fails with the error, according to the command's own definition, which is more specific."""
    command = document.get("command", "misuse")
    schema = {"$ref": f"#/$defs/{definition(command)}", "$defs": SCHEMA["$defs"]}
    jsonschema.Draft202012Validator(schema).validate(document)
    jsonschema.Draft202012Validator(SCHEMA).validate(document)


def check(arguments, output):
    """Checks the command's output if its arguments request JSON; help is always text."""
    words = [os.fsdecode(word) for word in arguments]
    if jsonschema is None or "--json" not in words or TEXTS & set(words):
        return
    text = output if isinstance(output, str) else output.decode()
    for line in text.splitlines():
        validate(json.loads(line))
