# SPDX-License-Identifier: MIT
"""The check of a boot environment file: the problems, and their positions."""

import json

import pytest

from bootpartition import image, record

GOOD = image(record(b"a", b"1"), record(b"bb", b"22"))

PROBLEMS = [
    (b"", 0, "ends within the header"),
    (GOOD[:11], 11, "ends within the header"),
    (image(flags=0x01ffffff), 3, "bad flags"),
    (image(flags=0x0000ffff), 2, "bad flags"),
    (image(record(b"a", b"1"), crc=0x12345678), 4, "bad checksum: 12345678"),
    (GOOD[:-1], 8, "bad size: 12, but the file holds only 11"),
    (image(size=65525), 8, "bad size: 65525, at most 65524"),
    (image(size=0xffffffff), 8, "bad size: 4294967295"),
    (image(record(b"a", b"1"), size=0), 8, "bad size: 0, but a checksum and 5 bytes"),
    (image(record(b"a", b"v" * 65521)), 65536, "longer than 65536"),
    (image(record(b"a", b"1"), b"tail"), 17, "a name does not end"),
    (image(record(b"a", b"1"), b"b\0value"), 17, "'b' does not end"),
    (image(record(b"a", b"1"), b"b\0value\0"), 17, "'b' does not end"),
    (image(record(b"a", b"1"), b"b\0y\0z"), 21, "the second 0 behind the value of 'b'"),
]
NOTES = [
    (GOOD + b"pad", 24, "3 bytes behind the variables"),
    (image() + bytes(4), 12, "4 bytes behind the variables"),
    (image(record(b"a", b"1"), record(b"a", b"2")), 17, "'a' is there again"),
    (image(record(b"a", b"")), 12, "'a' is empty"),
    (image(record(b"", b"1")), 12, "without a name"),
]


@pytest.fixture
def verify(kestrova, tmp_path):
    """Returns a function that checks an image: exit status and JSON document; the text must agree."""

    def run(content):
        file = tmp_path / "image"
        file.write_bytes(content)
        text = kestrova("vars", "verify", file)
        result = kestrova("--json", "vars", "verify", file)
        assert result.returncode == text.returncode
        document = json.loads(result.stdout)
        assert document["command"] == "vars verify" and document["file"] == str(file)
        assert document["good"] == (text.returncode == 0) == ("error" not in document)
        for kind in ["problem", "note"]:
            for remark in document[kind + "s"]:
                line = f"  {kind} at offset {remark['offset']}: {remark['text']}\n"
                assert line in text.stdout
        return text.returncode, document

    return run


@pytest.mark.parametrize("content,count", [
    (GOOD, 2), (image(), 0), (image(record(b"a", b"v" * 65520)), 1), (image(crc=1), 0)])
def test_good(verify, content, count):
    status, document = verify(content)
    assert (status, document["count"]) == (0, count)
    assert document["problems"] == document["notes"] == []


@pytest.mark.parametrize("content,offset,words", PROBLEMS)
def test_problem(verify, content, offset, words):
    status, document = verify(content)
    assert status == 1
    found = [remark["text"] for remark in document["problems"] if remark["offset"] == offset]
    assert any(words in text for text in found), document


@pytest.mark.parametrize("content,offset,words", NOTES)
def test_note(verify, content, offset, words):
    status, document = verify(content)
    assert status == 0
    assert [remark["offset"] for remark in document["notes"]] == [offset]
    assert words in document["notes"][0]["text"]


def test_names_do_not_drive_the_terminal(kestrova, tmp_path):
    file = tmp_path / "image"
    file.write_bytes(image(record(b"\x1b[2J", b"")))
    assert r"'\x1b[2J'" in kestrova("vars", "verify", file).stdout


def test_every_flipped_bit_is_seen(kestrova, tmp_path):
    """All except those of the first three bytes, whose bits no reader uses."""
    content = image(record(b"a", b"1"))
    file = tmp_path / "image"
    for bit in range(24, len(content) * 8):
        flipped = bytearray(content)
        flipped[bit // 8] ^= 1 << bit % 8
        file.write_bytes(flipped)
        run = kestrova("vars", "verify", file)
        assert run.returncode == 1, (bit, run.stdout)


def test_file_that_is_not_there_or_no_file(kestrova, tmp_path):
    run = kestrova("--json", "vars", "verify", tmp_path / "absent")
    assert run.returncode == 3 and "No such file" in json.loads(run.stdout)["error"]
    run = kestrova("vars", "verify", tmp_path)
    assert run.returncode == 1 and "Is a directory" in run.stderr


def test_endless_file(kestrova):
    run = kestrova("vars", "verify", "/dev/zero")
    assert run.returncode == 1 and "offset 65536" in run.stdout
