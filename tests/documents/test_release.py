# SPDX-License-Identifier: MIT
"""The release: made twice from a copy of this tree, in a separate git repository."""

import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import tarfile

import pytest

import documents
import recipes

ROOT = documents.ROOT
VERSION = recipes.project_version()
STEM = f"kestrova-system-{VERSION}"
FILES = {f"{STEM}.tar.xz", f"{STEM}.tar.xz.sha256", f"{STEM}.spdx.json", f"{STEM}.notes.md",
         f"kestrova-recipes-{VERSION}.tar.xz", f"kestrova-recipes-{VERSION}.tar.xz.sha256"}
GIT = {"GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_SYSTEM": "/dev/null",
       "GIT_AUTHOR_DATE": "2026-01-02T03:04:05Z", "GIT_COMMITTER_DATE": "2026-01-02T03:04:05Z",
       "GIT_AUTHOR_NAME": "a", "GIT_AUTHOR_EMAIL": "a@b", "GIT_COMMITTER_NAME": "a",
       "GIT_COMMITTER_EMAIL": "a@b"}


def sources():
    return subprocess.run([ROOT / "script" / "sources"], capture_output=True, text=True,
                          check=True).stdout.splitlines()


def git(folder, *arguments):
    subprocess.run(["git", "-C", folder, *arguments], check=True, capture_output=True,
                   env={**os.environ, **GIT})


def release(tree, **environment):
    return subprocess.run([tree / "script" / "release"], stdin=subprocess.DEVNULL, check=False,
                          capture_output=True, text=True, env={**os.environ, **GIT, **environment})


@pytest.fixture(scope="module", name="tree")
def the_tree(tmp_path_factory):
    """A copy of the current tree, committed."""
    tree = tmp_path_factory.mktemp("release") / "a tree"
    for name in sources():
        (tree / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / name, tree / name, follow_symlinks=False)
    git(tree, "init", "--quiet")
    git(tree, "add", "--all", "--force")
    git(tree, "commit", "--quiet", "--message=all")
    return tree


@pytest.fixture(scope="module", name="made")
def the_release(tree):
    done = release(tree)
    assert done.returncode == 0, done.stderr
    return tree / "build" / "release"


def test_a_release_has_all_its_files(made):
    assert {path.name for path in made.iterdir()} == FILES


def test_the_same_commit_gives_the_same_bytes(tree, made, tmp_path):
    """In a second clone, in another directory and at another time."""
    again = tmp_path / "elsewhere"
    git(tmp_path, "clone", "--quiet", tree, again)
    git(again, "config", "tar.umask", "0077")
    for name in ("CMakeLists.txt", "script/test"):
        os.utime(again / name, (1, 1))
    done = release(again, TZ="Asia/Kathmandu", LC_ALL="C", XZ_DEFAULTS="-9")
    assert done.returncode == 0, done.stderr
    for name in FILES:
        assert (made / name).read_bytes() == (again / "build" / "release" / name).read_bytes(), name


def test_the_tarball_is_the_commit(made):
    with tarfile.open(made / f"{STEM}.tar.xz") as archive:
        members = archive.getmembers()
    assert {member.name.removeprefix(f"{STEM}/") for member in members if not member.isdir()} \
        == set(sources())
    assert {(member.uid, member.gid, member.mtime) for member in members} == {(0, 0, 1767323045)}
    assert {member.mode for member in members} == {0o644, 0o755}


@pytest.mark.parametrize("name", sorted(name for name in FILES if name.endswith(".sha256")))
def test_the_checksum_fits(made, name):
    done = subprocess.run(["sha256sum", "--check", "--strict", name], cwd=made, check=False,
                          capture_output=True, text=True)
    assert done.stdout == f"{name.removesuffix('.sha256')}: OK\n"


def test_the_bill_of_materials_names_every_file_and_dependency(made):
    """Parsed according to SPDX 2.3."""
    tarball = made / f"{STEM}.tar.xz"
    sbom = json.loads((made / f"{STEM}.spdx.json").read_text())
    assert (sbom["spdxVersion"], sbom["dataLicense"], sbom["SPDXID"], sbom["name"]) == \
        ("SPDX-2.3", "CC0-1.0", "SPDXRef-DOCUMENT", STEM)
    assert re.fullmatch(r"https://[^#\s]+", sbom["documentNamespace"])
    assert sbom["creationInfo"]["created"] == "2026-01-02T03:04:05Z"
    assert all(re.match("(Tool|Organization|Person): .", text)
               for text in sbom["creationInfo"]["creators"])

    own, *foreign = sbom["packages"]
    assert (own["name"], own["versionInfo"], own["packageFileName"], own["licenseDeclared"]) == \
        ("kestrova-system", VERSION, tarball.name, "MIT")
    assert own["checksums"] == [{"algorithm": "SHA256", "checksumValue":
                                 hashlib.sha256(tarball.read_bytes()).hexdigest()}]
    assert own["copyrightText"] in documents.read("LICENSE")
    for package in sbom["packages"]:
        for field in ("name", "SPDXID", "downloadLocation", "licenseConcluded", "copyrightText"):
            assert package[field]

    with tarfile.open(tarball) as archive:
        contents = {"./" + member.name.partition("/")[2]: archive.extractfile(member).read()
                    for member in archive if member.isfile()}
    listed = {entry["fileName"]: {sum["algorithm"]: sum["checksumValue"]
                                  for sum in entry["checksums"]} for entry in sbom["files"]}
    assert listed == {name: {"SHA1": hashlib.sha1(data).hexdigest(),
                             "SHA256": hashlib.sha256(data).hexdigest()}
                      for name, data in contents.items()}
    code = hashlib.sha1("".join(sorted(sums["SHA1"] for sums in listed.values())).encode())
    assert own["packageVerificationCode"]["packageVerificationCodeValue"] == code.hexdigest()

    identifiers = [entry["SPDXID"] for entry in [sbom, *sbom["packages"], *sbom["files"]]]
    assert len(set(identifiers)) == len(identifiers)
    assert all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", name) for name in identifiers)
    related = {}
    for relation in sbom["relationships"]:
        assert {relation["spdxElementId"], relation["relatedSpdxElement"]} <= set(identifiers)
        related.setdefault(relation["relationshipType"], []).append(relation["spdxElementId"])
    names = {package["SPDXID"]: package["name"] for package in foreign}
    assert {names[one] for one in related["RUNTIME_DEPENDENCY_OF"]} == \
        {"libc6", "libgcc-s1", "libstdc++6"}
    assert {names[one] for one in related["OPTIONAL_DEPENDENCY_OF"]} == \
        {"e2fsprogs", "fdisk", "hdparm", "xfsprogs"}
    assert "cmake" in {names[one] for one in related["BUILD_DEPENDENCY_OF"]}
    assert len(related["CONTAINS"]) == len(contents) and len(related["DESCRIBES"]) == 1


def test_the_notes_are_the_changelog_s_newest_section(made):
    heading, _, notes = (made / f"{STEM}.notes.md").read_text().partition("\n\n")
    assert re.fullmatch(rf"# kestrova-system {VERSION} \(\d{{4}}-\d\d-\d\d\)", heading)
    changelog = documents.read("CHANGELOG.md")
    assert notes.strip() and f"## {VERSION} (" in changelog
    assert notes.strip() == documents.section(
        changelog, re.search(rf"## ({VERSION} .*)", changelog)[1]).strip()


@pytest.mark.parametrize("name, text, reason", [
    ("new file", "x", "commit or remove these first:\n?? \"new file\""),
    ("README.md", "x", "commit or remove these first:\n M README.md")])
def test_a_tree_that_differs_from_its_commit_is_refused(tree, made, tmp_path, name, text, reason):
    assert made.is_dir()
    changed = tmp_path / "changed"
    git(tmp_path, "clone", "--quiet", tree, changed)
    (changed / name).write_text(text)
    done = release(changed)
    assert done.returncode == 1 and reason in done.stderr
    assert not (changed / "build").exists()


@pytest.mark.parametrize("heading", ["9.9.9 (2026-01-01)", f"{VERSION} (soon)"])
def test_a_changelog_that_does_not_fit_is_refused(tree, made, tmp_path, heading):
    assert made.is_dir()
    changed = tmp_path / "changed"
    git(tmp_path, "clone", "--quiet", tree, changed)
    changelog = changed / "CHANGELOG.md"
    changelog.write_text(re.sub(r"^## .*", f"## {heading}", changelog.read_text(), count=1,
                                flags=re.M))
    git(changed, "commit", "--quiet", "--all", "--message=changelog")
    done = release(changed)
    assert done.returncode == 1 and done.stderr.startswith("script/release: CHANGELOG.md: ")


@pytest.fixture(name="unpacked")
def the_unpacked_tarball(made, tmp_path):
    subprocess.run(["tar", "-xf", made / f"{STEM}.tar.xz", "-C", tmp_path], check=True)
    return tmp_path / STEM


def test_the_unpacked_tarball_is_configured_without_git(unpacked, tmp_path):
    stub = tmp_path / "bin" / "git"
    stub.parent.mkdir()
    stub.write_text(f"#!/bin/sh\necho called >{stub}.called\nexit 128\n")
    stub.chmod(0o755)
    environment = {**os.environ, "PATH": f"{stub.parent}:{os.environ['PATH']}"}
    for command in (["cmake", "--preset", "native"], ["script/sources"]):
        done = subprocess.run(command, cwd=unpacked, env=environment, capture_output=True,
                              text=True, check=False)
        assert done.returncode == 0, done.stderr
    assert not pathlib.Path(f"{stub}.called").exists()


def test_the_released_recipes_take_the_tarball(made, tmp_path):
    subprocess.run(["tar", "-xf", made / f"kestrova-recipes-{VERSION}.tar.xz", "-C", tmp_path],
                   check=True)
    folder = tmp_path / f"kestrova-recipes-{VERSION}"
    digest = hashlib.sha256((made / f"{STEM}.tar.xz").read_bytes()).hexdigest()
    package = folder / "buildroot" / "package" / "kestrova-system"
    assert f"sha256  {digest}  {STEM}.tar.xz" in \
        (package / "kestrova-system.hash").read_text().splitlines()
    assert f"KESTROVA_SYSTEM_VERSION = {VERSION}" in \
        (package / "kestrova-system.mk").read_text().splitlines()
    recipe = (folder / "yocto/recipes-kestrova/kestrova-system/kestrova-system.bb").read_text()
    assert f'PV = "{VERSION}"' in recipe.splitlines()
    assert f'SRC_URI[sha256sum] = "{digest}"' in recipe.splitlines()


def test_every_earlier_release_has_its_baselines():
    versions = re.findall(r"^## (\S+)", documents.read("CHANGELOG.md"), re.M)
    assert versions[0] == VERSION and len(versions) > 1
    for version in versions[1:]:
        folder = ROOT / "tests" / "packages" / "abi" / version
        assert {path.name for path in folder.iterdir()} == {
            f"kestrova-system.{name}.abi" for name in ("amd64", "i386")}


def test_no_other_file_repeats_the_version():
    """Other files read it from CMakeLists.txt or CHANGELOG.md."""
    word = re.compile(rf"(?<![\d.]){re.escape(VERSION)}(?![\d.]*\d)")
    named = {name for name in sources() if not name.endswith((".abi", ".svg"))
             and (ROOT / name).is_file() and word.search((ROOT / name).read_text(errors="replace"))}
    # The transcript of the Debian packages shows the file names of a release.
    assert named - {"packaging/README.md"} == {"CMakeLists.txt", "CHANGELOG.md"}


def test_debian_s_changelog_is_that_of_the_project(tmp_path):
    script = ("import sys; sys.path.insert(0, 'packaging'); import project; "
              "sys.stdout.write(project.debian_changelog())")
    text = subprocess.run(["/usr/bin/python3", "-c", script], cwd=ROOT, capture_output=True,
                          text=True, check=True).stdout
    (tmp_path / "changelog").write_text(text)
    parsed = subprocess.run(["dpkg-parsechangelog", "-l", tmp_path / "changelog", "--all",
                             "--show-field", "Version"], capture_output=True, text=True, check=True)
    assert (parsed.stdout.strip(), parsed.stderr) == (f"{VERSION}-1", "")
