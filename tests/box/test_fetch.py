# SPDX-License-Identifier: MIT
"""kestrova fetch in the box: from a server of its network onto the mounted recording drive."""

import hashlib
import json
import random

import pytest

from box.hardware import MIB, NETWORK_LOOPBACK, Disk
from box.machine import Box, product_files
from driveprobe import BUILD
from tests.app.httpserver import Documents

HOST = "10.0.2.2"  # the box's name for the loopback of this machine
SIZES = {"recording": 6 * MIB + 1, "page": 20479, "one": 1, "empty": 0}
REFUSED = 4


@pytest.fixture(scope="module")
def documents(tmp_path_factory):
    """A directory of documents that this machine serves on its loopback, and its URL in the box."""
    with Documents(tmp_path_factory.mktemp("served") / "documents") as served:
        for name, size in SIZES.items():
            served.add(name, random.Random(size).randbytes(size))
        yield served.folder, served.url.replace("127.0.0.1", HOST)


@pytest.fixture(scope="module")
def box(box_image):
    """A box on the network, with a mounted recording drive."""
    if not (BUILD / "kestrova").exists():
        pytest.skip(f"{BUILD / 'kestrova'} is not built")
    with Box(disks=[Disk(size=512 * MIB)], files=product_files(BUILD),
             network=NETWORK_LOOPBACK) as running:
        running.check(["kestrova", "shell", "-e",
                       "drive partition 300 rest --yes; drive format --yes"])
        # In a separate command, because a shell stops the drive that it has started when it ends.
        running.check(["kestrova", "drive", "start"])
        yield running


def digest(box, path):
    return box.check(["sha256sum", path]).split()[0]


def test_onto_the_recording_drive(box, documents):
    folder, url = documents
    for name, size in SIZES.items():
        for path in [f"/dvr/{name}", f"/dvr/data/{name}"]:
            answer = json.loads(box.check(["kestrova", "--json", "fetch", url + name, "-o", path]))
            assert (answer["bytes"], answer["length"]) == (size, size)
            assert digest(box, path) == hashlib.sha256((folder / name).read_bytes()).hexdigest()
    assert box.check("grep -c ^/dev/sda /proc/mounts") == "2"  # the drive is still mounted
    assert box.check("ls -A /dvr /dvr/data | grep -c kestrova || true") == "0"


def test_into_a_pipe(box, documents):
    folder, url = documents
    wanted = hashlib.sha256((folder / "recording").read_bytes()).hexdigest()
    assert box.check(f"kestrova fetch {url}recording | sha256sum").split()[0] == wanted


def test_many_onto_the_recording_drive(box, documents):
    folder, url = documents
    names = ["page", "one", "empty"]
    box.check("mkdir /dvr/many")
    box.check(["kestrova", "fetch-all", "-d", "/dvr/many"],
              input="\n".join(url + name for name in names).encode())
    for name in names:
        assert digest(box, f"/dvr/many/{name}") == hashlib.sha256(
            (folder / name).read_bytes()).hexdigest()


def test_a_full_recording_drive(box, documents):
    _, url = documents
    box.check("fallocate -l $(($(df -k /dvr/data | tail -n 1 | awk '{print $4}') - 4096))k "
              "/dvr/data/filler 2>/dev/null || dd if=/dev/zero of=/dvr/data/filler bs=1M "
              "count=$(($(df -k /dvr/data | tail -n 1 | awk '{print $4}') / 1024 - 4))")
    result = box.run(f"kestrova fetch {url}recording -o /dvr/data/late")
    assert result.status == 1 and b"'/dvr/data/late': No space left on device" in result.stderr
    assert box.run("ls -A /dvr/data | grep -e late -e kestrova").status == 1
    box.check("rm /dvr/data/filler")


def test_a_refusal(box, documents):
    _, url = documents
    result = box.run(f"kestrova -v fetch {url}absent -o /dvr/absent")
    assert result.status == REFUSED and b"hdr.code() 404" in result.stderr
    assert box.run("ls /dvr/absent").status != 0
