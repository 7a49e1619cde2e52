# SPDX-License-Identifier: MIT
"""The library's and the command's packages: their contents, installation, use and removal."""

import json
import pathlib
import re
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
VERSION = re.search(r"^project\(\S+ VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.M)[1]
ARCHITECTURES = ["i386", "amd64"]
LIBRARIES = ["libc6", "libgcc-s1", "libstdc++6"]
TOOLS = ["e2fsprogs", "fdisk", "hdparm", "xfsprogs"]
OURS = ["libkestrova-system1", "libkestrova-system-dev", "kestrova-tools"]
FOR_ALL = ["libkestrova-system-doc", "kestrova-box-tools"]
SYMBOLS = ["libkestrova-system1-dbgsym", "kestrova-tools-dbgsym"]
CLIENT = """\
#include <System/BlockdevCfg.fmp.h>
#include <System/system.h>

int main() {
    SystemMinimalInit();
    SystemTerm();
    return 0;
}
"""
CLIENT_CMAKE = """\
cmake_minimum_required(VERSION 3.25)
project(client LANGUAGES CXX)
find_package(KestrovaSystem 1.0 REQUIRED)
add_executable(by-cmake client.cpp)
target_link_libraries(by-cmake PRIVATE KestrovaSystem::kestrova-system)
"""
# Paths of each package, and those of every package.
EVERY = [r"usr/share/doc/{name}/(copyright|changelog(\.Debian)?\.gz)"]
CONTENTS = {
    "libkestrova-system1": [r"usr/lib/{triplet}/libkestrova-system\.so\.1(\.\d+\.\d+)?"],
    "libkestrova-system-dev": [
        r"usr/include/kestrova/(System|base)/[\w./]+\.h",
        r"usr/lib/{triplet}/libkestrova-system\.so",
        r"usr/lib/{triplet}/cmake/KestrovaSystem/KestrovaSystem\w+(-\w+)?\.cmake",
        r"usr/lib/{triplet}/pkgconfig/kestrova-system\.pc",
        r"usr/share/man/man3/\w+\.3\.gz",
        r"usr/share/man/man7/kestrova-system\.7\.gz",
        r"usr/share/doc/libkestrova-system-dev/examples/(\w+\.cpp|CMakeLists\.txt)"],
    "libkestrova-system-doc": [r"usr/share/doc/libkestrova-system-doc/html/[\w/~-]+\.(html|css|js|png|svg)",
                               r"usr/share/doc-base/libkestrova-system-doc\.kestrova-system"],
    "kestrova-tools": [r"usr/bin/kestrova", r"usr/share/bash-completion/completions/kestrova",
                       r"usr/share/man/man1/kestrova\.1\.gz",
                       r"usr/share/doc/kestrova-tools/kestrova\.schema\.json"],
    "kestrova-box-tools": [
        r"usr/sbin/kestrova-box-tools", r"usr/lib/kestrova/box-tools/(sfdisk|mkfs\.xfs)",
        r"usr/share/man/man8/kestrova-box-tools\.8\.gz"],
}
TRIPLETS = {"i386": "i386-linux-gnu", "amd64": "x86_64-linux-gnu"}
EACH = [(name, architecture) for name in OURS for architecture in ARCHITECTURES] + [
    (name, "all") for name in FOR_ALL]
WITH_SYMBOLS = [(name, architecture) for name in SYMBOLS for architecture in ARCHITECTURES]


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def field(deb, name):
    return output("dpkg-deb", "--field", deb, name).strip()


def unpacked(deb, folder):
    subprocess.run(["dpkg-deb", "--extract", deb, folder], check=True)
    return folder


def files_in(folder):
    return {str(path.relative_to(folder)): path for path in sorted(folder.rglob("*"))
            if path.is_symlink() or not path.is_dir()}


def test_every_package_is_built(packages):
    assert packages.all() == sorted(packages.deb(*one).name for one in EACH + WITH_SYMBOLS)


@pytest.mark.parametrize("name,architecture", EACH)
def test_a_package_holds_what_is_meant_and_no_more(packages, tmp_path, name, architecture):
    patterns = [pattern.format(name=name, triplet=TRIPLETS.get(architecture))
                for pattern in CONTENTS[name] + EVERY]
    found = files_in(unpacked(packages.deb(name, architecture), tmp_path))

    unmeant = [path for path in found
               if not any(re.fullmatch(pattern, path) for pattern in patterns)]
    assert unmeant == []
    for pattern in patterns:
        assert any(re.fullmatch(pattern, path) for path in found), pattern


@pytest.mark.parametrize("architecture", ARCHITECTURES)
def test_the_library_depends_on_the_standard_libraries_alone(packages, architecture):
    def depends(name):
        return field(packages.deb(name, architecture), "Depends")

    assert re.findall(r"(?:^|, )(\S+)", depends("libkestrova-system1")) == LIBRARIES
    assert depends("libkestrova-system-dev") == f"libkestrova-system1 (= {VERSION}-1)"
    assert f"libkestrova-system1 (>= {VERSION})" in depends("kestrova-tools").split(", ")
    assert field(packages.deb("libkestrova-system1", architecture), "Recommends") == ", ".join(TOOLS)
    for name in OURS[:2]:
        assert field(packages.deb(name, architecture), "Multi-Arch") == "same"


@pytest.mark.parametrize("architecture", ARCHITECTURES)
def test_lintian_has_neither_errors_nor_warnings(packages, architecture):
    if shutil.which("lintian") is None:
        pytest.skip("lintian is not installed")
    changes = packages.folder / f"kestrova-system_{VERSION}-1_{architecture}.changes"
    judged = subprocess.run(["lintian", "--fail-on", "error,warning", changes],
                            capture_output=True, text=True, check=False)
    assert (judged.returncode, judged.stdout) == (0, "")


@pytest.mark.parametrize("architecture", ARCHITECTURES)
def test_the_build_gives_no_warning_of_the_compiler(packages, architecture):
    log = (packages.folder / f"build-{architecture}.log").read_text()
    assert "base/log/log.cpp" in log
    assert [line for line in log.splitlines() if "warning:" in line] == []


@pytest.mark.parametrize("name,architecture", WITH_SYMBOLS)
def test_symbols_are_those_of_the_stripped_program(packages, tmp_path, name, architecture):
    def build_ids(package):
        folder = unpacked(packages.deb(package, architecture), tmp_path / package)
        programs = [path for path in folder.rglob("*") if path.is_file() and not path.is_symlink()
                    and path.read_bytes()[:4] == b"\x7fELF"]
        return {re.search(r"Build ID: (\w+)", output("readelf", "--notes", path))[1]: path
                for path in programs}

    programs, symbols = build_ids(name.removesuffix("-dbgsym")), build_ids(name)
    assert programs.keys() == symbols.keys() and programs
    for identity, path in programs.items():
        assert ".debug_info" not in output("readelf", "--section-headers", "--wide", path)
        assert ".debug_info" in output("readelf", "--section-headers", "--wide", symbols[identity])


LINK = re.compile(r"""(?:href|src)=["']([^"'<>]*)["']""")


def test_links_of_the_documentation_lead_inside_the_package(packages, tmp_path):
    html = unpacked(packages.deb("libkestrova-system-doc", "all"), tmp_path) / \
        "usr/share/doc/libkestrova-system-doc/html"
    pages = {path: path.read_text() for path in sorted(html.rglob("*.html"))}
    assert html / "index.html" in pages and html / "md_docs_integrating.html" in pages
    anchors = {path: set(re.findall(r"""(?:id|name)=["']([^"']+)["']""", text))
               for path, text in pages.items()}
    lost = []
    for page, text in pages.items():
        # Links that a script assembles are not checked.
        for link in LINK.findall(re.sub(r"<script\b[^>]*>.+?</script>", "", text, flags=re.S)):
            if link.startswith(("http://", "https://", "mailto:", "javascript:")):
                continue
            file, _, anchor = link.partition("#")
            target = (page.parent / file).resolve() if file else page
            if not target.is_relative_to(html.resolve()) or not target.is_file() or \
                    (anchor and anchor not in anchors.get(target, ())):
                lost.append(f"{page.name}: {link}")
    assert lost == []


def test_the_32_bit_packages_ask_for_no_vector_registers(packages, tmp_path):
    unpacked(packages.deb("libkestrova-system1", "i386"), tmp_path)
    unpacked(packages.deb("kestrova-tools", "i386"), tmp_path)
    for program in [tmp_path / f"usr/lib/i386-linux-gnu/libkestrova-system.so.{VERSION}",
                    tmp_path / "usr/bin/kestrova"]:
        code = output("objdump", "--disassemble", program)
        assert "push   %ebp" in code
        assert not re.search(r"%[xyz]mm\d", code)


def test_an_unpacked_archive_has_the_files_that_git_has(tmp_path):
    listed = output(ROOT / "script" / "sources")
    archive = tmp_path / "a folder"
    for name in listed.splitlines():
        (archive / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / name, archive / name, follow_symlinks=False)
    (archive / "build").mkdir()
    (archive / "build" / "made here").touch()

    def ended(text, end):
        return sorted(text.split(end)[:-1])

    script = archive / "script" / "sources"
    assert ended(output(script), "\n") == ended(listed, "\n")
    assert ended(output(script, "-z"), "\0") == ended(listed, "\n")
    assert "README.md" in listed.splitlines()


def test_a_second_build_elsewhere_gives_the_same_bytes(packages):
    again = subprocess.run([ROOT / "script" / "package", "--check"], stdin=subprocess.DEVNULL,
                           capture_output=True, text=True, check=False)
    assert (again.returncode, again.stdout) == (
        0, "12 packages, the same bytes in a second build\n"), again.stderr


def test_both_architectures_stand_side_by_side_and_leave_nothing(packages, desktop):
    before = desktop.files()
    both = [(name, architecture) for name in OURS[:2] for architecture in ARCHITECTURES]
    desktop.install(*(packages.deb(*one) for one in both))

    installed = desktop.check("dpkg-query", "--show", "-f",
                              "${binary:Package} ${db:Status-Status}\n", *OURS[:2])
    assert sorted(installed.split("\n")) == sorted(
        [""] + [f"{name}:{architecture} installed" for name, architecture in both])
    loader = desktop.check("ldconfig", "-p")
    for triplet in TRIPLETS.values():
        assert f"/{triplet}/libkestrova-system.so.1\n" in loader

    desktop.check("dpkg", "--purge", *(f"{name}:{architecture}" for name, architecture in both))
    assert desktop.files() == before


def test_the_32_bit_command_runs_and_leaves_nothing(packages, desktop):
    before = desktop.files()
    desktop.install(packages.deb("libkestrova-system1", "i386"),
                    packages.deb("kestrova-tools", "i386"))

    assert VERSION in desktop.check("kestrova", "--version")
    assert len(desktop.check("kestrova", "table").splitlines()) > 3
    failed = desktop.run(["kestrova", "--json", "vars", "get", "x"], capture_output=True, text=True)
    assert failed.returncode == 1
    assert json.loads(failed.stdout.splitlines()[-1]), failed
    completion = "source /usr/share/bash-completion/completions/kestrova; complete -p kestrova"
    assert "kestrova" in desktop.check("bash", "-c", completion)

    desktop.check("dpkg", "--purge", "kestrova-tools:i386", "libkestrova-system1:i386")
    # The lock stays until the next start of the machine, which empties /run: another process may
    # use it.
    desktop.check("rm", "-r", "/run/lock/kestrova")
    assert desktop.files() == before


def test_a_client_is_built_with_what_is_installed(packages, builder):
    builder.install(*(packages.deb(name, builder.architecture) for name in OURS[:2]))
    (builder.path / "srv/client.cpp").write_text(CLIENT)
    (builder.path / "srv/CMakeLists.txt").write_text(CLIENT_CMAKE)

    builder.check("sh", "-c", "g++ -std=c++17 client.cpp -o by-pkg-config "
                              "$(pkg-config --cflags --libs kestrova-system)", folder="/srv")
    builder.check("cmake", "-G", "Ninja", "-B", "build", folder="/srv")
    builder.check("cmake", "--build", "build", folder="/srv")
    for program in ["./by-pkg-config", "build/by-cmake"]:
        assert "libkestrova-system.so.1" in builder.check("ldd", program, folder="/srv")
        builder.check(program, folder="/srv")
