# SPDX-License-Identifier: MIT
"""Every command's JSON document, for success and for failure, against the schema."""

import copy
import json

import pytest

import documentschema
import helppages
from bootpartition import image, record
from httpserver import reply

jsonschema = pytest.importorskip("jsonschema")

DEFINITIONS = documentschema.SCHEMA["$defs"]
FULL = image(record(b"a", b"v" * (65524 - 4)))
DAMAGED = image(record(b"syslog", b"10.0.0.7"), crc=0)
GOOD, BAD = False, True  # whether a document has an error

# The place, its state, the command's words, and its documents.
CASES = [
    ("plain", None, ["table"], [("table", GOOD)]),
    ("plain", None, ["run", "exit 3"], [("run", GOOD)]),
    ("plain", None, ["run", "kill -9 $$"], [("run", GOOD)]),
    ("plain", None, ["bogus"], [("misuse", BAD)]),
    ("plain", None, ["--minimal", "shell", "-e", "table; run true"],
     [("table", GOOD), ("run", GOOD)]),
    ("plain", None, ["fetch", "URL", "-o", "/dev/null"], [("fetch", GOOD)]),
    ("plain", None, ["fetch", "URLmore", "-o", "/dev/null"], [("fetch", BAD)]),
    ("plain", None, ["fetch", "URL", "-o", "/absent/file"], [("fetch", BAD)]),
    ("plain", None, ["fetch", "URL"], [("fetch", BAD)]),
    ("plain", None, ["fetch-all", "URL"], [("fetch-all", GOOD)]),
    ("plain", None, ["fetch-all", "URL", "URLmore"], [("fetch-all", BAD)]),
    ("plain", None, ["fetch-all", "-d", "/absent", "URL"], [("fetch-all", BAD)]),
    ("drive", "formatted", ["shell", "-e", "drive info; drive status; drive start; drive status; "
                            "drive stop; drive watch; drive spin-up; drive spin-down; drive "
                            "partition --yes 100 rest; drive format --yes; drive start --no-wait; "
                            "drive watch; drive info; drive stop"],
     [(f"drive {word}", GOOD) for word in [
         "info", "status", "start", "status", "stop", "watch", "spin-up", "spin-down", "partition",
         "format", "start", "watch", "info", "stop"]]),
    ("drive", "formatted", ["drive", "with", "--", "true"], [("drive with", GOOD)]),
    ("drive", "blank", ["drive", "check", "0"], [("drive check", GOOD)]),
    # Partitioned elsewhere, with logical partitions.
    ("drive", "crowded", ["shell", "-e", "drive info; drive check 5"],
     [("drive info", GOOD), ("drive check", GOOD)]),
    ("drive", "fsck.ext3", ["drive", "check", "0"], [("drive check", BAD)]),
    ("drive", "mkfs.xfs", ["drive", "format", "--yes"], [("drive format", BAD)]),
    ("drive", "mkfs.xfs", ["shell", "-e", "drive format --yes --no-wait; drive watch"],
     [("drive format", GOOD), ("drive watch", BAD)]),
    ("drive", "blank", ["drive", "start"], [("drive start", BAD)]),
    ("drive", "mount", ["drive", "start"], [("drive start", BAD)]),
    ("drive", "blank", ["drive", "stop"], [("drive stop", BAD)]),
    ("drive", "sfdisk", ["drive", "partition", "--yes", "100"], [("drive partition", BAD)]),
    *[("plain", None, ["--minimal", "drive", *words.split()],
       [(f"drive {words.split()[0]}", BAD)])
      for words in ["info", "status", "partition --yes 1", "format --yes", "start", "stop", "watch",
                    "with true", "check 0", "spin-down", "spin-up"]],
    ("box", image(record(b"a", b"AAEC")),
     ["shell", "-e", "vars list; vars get a; vars get-binary a; vars set b 1 d 2; vars set-binary c "
      "/state/file; vars clear b; vars import /dev/null; vars export; vars --file /state/env create; "
      "vars verify /state/file; vars --file /state/env verify"],
     [(f"vars {word}", GOOD) for word in [
         "list", "get", "get-binary", "set", "set-binary", "clear", "import", "export", "create",
         "verify", "verify"]]),
    ("box", DAMAGED, ["vars", "export"], [("vars export", BAD)]),
    ("plain", None, ["vars", "import", "/absent"], [("vars import", BAD)]),
    ("plain", None, ["vars", "create", "--file", "/absent/env"], [("vars create", BAD)]),
    ("plain", None, ["vars", "verify", "--file", "/absent/env"], [("vars verify", BAD)]),
    ("box", image(record(b"a", b"1")), ["vars", "get", "none"], [("vars get", BAD)]),
    ("box", image(record(b"a", b"1")), ["vars", "get-binary", "a"], [("vars get-binary", BAD)]),
    ("box", DAMAGED, ["vars", "list"], [("vars list", BAD)]),
    ("box", FULL, ["vars", "set", "b", "1"], [("vars set", BAD)]),
    ("box", FULL, ["vars", "set-binary", "b", "/state/file"], [("vars set-binary", BAD)]),
    ("box", None, ["vars", "clear", "b"], [("vars clear", BAD)]),
    ("box", DAMAGED, ["vars", "verify", "/state/file"], [("vars verify", BAD)]),
    ("box", FULL, ["vars", "verify", "/state/absent"], [("vars verify", BAD)]),
    ("box", image(), ["shell", "-e", "serial count; serial login 0; syslog set 10.0.0.1; "
                      "syslog show; syslog apply; syslog clear; syslog apply; production"],
     [("serial count", GOOD), ("serial login", GOOD), ("syslog set", GOOD), ("syslog show", GOOD),
      ("syslog apply", GOOD), ("syslog clear", GOOD), ("syslog apply", GOOD),
      ("production", GOOD)]),
    ("box", image(), ["serial", "login", "5"], [("serial login", BAD)]),
    ("box", image(), ["syslog", "show"], [("syslog show", BAD)]),
    ("box", FULL, ["syslog", "set", "10.0.0.1"], [("syslog set", BAD)]),
    ("box", DAMAGED, ["syslog", "clear"], [("syslog clear", BAD)]),
    ("box", DAMAGED, ["syslog", "apply"], [("syslog apply", BAD)]),
    ("box", "bare", ["production"], [("production", BAD)]),
]
NEVER_FAIL = {"table", "serial count"}
# The shell always exists if the tests can run.
NOT_HAD = {"run"}


def commands(kestrova):
    return set(helppages.commands(kestrova("--help").stdout))


def run_plain(request, _, words):
    server = request.getfixturevalue("scripted")
    urls = {"URL": server.add("good", reply(b"12345", 5, Content_Type="a/b")),
            "URLmore": server.add("cut", reply(b"12345", 6))}
    return request.getfixturevalue("kestrova")("--json", *[urls.get(word, word) for word in words])


def run_drive(request, state, words):
    drive = request.getfixturevalue("fake_drive")
    if state in ["blank", "fsck.ext3"]:
        drive.table([256, 512])
    elif state == "crowded":
        drive.table([64, 64, 64, 64, 64, 64])
    else:
        drive.formatted()
    if "." in state or state in ["mount", "sfdisk"]:
        drive.fail(state)
    return drive.run("--json", *words)


def run_box(request, content, words):
    maintain = request.getfixturevalue("maintain")
    if content not in [None, "bare"]:
        maintain.partition.put("boot_env", content)
    if content != "bare":
        (maintain.partition.state / "noptest").touch()
    if content is None:
        return maintain.partition.run("--json", *words, hide=True)
    return maintain("--json", *words, nodes="ttyS0")


RUN = {"plain": run_plain, "drive": run_drive, "box": run_box}


@pytest.mark.parametrize("place,state,words,expected", CASES,
                         ids=[" ".join(case[2])[:40] for case in CASES])
def test_documents(request, place, state, words, expected):
    run = RUN[place](request, state, words)
    documents = [json.loads(line) for line in run.stdout.splitlines()]
    for document in documents:
        documentschema.validate(document)
    assert [(document.get("command", "misuse"), "error" in document)
            for document in documents] == expected, run


@pytest.mark.parametrize("place,state,words,expected", [
    case for case in CASES if case[2][0] in ["table", "fetch"]])
def test_members_are_exactly_those_of_the_schema(request, place, state, words, expected):
    """An additional or a missing member is an error."""
    document = json.loads(RUN[place](request, state, words).stdout)
    spoilt = [{**document, "surprise": 1}]
    for name in set(document) - {"error", "command"}:
        spoilt.append({key: value for key, value in document.items() if key != name})
    if "devices" in document:
        spoilt += [copy.deepcopy(document), copy.deepcopy(document)]
        spoilt[-1]["devices"][0]["partitions"][1]["surprise"] = 1
        del spoilt[-2]["devices"][0]["id"]
    assert document.get("command") == expected[0][0] and len(spoilt) > len(document) - 2
    for one in spoilt:
        with pytest.raises(jsonschema.ValidationError):
            jsonschema.Draft202012Validator(documentschema.SCHEMA).validate(one)


def test_every_command_is_among_the_cases(kestrova):
    tried = [document for *_, documents in CASES for document in documents]
    all_commands = commands(kestrova) - {"shell"}
    assert {name for name, error in tried if not error} == all_commands
    failed = {name for name, error in tried if error} - {"misuse"}
    assert failed == all_commands - NEVER_FAIL - NOT_HAD
    for name in all_commands:
        members = DEFINITIONS[documentschema.definition(name)]["properties"]
        assert ("error" in members) == (name not in NEVER_FAIL)


def test_every_command_has_a_definition(kestrova):
    described = {definition["properties"]["command"]["const"]: name
                 for name, definition in DEFINITIONS.items()
                 if "const" in definition.get("properties", {}).get("command", {})}
    assert described == {name: documentschema.definition(name)
                         for name in commands(kestrova) - {"shell"}}
    assert {reference["$ref"] for reference in documentschema.SCHEMA["anyOf"]} == {
        f"#/$defs/{name}" for name in ["misuse", *described.values()]}
    assert DEFINITIONS["shell"]["$ref"] == "#"


def test_the_schema_is_one_and_describes_every_member():
    jsonschema.Draft202012Validator.check_schema(documentschema.SCHEMA)
    for name, definition in DEFINITIONS.items():
        assert definition["description"].endswith("."), name
        for member, schema in definition.get("properties", {}).items():
            referred = DEFINITIONS[schema["$ref"].split("/")[-1]] if "$ref" in schema else schema
            assert referred["description"].endswith("."), (name, member)
        if definition.get("type") == "object":
            assert definition["additionalProperties"] is False, name
