# SPDX-License-Identifier: MIT
"""Makes a release out of the commit that is checked out; see README.md."""

import argparse
import datetime
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

import sbom
from project import NAME, ROOT, ProjectError, releases

RELEASE = ROOT / "build" / "release"
# One thread and a named level: the same bytes on every machine.
XZ = ("xz", "--threads=1", "-6", "--check=crc64", "--stdout")


class ReleaseError(Exception):
    """The release could not be made, or is not good."""


def git(*arguments):
    done = subprocess.run(["git", "-C", ROOT, *arguments], capture_output=True, check=False)
    if done.returncode:
        raise ReleaseError(f"git {arguments[0]}: {done.stderr.decode(errors='replace').strip()}")
    return done.stdout


def require_clean_tree():
    """A release is a commit: what is not in one would be missing without a word."""
    changed = git("status", "--porcelain").decode().splitlines()
    if changed:
        raise ReleaseError("the tree differs from its commit; commit or remove these first:\n"
                           + "\n".join(changed))


def compress(data, path):
    path.write_bytes(subprocess.run(XZ, input=data, stdout=subprocess.PIPE, check=True).stdout)


def write_sources(path, stem):
    """The files of the commit, in git's order, with the commit's time, of user and group 0."""
    compress(git("-c", "tar.umask=0022", "archive", "--format=tar", f"--prefix={stem}/", "HEAD"),
             path)


def write_checksum(path):
    digest = hashlib.sha256(path.read_bytes()).hexdigest()
    path.with_name(path.name + ".sha256").write_text(f"{digest}  {path.name}\n")
    return digest


def replace_line(path, old, new):
    """Replaces the one line that begins with old."""
    text, count = re.subn(rf"^{re.escape(old)}.*$", lambda _: new, path.read_text(), flags=re.M)
    if count != 1:
        raise ReleaseError(f"{path.name}: {count} lines begin with '{old}'")
    path.write_text(text)


def name_release(recipes, version, tarball, digest):
    """Writes the release's number and checksum into both recipes."""
    package = recipes / "buildroot" / "package" / NAME
    replace_line(package / f"{NAME}.mk", "KESTROVA_SYSTEM_VERSION =",
                 f"KESTROVA_SYSTEM_VERSION = {version}")
    with open(package / f"{NAME}.hash", "a", encoding="ascii") as hashes:
        hashes.write(f"sha256  {digest}  {tarball.name}\n")
    recipe = recipes / "yocto" / "recipes-kestrova" / NAME / f"{NAME}.bb"
    replace_line(recipe, "PV =", f'PV = "{version}"')
    replace_line(recipe, "SRC_URI[sha256sum] =", f'SRC_URI[sha256sum] = "{digest}"')


def write_recipes(path, version, tarball, digest, seconds):
    """The recipes of the commit for the tarball."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["tar", "-xf", tarball, "-C", folder, "--strip-components=2", "--wildcards",
                        *(f"*/packaging/{kind}" for kind in ("buildroot", "yocto"))], check=True)
        name_release(pathlib.Path(folder), version, tarball, digest)
        packed = subprocess.run(
            ["tar", "-c", "--sort=name", "--format=ustar", "--owner=0", "--group=0",
             "--numeric-owner", "--mode=u=rwX,go=rX", f"--mtime=@{seconds}",
             f"--transform=s,^,kestrova-recipes-{version}/,", "buildroot", "yocto"],
            cwd=folder, stdout=subprocess.PIPE, check=True).stdout
    compress(packed, path)


def make(folder):
    """Writes every file of the release into folder; returns the tarball's path."""
    require_clean_tree()
    newest = releases()[0]
    stem = f"{NAME}-{newest.version}"
    seconds = int(git("log", "-1", "--format=%ct"))
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    tarball = folder / f"{stem}.tar.xz"
    write_sources(tarball, stem)
    digest = write_checksum(tarball)
    recipes = folder / f"kestrova-recipes-{newest.version}.tar.xz"
    write_recipes(recipes, newest.version, tarball, digest, seconds)
    write_checksum(recipes)
    (folder / f"{stem}.spdx.json").write_text(sbom.document(
        tarball, newest.version, datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc)))
    (folder / f"{stem}.notes.md").write_text(
        f"# {NAME} {newest.version} ({newest.date})\n\n{newest.notes}\n")
    return tarball


def without_git(folder):
    """An environment in which a call of git fails."""
    stub = pathlib.Path(folder, "git")
    stub.write_text("#!/bin/sh\necho 'git was called outside a git tree' >&2\nexit 128\n")
    stub.chmod(0o755)
    return {**os.environ, "PATH": f"{folder}:{os.environ['PATH']}"}


def check(tarball):
    """Builds, tests and packages the unpacked tarball."""
    # Not below this tree, where git would find its repository.
    with tempfile.TemporaryDirectory(dir="/var/tmp") as folder:
        subprocess.run(["tar", "-xf", tarball, "-C", folder, "--strip-components=1"], check=True)
        with tempfile.TemporaryDirectory() as stubs:
            environment = without_git(stubs)
            for command in (["script/test", "--quick"], ["script/package"]):
                print("+ " + " ".join(command), flush=True)
                if subprocess.run(command, cwd=folder, env=environment, check=False).returncode:
                    raise ReleaseError(f"{command[0]} failed in the unpacked {tarball.name}")


def steps(version):
    """(folder, command) of the way from the release to a box with Debian's packages."""
    stem = f"{NAME}-{version}"
    unpack = [f"dpkg-deb -x build/packages/{package}_{version}-1_i386.deb root"
              for package in (f"lib{NAME}1", "kestrova-tools")]
    return [(".", f"sha256sum --check {stem}.tar.xz.sha256"),
            (".", f"tar -xf {stem}.tar.xz"),
            (stem, "script/package i386"),
            *((stem, command) for command in unpack),
            (stem, "BOX_NO_BUILD=1 script/box --put root/usr:/usr kestrova drive info")]


def run_steps(tarball, version):
    """Goes that way in an empty folder; returns what a terminal shows, with seconds."""
    lines = []
    with tempfile.TemporaryDirectory(dir="/var/tmp") as folder, \
            tempfile.TemporaryDirectory() as stubs:
        for path in (tarball, tarball.with_name(tarball.name + ".sha256")):
            shutil.copy2(path, folder)
        here = "."
        for place, command in steps(version):
            if place != here:
                lines.append(f"$ cd {place}")
                here = place
            start = time.monotonic()
            done = subprocess.run(["bash", "-c", command], cwd=pathlib.Path(folder, place),
                                  env=without_git(stubs), stdin=subprocess.DEVNULL,
                                  stdout=subprocess.PIPE, text=True, check=False)
            if done.returncode:
                raise ReleaseError(f"{command}: exit status {done.returncode}")
            seconds = round(time.monotonic() - start)
            lines.append(f"$ {command}" + (f"    # {seconds} s" if seconds else ""))
            lines += done.stdout.splitlines()
    return "\n".join(lines) + "\n"


def write_transcript(tarball):
    version = releases()[0].version
    shown = run_steps(tarball, version)
    readme = ROOT / "packaging" / "README.md"
    text, count = re.subn(r"(<!-- script/release --transcript -->\n```\n).*?(?=```)",
                          lambda match: match[1] + shown, readme.read_text(), flags=re.S)
    if count != 1:
        raise ReleaseError("packaging/README.md has no place for the transcript")
    readme.write_text(text)


def main():
    parser = argparse.ArgumentParser(prog="script/release", description=
                                     "Makes a release of the present commit in build/release.")
    parser.add_argument("--check", action="store_true",
                        help="then build, test and package the unpacked tarball without git")
    parser.add_argument("--transcript", action="store_true",
                        help="then go from the tarball to a running box, and write what was seen "
                             "into packaging/README.md")
    options = parser.parse_args()
    try:
        tarball = make(RELEASE)
        for path in sorted(RELEASE.iterdir()):
            print(path.relative_to(ROOT))
        if options.check:
            check(tarball)
        if options.transcript:
            write_transcript(tarball)
    except (ReleaseError, ProjectError) as error:
        sys.exit(f"script/release: {error}")


if __name__ == "__main__":
    main()
