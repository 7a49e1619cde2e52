#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Changes one token at a time in a copy of the sources and runs the unit tests; see script/mutants.

The tests of a changed library run in their own PID and mount namespaces, so that a wrong signal or
unmount affects nothing else, and everything that they start ends with them.
"""

import argparse
import dataclasses
import difflib
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import time

import mutations

ROOT = pathlib.Path(__file__).resolve().parent.parent
TREE = ROOT / "build" / "mutants" / "tree"
BUILD = TREE / "build" / "i686"
PROGRAMS = {"base": "base-tests", "System": "system-tests",
            "System/drivemanager": "drivemanager-tests", "System/resourcelock": "system-tests",
            "System/bootvarsmanager": "bootvars-tests", "System/protocols/http": "http-tests"}
ALL = list(dict.fromkeys(PROGRAMS.values()))
# Tests that wait for half a minute: run only for the file that has the time-out.
SLOW = "*InRealTime*"
ENOUGH = 0.95
# The shell is the namespace's first process and reaps orphans, because tests query their own
# children.
NAMESPACE = ["unshare", "--pid", "--mount", "--fork", "--kill-child", "--mount-proc",
             "/bin/sh", "-c", '"$@"; exit $?', "sh"]


@dataclasses.dataclass
class Unchanged:
    """The result of a program with the unchanged library: its failing tests and its time limit."""
    failing: list
    limit: float


def quiet(command, **options):
    return subprocess.run(command, cwd=TREE, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace", check=False,
                          **options)


def copy_tree():
    """Copies the sources; an unchanged file keeps its time and is not rebuilt."""
    listed = subprocess.run([ROOT / "script" / "sources"], stdout=subprocess.PIPE, text=True,
                            check=True).stdout.splitlines()
    for name in listed:
        source, target = ROOT / name, TREE / name
        if source.is_symlink() or not source.is_file():
            continue
        if not target.is_file() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)
    for path in [path for top in ("base", "System", "tests") for path in (TREE / top).rglob("*")]:
        if path.is_file() and str(path.relative_to(TREE)) not in listed:
            path.unlink()


def build(*targets):
    return quiet(["cmake", "--build", "--preset", "i686", "--target", *targets])


def prepare():
    copy_tree()
    linker = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"] if shutil.which("ld.lld") else []
    configured = quiet(["cmake", "--preset", "i686", "-DKESTROVA_APP=OFF", "-DKESTROVA_EXAMPLES=OFF",
                        "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O0 -g0 -DNDEBUG", *linker])
    if configured.returncode:
        sys.exit(f"script/mutants: the copy cannot be configured\n{configured.stdout}")
    built = build(*ALL)
    if built.returncode:
        sys.exit(f"script/mutants: the copy cannot be built\n{built.stdout[-3000:]}")


def run_tests(program, chosen, without, limit, report=None):
    """Returns whether the chosen tests passed; everything they started ends with their namespace."""
    command = [*NAMESPACE, BUILD / "tests" / program, "--gtest_brief=1",
               f"--gtest_filter={chosen}-{':'.join(without)}",
               f"--gtest_output=xml:{report}" if report else "--gtest_fail_fast"]
    with subprocess.Popen(command, cwd=TREE, stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          start_new_session=True) as running:
        try:
            return running.wait(timeout=limit) == 0
        except subprocess.TimeoutExpired:
            running.kill()  # the namespace ends with unshare
            return False


def unchanged(program):
    """Runs a program with the unchanged library. Without the tests that fail then, it must pass, so
    that later failures are caused by the change."""
    report = BUILD / "tests" / f"{program}.xml"
    report.unlink(missing_ok=True)
    start = time.monotonic()
    run_tests(program, "*", [], None, report)
    limit = 30 + 4 * (time.monotonic() - start)  # the machine may be busier later
    if not report.exists():
        sys.exit(f"script/mutants: {program} does not run to its end unchanged")
    failing = [f"{suite}.{name}" for name, suite in
               re.findall(r'<testcase name="([^"]+)"[^>]*classname="([^"]+)">\s*<failure',
                          report.read_text(errors="replace"))]
    for name in failing:
        print(f"fails unchanged, left out: {program} {name}", flush=True)
    if not run_tests(program, "*", [SLOW] + failing, limit):
        sys.exit(f"script/mutants: {program} does not pass unchanged")
    return Unchanged(failing, limit)


def mirror(file):
    """Returns the filter of the tests that mirror a source, or an empty text."""
    source = pathlib.Path(file)
    suites = []
    for path in (TREE / "tests" / "unit" / source.parent).glob(f"{source.stem}_*test.cpp"):
        suites += re.findall(r"^TEST(?:_[FP])?\((\w+),", path.read_text(), re.MULTILINE)
    return ":".join(f"{suite}.*:*/{suite}.*" for suite in dict.fromkeys(suites))


def home(file):
    """Returns the program that contains the tests of a source."""
    folder = pathlib.Path(file).parent
    while str(folder) not in PROGRAMS:
        folder = folder.parent
    return PROGRAMS[str(folder)]


def code_of(file):
    """Returns clang's optimised code of a source."""
    return subprocess.run(["clang++", "-m32", "-O2", "-std=c++17", "-D_GNU_SOURCE",
                           "-D_FILE_OFFSET_BITS=64", "-D_TIME_BITS=64", "-I", ".", "-S", "-w",
                           "-o", "-", file], cwd=TREE, capture_output=True, check=False).stdout


def survives(file, programs):
    """Runs the tests, the nearest first; builds each program when it is needed."""
    first = home(file)
    near = mirror(file)
    slow = [] if file.endswith("httpconnection.cpp") else [SLOW]

    def passes(program, chosen):
        known = programs[program]
        return run_tests(program, chosen, slow + known.failing, known.limit)

    if near and not passes(first, near):
        return False
    for program in [first] + [other for other in ALL if other != first]:
        if program != first and build(program).returncode:
            return False
        if not passes(program, "*"):
            return False
    return True


def judge(mutation, programs):
    """Returns 'killed', 'survived', 'equivalent', or 'invalid' if it does not compile."""
    path = TREE / mutation.file
    before = path.read_text()
    original = None
    path.write_text("\n".join(mutation.apply(before.split("\n"))))
    try:
        if build(home(mutation.file)).returncode:
            return "invalid"
        if not survives(mutation.file, programs):
            return "killed"
        changed = code_of(mutation.file)
        path.write_text(before)
        original = code_of(mutation.file)
        return "equivalent" if original and changed == original else "survived"
    finally:
        path.write_text(before)


def show(mutation):
    before = (TREE / mutation.file).read_text().split("\n")
    difference = difflib.unified_diff(before, mutation.apply(before), n=0, lineterm="")
    print(f"survived: {mutation.file}:{mutation.line + 1}")
    print("\n".join(line for line in list(difference)[3:]), flush=True)


def candidates(files):
    if not files:
        files = [str(path.relative_to(TREE)) for top in ("base", "System")
                 for path in sorted((TREE / top).rglob("*.cpp"))]
    return [found for name in files for found in mutations.of_file(name, (TREE / name).read_text())]


def main():
    parser = argparse.ArgumentParser(prog="script/mutants")
    parser.add_argument("number", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--file", action="append", default=[])
    options = parser.parse_args()
    if os.geteuid() != 0:
        parser.error("only root can give the tests a namespace of their own")
    os.nice(10)
    prepare()
    programs = {program: unchanged(program) for program in ALL}
    found = candidates(options.file)
    random.Random(options.seed).shuffle(found)

    counts = {"killed": 0, "survived": 0, "equivalent": 0, "invalid": 0}
    for mutation in found:
        if counts["killed"] + counts["survived"] == options.number:
            break
        verdict = judge(mutation, programs)
        counts[verdict] += 1
        if verdict == "survived":
            show(mutation)
    number = counts["killed"] + counts["survived"]
    score = counts["killed"] / number if number else 0
    print(f"{number} mutants: {counts['killed']} killed, {counts['survived']} survived, "
          f"{counts['equivalent']} equivalent, score {score:.3f}")
    return 0 if score >= ENOUGH else 1


if __name__ == "__main__":
    sys.exit(main())
