#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs the test suites one after another and adds up their results.

Each suite writes a JUnit report. A suite that cannot be built, or that is interrupted, counts as one
failed test, so that the sum includes it.
"""

import argparse
import dataclasses
import os
import pathlib
import subprocess
import sys
import time
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parent.parent
RESULTS = ROOT / "build" / "test-results"
PYTHON = "/usr/bin/python3"
TEST_SECONDS = 1800  # ends a test that hangs; the longest one builds all packages


@dataclasses.dataclass
class Sum:
    passed: int = 0
    failed: int = 0
    skipped: int = 0

    def add(self, other):
        self.passed += other.passed
        self.failed += other.failed
        self.skipped += other.skipped


def say(text):
    print(text, flush=True)


def run(command, **options):
    say("+ " + " ".join(map(str, command)))
    return subprocess.run(command, cwd=ROOT, stdin=subprocess.DEVNULL, **options).returncode


def read_report(path):
    """Counts the test cases of a JUnit file; names those that did not pass."""
    result = Sum()
    for case in xml.etree.ElementTree.parse(path).iter("testcase"):
        name = f"{case.get('classname', '')} {case.get('name', '')}".strip()
        if case.find("failure") is not None or case.find("error") is not None:
            result.failed += 1
            say(f"FAILED  {name}")
        elif case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
            result.skipped += 1
            say(f"SKIPPED {name}")
        else:
            result.passed += 1
    return result


def reported(suite, command, report, **options):
    """Runs a suite that writes a JUnit report. Its exit status must match the report."""
    report.unlink(missing_ok=True)
    status = run(command, **options)
    if not report.exists():
        say(f"FAILED  {suite}: no report (exit status {status})")
        return Sum(failed=1)
    result = read_report(report)
    if status != 0 and result.failed == 0:
        say(f"FAILED  {suite}: exit status {status}")
        result.failed += 1
    if result.passed + result.failed + result.skipped == 0:
        say(f"FAILED  {suite}: ran no test")
        result.failed += 1
    return result


def single(name, command):
    """Runs a check that counts as one test."""
    if run(command) == 0:
        return Sum(passed=1)
    say(f"FAILED  {name}")
    return Sum(failed=1)


def jobs():
    return str(os.cpu_count() or 1)


def waiting_jobs():
    """Number of workers for tests that often wait, for a server or a child."""
    return str(2 * (os.cpu_count() or 1))


def build(preset):
    return (run(["cmake", "--preset", preset, "-DCMAKE_COMPILE_WARNING_AS_ERROR=ON"], stdout=subprocess.DEVNULL) == 0
            and run(["cmake", "--build", "--preset", preset, "--parallel", jobs()]) == 0)


def unit(preset):
    if not build(preset):
        say(f"FAILED  build of {preset}")
        return Sum(failed=1)
    report = RESULTS / f"{preset}.xml"
    # The functions below count the tests of the command and with servers one by one.
    return reported(preset, ["ctest", "--preset", preset, "--parallel", waiting_jobs(), "--quiet",
                             "--exclude-regex", "^(app|servers)$",
                             "--output-junit", str(report)], report)


def python(name, folder, workers=waiting_jobs, **environment):
    report = RESULTS / f"{name}.xml"
    # Each file's tests share a box, so all tests of a file run in one worker.
    return reported(name, [PYTHON, "-m", "pytest", "-q", "-rs", "-p", "no:cacheprovider",
                           f"--timeout={TEST_SECONDS}",
                           "--numprocesses", workers(), "--dist", "loadfile",
                           f"--junitxml={report}", folder], report,
                    env={**os.environ, **environment})


def command(preset):
    return python(f"app-{preset}", "tests/app", KESTROVA=str(ROOT / "build" / preset / "kestrova"))


def servers(preset):
    probe = ROOT / "build" / preset / "tests" / "servers" / "fetchprobe"
    return python(f"servers-{preset}", "tests/servers", FETCHPROBE=str(probe))


def documents():
    return python("documents", "tests/documents")


def packages():
    return python("packages", "tests/packages", workers=jobs)


def style(*options):
    return single("style (script/lint)", ["script/lint", *options])


def fuzz():
    return single("fuzzers, briefly (script/fuzz 5)", ["script/fuzz", "5"])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", choices=["true", "false"], default="false")
    quick = parser.parse_args().quick == "true"
    RESULTS.mkdir(parents=True, exist_ok=True)

    suites = [("i686", lambda: unit("i686")), ("app", lambda: command("i686")),
              ("servers", lambda: servers("i686")), ("documents", documents)]
    if quick:
        suites += [("style", lambda: style("--quick"))]
    else:
        suites += [("style", style), ("native", lambda: unit("native")), ("packages", packages),
                   ("fuzz", fuzz), ("box", lambda: python("box", "tests/box", workers=jobs)),
                   ("asan", lambda: unit("asan")),
                   ("app-asan", lambda: command("asan")),
                   ("servers-asan", lambda: servers("asan")), ("tsan", lambda: unit("tsan"))]

    total = Sum()
    lines = []
    for name, suite in suites:
        say(f"\n== {name}")
        start = time.monotonic()
        result = suite()
        total.add(result)
        lines.append(f"{name:12} {result.passed:5} passed {result.failed:3} failed "
                     f"{result.skipped:3} skipped {time.monotonic() - start:6.0f} s")
    say("\n" + "\n".join(lines))
    say(f"{total.passed} passed, {total.failed} failed, {total.skipped} skipped")
    return 0 if total.failed == 0 and total.passed > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
