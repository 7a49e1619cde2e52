# SPDX-License-Identifier: MIT
"""A boot environment file has the same bytes on a host of the other byte order: the library's
sources are compiled for s390x (64 bits, big-endian) and run in QEMU's user mode."""

import pathlib
import shutil
import subprocess
from concurrent.futures import ThreadPoolExecutor

import pytest

from bootpartition import image, record

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMPILE = ["clang++", "--target=s390x-linux-gnu", "-std=c++17", "-O0", "-g0", "-w", "-D_GNU_SOURCE",
           f"-I{ROOT}"]
PROGRAM = r"""
#include <System/bootvarsmanager/sysBootEnvironmentFile.h>
#include <base/outputlevel.h>
#include <cstdio>

int main(int, char** arguments) {
    kestrova_debug_output_level = 0;
    const unsigned one = 1;
    sysBootEnvironmentFile file(arguments[1]);
    std::string text;
    const unsigned char bytes[] = {0, 1, 2};
    const bool done = file.exportText(text) && file.importText("c=3\na=\n") &&
                      file.setVarB("d", bytes, 3);
    std::printf("%s %s%s", *reinterpret_cast<const char*>(&one) == 0 ? "big" : "little",
                text.c_str(), file.reason().c_str());
    return done ? 0 : 1;
}
"""


def sources():
    """What the class needs of the library."""
    files = [path for folder in ["base", "base/io", "base/log", "base/text"]
             for path in (ROOT / folder).glob("*.cpp")]
    folder = ROOT / "System/bootvarsmanager"
    names = ["binaryvalue", "bootvariables", "environmentfiles", "environmentimage",
             "environmenttext", "sysBootEnvironmentFile"]
    return files + [folder / f"{name}.cpp" for name in names]


@pytest.fixture(scope="module", name="program")
def program_fixture(tmp_path_factory):
    folder = tmp_path_factory.mktemp("s390x")
    probe = folder / "probe.cpp"
    probe.write_text("#include <string>\nint main() { return std::string().size(); }\n")
    for tool in ["clang++", "qemu-s390x"]:
        if shutil.which(tool) is None:
            pytest.skip(f"there is no {tool}")
    if subprocess.run([*COMPILE, "-static", probe, "-o", folder / "probe"], check=False,
                      capture_output=True).returncode != 0:
        pytest.skip("there is no C++ library for s390x (libstdc++-12-dev-s390x-cross)")
    main = folder / "main.cpp"
    main.write_text(PROGRAM)

    def compile_one(numbered):
        number, source = numbered
        target = folder / f"{number}.o"
        subprocess.run([*COMPILE, "-c", source, "-o", target], check=True, timeout=300)
        return target

    with ThreadPoolExecutor(2) as pool:
        objects = list(pool.map(compile_one, enumerate([main, *sources()])))
    subprocess.run([*COMPILE, "-static", *objects, "-o", folder / "program"], check=True,
                   timeout=300)
    return folder / "program"


def test_the_bytes_are_those_of_the_box(program, tmp_path):
    env = tmp_path / "env"
    env.write_bytes(image(record(b"a", b"1"), record(b"b", 300 * b"v")))
    run = subprocess.run(["qemu-s390x", program, env], capture_output=True, text=True, timeout=60,
                         check=False)
    assert (run.returncode, run.stdout) == (0, f"big a=1\nb={300 * 'v'}\n"), run
    assert env.read_bytes() == image(record(b"b", 300 * b"v"), record(b"c", b"3"),
                                     record(b"d", b"AAEC"))
