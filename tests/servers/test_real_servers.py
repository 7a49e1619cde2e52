# SPDX-License-Identifier: MIT
"""Both fetchers with real servers; bodies are compared by checksum."""

import pytest

from conftest import SIZES, checksum_of

CAPACITY = 20480


@pytest.mark.parametrize("size", SIZES)
def test_streamed(server, documents, fetch, size):
    name = f"doc-{size}.txt"
    fetched = fetch("url", server.url("/" + name))
    codes = "345" if size else "35"
    assert fetched.told == {"codes": codes, "received": size, "total": size}
    assert fetched.checksum == checksum_of(documents / name)


# Up to just below the capacity: one that fills it counts as failed, and a longer one is truncated.
@pytest.mark.parametrize("size", [size for size in SIZES if size <= CAPACITY + 1])
def test_chained(server, documents, fetch, size):
    name = f"doc-{size}.txt"
    fetched = fetch("chain", server.url("/" + name))
    fine = size < CAPACITY
    assert fetched.told == {"ok": fine, "id": 7, "type": server.type,
                            "length": min(size, CAPACITY)}
    if fine:
        assert fetched.checksum == checksum_of(documents / name)


def test_unknown_length(server, documents, fetch):
    """The server would keep the connection for ten minutes; it closes it because the request asks for
    that."""
    fetched = fetch("url", server.url(server.unknown))
    assert fetched.told == {"codes": "345", "received": 100000, "total": 0}
    assert fetched.checksum == checksum_of(documents / "unknown")


@pytest.mark.parametrize("kind, told", [
    ("url", {"codes": "12", "received": 0, "total": 0}),
    ("chain", {"ok": False, "id": 7, "type": "", "length": 0})])
def test_refused(server, fetch, kind, told):
    """404, a redirection, and an unrequested 206 from servers that can send it."""
    for path in ["/missing", *server.refused]:
        fetched = fetch(kind, server.url(path))
        assert (path, fetched.told, fetched.length) == (path, told, 0)
