# SPDX-License-Identifier: MIT
"""The examples of a build, run as their reader would. EXAMPLES names their directory; by default it is
that of the i686 build.

example(name, argument...)   runs one
"""

import os
import pathlib
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "app"))
FOLDER = pathlib.Path(os.environ.get("EXAMPLES", ROOT / "build/i686/examples"))
TIMEOUT = 60

# The address sanitizer does not notice that a thread that ends early unwinds.
os.environ.setdefault("ASAN_OPTIONS", "detect_stack_use_after_return=1")


@pytest.hookimpl(trylast=True)
def pytest_sessionfinish(session):
    """Sets exit status 77, ctest's for skipped, if every test was skipped."""
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    outcomes = reporter.stats
    if outcomes.get("skipped") and not any(
            outcomes.get(kind) for kind in ("passed", "failed", "error")):
        session.exitstatus = 77


@pytest.fixture(scope="session")
def examples():
    """Returns the directory of the examples."""
    if not (FOLDER / "table").exists():
        pytest.skip(f"there are no examples in {FOLDER}; build them, or set EXAMPLES")
    return FOLDER.resolve()


@pytest.fixture
def example(examples):
    """Returns a function that runs an example; output as text."""

    def run(name, *arguments, **options):
        options = {"input": "", "stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                   "text": True, "timeout": TIMEOUT, **options}
        return subprocess.run([examples / name, *map(str, arguments)], check=False, **options)

    return run
