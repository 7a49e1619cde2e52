# SPDX-License-Identifier: MIT
"""What the project says of itself: its version and its changes."""

import dataclasses
import datetime
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAME = "kestrova-system"
MAINTAINER = "The developers of the Kestrova system services <maintainers@kestrova.invalid>"


class ProjectError(Exception):
    """A file of the project does not say what it has to."""


@dataclasses.dataclass(frozen=True)
class Release:
    """A section of CHANGELOG.md; notes is its text without the heading."""
    version: str
    date: datetime.date
    notes: str


def version(root=ROOT):
    """The version in CMakeLists.txt, from which every other place takes it."""
    found = re.search(r"^project\(\S+ VERSION (\d+\.\d+\.\d+)\b",
                      (root / "CMakeLists.txt").read_text(), re.M)
    if not found:
        raise ProjectError("CMakeLists.txt: no project() with a version")
    return found[1]


def releases(root=ROOT):
    """The sections of CHANGELOG.md, newest first. The newest is that of version()."""
    text = (root / "CHANGELOG.md").read_text()
    sections = re.split(r"^## (.*)\n", text, flags=re.M)[1:]
    found = []
    for heading, notes in zip(sections[::2], sections[1::2]):
        match = re.fullmatch(r"(\d+\.\d+\.\d+) \((\d{4}-\d\d-\d\d)\)", heading)
        if not match or not notes.strip():
            raise ProjectError(f"CHANGELOG.md: '## {heading}' is not '## VERSION (YYYY-MM-DD)' "
                               "with text below it")
        found.append(Release(match[1], datetime.date.fromisoformat(match[2]), notes.strip()))
    if not found or found[0].version != version(root):
        raise ProjectError(f"CHANGELOG.md: the first section is not that of version {version(root)}")
    return found


def debian_changelog(root=ROOT):
    """Debian's changelog, with an entry for each release."""
    return "\n".join(
        f"{NAME} ({release.version}-1) unstable; urgency=medium\n\n"
        f"  * Version {release.version}; /usr/share/doc/*/changelog.gz lists its changes.\n\n"
        f" -- {MAINTAINER}  {release.date:%a, %d %b %Y} 00:00:00 +0000\n"
        for release in releases(root))


def control_names(field, root=ROOT):
    """The packages that a field of Debian's control file names where it first stands."""
    text = (root / "packaging" / "debian" / "control").read_text()
    found = re.search(rf"^{field}: (.*(?:\n .*)*)", text, re.M)
    names = [re.sub(r"\(.*\)", "", word).strip() for word in found[1].split(",")]
    return [name for name in names if name and not name.startswith("$")]
