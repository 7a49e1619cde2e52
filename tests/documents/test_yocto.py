# SPDX-License-Identifier: MIT
"""The layer for Yocto, as far as it can be checked without bitbake."""

import fnmatch
import hashlib
import os
import re
import subprocess
import types

import pytest

import bitbake
import recipes

YOCTO = recipes.ROOT / "packaging" / "yocto"
BUILD = recipes.ROOT / "build" / "i686"


@pytest.fixture(scope="module", name="recipe")
def the_recipe():
    found = list((YOCTO / "recipes-kestrova" / "kestrova-system").glob("*.bb"))
    assert [path.name for path in found] == ["kestrova-system.bb"]
    return bitbake.Recipe(found[0])


def test_the_layer_finds_the_recipe(recipe):
    layer = bitbake.Recipe(YOCTO / "conf" / "layer.conf").variables
    name = layer["BBFILE_COLLECTIONS"].strip()
    for variable in ("BBFILE_PATTERN", "BBFILE_PRIORITY", "LAYERDEPENDS", "LAYERSERIES_COMPAT"):
        assert layer[f"{variable}_{name}"]
    found = {str(path.relative_to(YOCTO)) for pattern in layer["BBFILES"].split()
             for path in YOCTO.glob(pattern.removeprefix("${LAYERDIR}/"))}
    assert found == {str(path.relative_to(YOCTO)) for path in YOCTO.rglob("*.bb*")
                     if path.suffix in (".bb", ".bbappend")}
    assert len(found) == 4 and recipe.inherited[0] == "cmake"


def test_the_recipe_has_the_licence_of_the_project(recipe):
    assert recipe.variables["LICENSE"] == "MIT"
    file, _, checksum = recipe.variables["LIC_FILES_CHKSUM"].removeprefix("file://").partition(";")
    assert checksum == "md5=" + hashlib.md5((recipes.ROOT / file).read_bytes()).hexdigest()


class Data(dict):
    """What a recipe's Python functions use of bitbake."""

    def __init__(self, **variables):
        super().__init__(variables)
        self.flags = {}
        self.parse = types.SimpleNamespace(SkipRecipe=RuntimeError, mark_dependency=self.depend)

    getVar = dict.get

    def setVarFlag(self, name, flag, value):
        self.flags[name, flag] = value

    def depend(self, _, path):
        self["depends"] = path

    def expand(self, recipe, text):
        """Returns the value of an inline Python expression."""
        (code,) = re.fullmatch(r"\$\{@(.*)\}", text).groups()
        names = {"d": self, "os": os, "bb": self}
        exec(recipe.python, names)  # pylint: disable=exec-used
        return eval(code, names)    # pylint: disable=eval-used

    def finish(self, recipe):
        """Runs the code that bitbake runs after reading the recipe."""
        names = {"d": self, "os": os, "bb": self}
        exec(f"def run():\n{recipe.functions['python']}\nrun()", names)  # pylint: disable=exec-used


def test_the_recipe_takes_the_tree_around_it(recipe):
    here = YOCTO / "recipes-kestrova" / "kestrova-system"
    source = recipe.variables["KESTROVA_SYSTEM_SOURCE"].replace("${THISDIR}", str(here))
    data = Data(KESTROVA_SYSTEM_RELEASE="")
    data["KESTROVA_SYSTEM_SOURCE"] = data.expand(recipe, source)
    assert data["KESTROVA_SYSTEM_SOURCE"] == str(recipes.ROOT)
    assert data.expand(recipe, recipe.variables["EXTERNALSRC"]) == str(recipes.ROOT)
    assert data.expand(recipe, recipe.variables["SRC_URI"]) == ""
    assert data.expand(recipe, recipe.variables["PV"]) == recipes.project_version()
    assert data["depends"] == str(recipes.ROOT / "CMakeLists.txt")
    assert "externalsrc" in recipe.inherited


def test_the_recipe_takes_a_release(recipe):
    data = Data(KESTROVA_SYSTEM_RELEASE="https://example.com", KESTROVA_SYSTEM_SOURCE="/nowhere")
    assert data.expand(recipe, recipe.variables["EXTERNALSRC"]) == ""
    assert data.expand(recipe, recipe.variables["SRC_URI"]) == \
        "${KESTROVA_SYSTEM_RELEASE}/${BPN}-${PV}.tar.xz"


def test_the_recipe_says_when_there_are_no_sources(recipe):
    data = Data(EXTERNALSRC="/nowhere", KESTROVA_SYSTEM_SOURCE="/nowhere")
    assert data.expand(recipe, recipe.variables["PV"]) == "0"
    with pytest.raises(RuntimeError, match="/nowhere has no sources: set KESTROVA_SYSTEM_RELEASE"):
        data.finish(recipe)


def test_the_recipe_watches_the_sources_without_a_file_in_git(recipe):
    """By itself the class externalsrc would write below .git for it."""
    data = Data(EXTERNALSRC=str(recipes.ROOT), WATCHED=recipe.variables["WATCHED"])
    data.finish(recipe)
    assert set(data.flags) == {(task, "file-checksums") for task in ("do_configure", "do_compile")}
    for watched in data.flags.values():
        assert all(os.path.exists(word.removesuffix(":True")) for word in watched.split())
    watched = {word.partition("/")[0] for word in recipe.words("WATCHED")}
    listed = subprocess.run([recipes.ROOT / "script" / "sources"], capture_output=True, text=True,
                            check=True).stdout.splitlines()
    built = {name.partition("/")[0] for name in listed
             if name.endswith(("CMakeLists.txt", ".cpp", ".in"))}
    assert built - watched == {"bench", "fuzz", "tests"}    # turned off by the recipe


def test_the_recipe_s_options_are_those_of_the_project(recipe, tmp_path):
    options = recipe.words("EXTRA_OECMAKE")
    assert recipes.decided(options) == recipes.project_options()
    recipes.configured(options, tmp_path / "build")


@pytest.mark.parametrize("text", ['A = "b', "A = b", "inherit", "f() {\nx\n", 'A = "b" "c"',
                                  "A", 'A "b"'])
def test_the_reader_of_recipes_refuses_bad_ones(tmp_path, text):
    bad = tmp_path / "bad.bb"
    bad.write_text(text + "\n")
    with pytest.raises((SyntaxError, IndexError)):
        bitbake.Recipe(bad)


FOLDERS = {"prefix": "/usr", "sysconfdir": "/etc", "bindir": "/usr/bin", "sbindir": "/usr/sbin", "libdir": "/usr/lib",
           "includedir": "/usr/include", "datadir": "/usr/share", "mandir": "/usr/share/man",
           "PN": "kestrova-system"}


def expanded(text):
    return re.sub(r"\$\{(\w+)\}", lambda match: FOLDERS[match[1]], text)


def run_function(body, **variables):
    return subprocess.run(["sh", "-eu", "-c", body], env={**os.environ, **FOLDERS, **variables},
                          capture_output=True, text=True, check=False)


@pytest.fixture
def installed(recipe, tmp_path):
    """The tree that the recipe's do_install creates."""
    if not (BUILD / "kestrova").exists():
        pytest.skip(f"{BUILD / 'kestrova'} is not built")
    tree = tmp_path / "tree"
    subprocess.run(["cmake", "--install", BUILD, "--prefix", tree / "usr"], check=True,
                   stdout=subprocess.DEVNULL)
    libraries = next(tree.rglob("libkestrova-system.so.1")).parent
    if libraries.name != "lib":     # a folder for each processor, as Debian has it
        for path in libraries.iterdir():
            path.rename(tree / "usr" / "lib" / path.name)
        libraries.rmdir()
    for name in ("do_install:append", "do_install_ptest"):
        done = run_function(recipe.functions[name], D=str(tree), S=str(recipes.ROOT), B=str(BUILD),
                            PTEST_PATH="/usr/lib/kestrova-system/ptest")
        assert done.returncode == 0, done.stderr
    described = tree / "usr" / "lib" / "pkgconfig" / "kestrova-system.pc"
    assert described.read_text().splitlines().count("prefix=/usr") == 1
    return tree


def packages(recipe):
    """Returns the patterns of each package in the order in which bitbake assigns the files, including
    those of every recipe."""
    own = [expanded(name) for name in recipe.words("PACKAGES")]
    usual = {"kestrova-system-dev": ["/usr/include", "/usr/lib/lib*.so", "/usr/lib/pkgconfig"],
             "kestrova-system-doc": ["/usr/share/man", "/usr/share/doc"],
             "kestrova-system-ptest": ["/usr/lib/kestrova-system/ptest"],
             # of the class bash-completion
             "kestrova-system-bash-completion": ["/usr/share/bash-completion"],
             "kestrova-system": ["/usr/bin/*", "/usr/sbin/*", "/usr/lib/lib*.so.*"]}
    files = {expanded(name).removeprefix("FILES:"): expanded(value).split()
             for name, value in recipe.variables.items() if name.startswith("FILES:")}
    return {name: files.get(name, []) + usual.get(name, []) for name in [*own, *usual]}


def test_everything_that_is_installed_has_its_package(recipe, installed):
    patterns = packages(recipe)
    holds = {name: [] for name in patterns}
    for path in sorted(installed.rglob("*")):
        if path.is_dir() and not path.is_symlink():
            continue
        name = "/" + str(path.relative_to(installed))
        takers = [package for package, listed in patterns.items() for pattern in listed
                  if fnmatch.fnmatchcase(name, pattern) or name.startswith(pattern + "/")]
        assert takers, f"{name} belongs to no package"
        holds[takers[0]].append(name)
    version = recipes.project_version()
    assert holds["kestrova-system"] == ["/usr/lib/libkestrova-system.so.1",
                                        f"/usr/lib/libkestrova-system.so.{version}"]
    assert "/usr/lib/libkestrova-system.so" in holds["kestrova-system-dev"]
    assert "/usr/share/man/man8/kestrova-box-tools.8" in holds["kestrova-system-doc"]
    for name in ("dvr", "boot-sw"):
        assert (installed / name).is_dir() and f"/{name}" in patterns["kestrova-system"]
    for package, listed in patterns.items():
        if package == "kestrova-system":
            continue    # its own patterns are the mount points, which hold no file
        own = expanded(recipe.variables.get("FILES:${PN}" + package.removeprefix("kestrova-system"),
                                            "")).split()
        for pattern in own:
            assert [name for name in holds[package] if fnmatch.fnmatchcase(name, pattern)
                    or name.startswith(pattern + "/")], f"{package}: nothing is {pattern}"
        assert listed and (holds[package] or package == "kestrova-system-doc")


def test_the_class_for_images_puts_the_adapters_in_place(recipe, image):
    described = image / "usr" / "lib" / "pkgconfig" / "kestrova-system.pc"
    described.parent.mkdir()
    described.write_text("prefix=${pcfiledir}/../..\nlibdir=${prefix}/lib\n")
    done = run_function(recipe.functions["do_install:append"], D=str(image), S=str(recipes.ROOT))
    assert done.returncode == 0, done.stderr
    assert described.read_text() == "prefix=/usr\nlibdir=${prefix}/lib\n"
    box = bitbake.Recipe(YOCTO / "classes" / "kestrova-box.bbclass")
    (hook,) = box.variables["ROOTFS_POSTPROCESS_COMMAND"].split()
    done = run_function(box.functions[hook.rstrip(";")], IMAGE_ROOTFS=str(image))
    assert done.returncode == 0, done.stderr
    recipes.assert_adapted(image)
    assert box.variables["IMAGE_INSTALL:append"].split() == ["kestrova-system-box-tools"]
