# SPDX-License-Identifier: MIT
"""Builds the Debian packages, each architecture in a clean system of its own; see README.md."""

import argparse
import concurrent.futures
import datetime
import filecmp
import os
import pathlib
import shutil
import subprocess
import sys

import project
from chroot import ROOT, Chroot, ChrootError, archive, build_kind, only_one

ARCHITECTURES = ("i386", "amd64")
PACKAGES = ROOT / "build" / "packages"
AGAIN = ROOT / "build" / "packages-again"
# What must not show in a package: a second build differs in all of it.
FIRST = ("/build", {})
SECOND = ("/srv/some/where/else", {"TZ": "Asia/Kathmandu", "LC_ALL": "C", "HOME": "/nowhere"})


class BuildError(Exception):
    """The packages could not be built, or not twice alike."""


def changelog_time():
    """Seconds of the newest release: the only time that the packages know."""
    day = datetime.datetime.combine(project.releases()[0].date, datetime.time(),
                                    datetime.timezone.utc)
    return int(day.timestamp())


def export_tree(target):
    """Copies the files of the tree, tracked or to be, with packaging/debian at Debian's place."""
    listed = subprocess.run([ROOT / "script" / "sources", "-z"], stdout=subprocess.PIPE,
                            check=False)
    if listed.returncode:
        raise BuildError("the files of the tree could not be listed")
    target.mkdir(parents=True)
    pack = subprocess.run(["tar", "-c", "--null", "--files-from=-", "--owner=0", "--group=0",
                           f"--mtime=@{changelog_time()}", "--mode=u=rwX,go=rX"],
                          cwd=ROOT, input=listed.stdout, stdout=subprocess.PIPE, check=True)
    subprocess.run(["tar", "-x", "-C", target], input=pack.stdout, check=True)
    shutil.copytree(target / "packaging" / "debian", target / "debian")
    (target / "debian" / "changelog").write_text(project.debian_changelog())


def build(architecture, and_all, jobs, where, output):
    """Builds one architecture's packages, and those for all when asked, into output."""
    folder, environment = where
    kinds = "any,all" if and_all else "any"
    with Chroot(build_kind(architecture)) as system:
        place = system.path / folder.lstrip("/")
        export_tree(place / "kestrova-system")
        built = system.run(
            ["dpkg-buildpackage", f"--build={kinds}", "--no-sign", "--jobs=" + str(jobs)],
            folder=f"{folder}/kestrova-system", environment=environment,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace")
        (output / f"build-{architecture}.log").write_text(built.stdout)
        if built.returncode:
            last = "\n".join(built.stdout.splitlines()[-40:])
            raise BuildError(f"building for {architecture} failed:\n{last}")
        for path in sorted(place.glob("*.*")):
            shutil.copy2(path, output)


def build_all(architectures, where, output):
    """Builds side by side: half of a build is work for one processor."""
    shutil.rmtree(output, ignore_errors=True)
    output.mkdir(parents=True)
    for architecture in architectures:
        archive(build_kind(architecture))
    jobs = max(1, (os.cpu_count() or 1) // len(architectures))
    with concurrent.futures.ThreadPoolExecutor() as pool:
        running = [pool.submit(build, architecture, architecture == architectures[0], jobs, where,
                               output) for architecture in architectures]
        for one in running:
            one.result()


def compare(first, second):
    """Raises unless both folders hold the same packages, byte for byte."""
    names = sorted(path.name for path in second.glob("*.deb"))
    # a folder may hold packages of an architecture that was not asked for now
    different = [name for name in names if not (first / name).is_file()
                 or not filecmp.cmp(first / name, second / name, shallow=False)]
    if different or not names:
        raise BuildError("not the same bytes in a second build: " + ", ".join(different))
    print(f"{len(names)} packages, the same bytes in a second build")


def work(architectures, check):
    if check:
        build_all(architectures, SECOND, AGAIN)
        compare(PACKAGES, AGAIN)
        return
    build_all(architectures, FIRST, PACKAGES)
    for path in sorted(PACKAGES.glob("*.deb")):
        print(path.relative_to(ROOT))


def main():
    parser = argparse.ArgumentParser(prog="script/package", description=
                                     "Builds the Debian packages into build/packages.")
    parser.add_argument("--check", action="store_true",
                        help="build once more, elsewhere, and compare with what is there")
    parser.add_argument("architecture", nargs="*",
                        help=f"of {', '.join(ARCHITECTURES)}; default: all")
    options = parser.parse_args()
    architectures = list(dict.fromkeys(options.architecture)) or list(ARCHITECTURES)
    for architecture in architectures:
        if architecture not in ARCHITECTURES:
            parser.error(f"no such architecture: {architecture}")
    if os.geteuid() != 0:
        parser.error("only root can make clean systems to build in")
    try:
        # a build empties the folder that another one fills or compares
        with only_one(ROOT / "build" / "package.lock"):
            work(architectures, options.check)
    except (BuildError, ChrootError, project.ProjectError) as error:
        sys.exit(f"script/package: {error}")


if __name__ == "__main__":
    main()
