# SPDX-License-Identifier: MIT
"""The recipes for Buildroot and Yocto, as far as they can be checked without either."""

import fnmatch
import hashlib
import os
import re
import subprocess

import pytest

import bitbake
import documents

ROOT = documents.ROOT
BUILDROOT = ROOT / "packaging" / "buildroot"
PACKAGE = BUILDROOT / "package" / "kestrova-system"
YOCTO = ROOT / "packaging" / "yocto"
BUILD = ROOT / "build" / "i686"
ADAPTERS = ("sfdisk", "mkfs.xfs")

# What Buildroot itself would provide around a package.
STUBS = r"""
qstrip = $(strip $(subst ",,$(1)))
define sep


endef
INSTALL = install
cmake-package = CMAKE_PACKAGE := called
KESTROVA_SYSTEM_DIR = {root}
TARGET_DIR = {target}
BR2_EXTERNAL_KESTROVA_PATH = {external}
KESTROVA_SYSTEM_POST_INSTALL_TARGET_HOOKS =
KESTROVA_SYSTEM_TARGET_FINALIZE_HOOKS =
include $(BR2_EXTERNAL_KESTROVA_PATH)/external.mk
print-%: ; @printf '%s' '$($*)'
{root}/.installed: FORCE ; $(foreach hook,$(KESTROVA_SYSTEM_POST_INSTALL_TARGET_HOOKS),$(call $(hook))$(sep))
finalize: ; $(foreach hook,$(KESTROVA_SYSTEM_TARGET_FINALIZE_HOOKS),$(call $(hook))$(sep))
FORCE:
"""

# The symbols of Buildroot that the menu leans on; a "bool" that can be chosen.
BUILDROOT_SYMBOLS = """
BR2_i386 BR2_x86_64 BR2_arm BR2_TOOLCHAIN_USES_GLIBC BR2_TOOLCHAIN_GCC_AT_LEAST_12
BR2_INSTALL_LIBSTDCPP BR2_STATIC_LIBS BR2_ROOTFS_MERGED_USR BR2_PACKAGE_LIBURCU_ARCH_SUPPORTS
BR2_PACKAGE_E2FSPROGS BR2_PACKAGE_HDPARM BR2_PACKAGE_UTIL_LINUX BR2_PACKAGE_UTIL_LINUX_BINARIES
BR2_PACKAGE_UTIL_LINUX_MOUNT BR2_PACKAGE_XFSPROGS
""".split()
NEEDED = {"BR2_i386": 2, "BR2_TOOLCHAIN_USES_GLIBC": 2, "BR2_TOOLCHAIN_GCC_AT_LEAST_12": 2,
          "BR2_INSTALL_LIBSTDCPP": 2, "BR2_STATIC_LIBS": 0, "BR2_ROOTFS_MERGED_USR": 2,
          "BR2_PACKAGE_LIBURCU_ARCH_SUPPORTS": 2}


def project_version():
    return re.search(r"project\(kestrova-system VERSION ([\d.]+)", documents.read("CMakeLists.txt"))[1]


def project_options():
    return set(re.findall(r"^option\((KESTROVA_\w+)", documents.read("CMakeLists.txt"), re.M))


@pytest.fixture
def image(tmp_path):
    """The root of an image with a merged /usr and today's two tools."""
    root = tmp_path / "image"
    (root / "usr" / "sbin").mkdir(parents=True)
    (root / "usr" / "lib").mkdir()
    (root / "sbin").symlink_to("usr/sbin")
    for name in ADAPTERS:
        tool = root / "usr" / "sbin" / name
        tool.write_text("#!/bin/sh\necho the tool itself\n")
        tool.chmod(0o755)
    return root


def assert_adapted(image):
    for name in ADAPTERS:
        adapter = ROOT / "box" / "tools" / name
        place = image / "sbin" / name
        assert place.is_symlink()
        installed = image / os.readlink(place).lstrip("/")
        assert installed.read_bytes() == adapter.read_bytes() and os.access(installed, os.X_OK)
        tool = image / "usr" / "lib" / "kestrova" / "tools" / name
        assert "the tool itself" in tool.read_text() and os.access(tool, os.X_OK)


@pytest.fixture
def make(tmp_path, image):
    makefile = tmp_path / "Makefile"
    makefile.write_text(STUBS.replace("{root}", str(ROOT)).replace("{target}", str(image))
                        .replace("{external}", str(BUILDROOT)))

    def run(*arguments):
        done = subprocess.run(["make", "-f", makefile, "--warn-undefined-variables", *arguments],
                              cwd=tmp_path, capture_output=True, text=True, check=False)
        assert done.returncode == 0, done.stderr
        undefined = set(re.findall(r"undefined variable '(\w+)'", done.stderr))
        assert all(name.startswith("BR2_PACKAGE_KESTROVA_SYSTEM") for name in undefined), undefined
        return done.stdout

    return run


def configured(options, folder):
    """Configures the project with a recipe's options; each must be one that it knows."""
    done = subprocess.run(["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", *options],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    assert "not used by the project" not in done.stderr, done.stderr


def decided(options):
    return {option[2:].partition("=")[0] for option in options
            if option.startswith("-DKESTROVA_")}


def test_make_reads_the_buildroot_package(make):
    variable = {name: make(f"print-KESTROVA_SYSTEM_{name}") for name in
                ("VERSION", "SITE", "SITE_METHOD", "LICENSE", "LICENSE_FILES", "INSTALL_STAGING")}
    assert variable == {"VERSION": project_version(), "SITE": str(ROOT), "SITE_METHOD": "local",
                        "LICENSE": "MIT", "LICENSE_FILES": "LICENSE", "INSTALL_STAGING": "YES"}
    assert make("print-CMAKE_PACKAGE") == "called"


def test_the_buildroot_sources_can_be_elsewhere(make):
    site = make("print-KESTROVA_SYSTEM_SITE", 'BR2_PACKAGE_KESTROVA_SYSTEM_SOURCE="/src/here"')
    assert site == "/src/here"


@pytest.mark.parametrize("command", ["y", ""])
def test_the_buildroot_options_are_those_of_the_project(make, command, tmp_path):
    options = make("print-KESTROVA_SYSTEM_CONF_OPTS",
                   f"BR2_PACKAGE_KESTROVA_SYSTEM_COMMAND={command}").split()
    assert decided(options) == project_options()
    assert f"-DKESTROVA_APP={'ON' if command else 'OFF'}" in options
    configured(options, tmp_path / "build")


def test_the_buildroot_hooks_put_the_adapters_in_place(make, image):
    chosen = "BR2_PACKAGE_KESTROVA_SYSTEM_DRIVE=y"
    make(str(ROOT / ".installed"), chosen)
    make("finalize", chosen)
    assert_adapted(image)
    make("finalize", chosen)    # as when an image is built again
    assert_adapted(image)


def test_the_buildroot_hooks_leave_an_image_without_a_drive_alone(make, image):
    before = sorted(image.rglob("*"))
    make(str(ROOT / ".installed"))
    make("finalize")
    assert sorted(image.rglob("*")) == before


def test_buildroot_knows_the_licence_file():
    algorithm, value, name = [line for line in (PACKAGE / "kestrova-system.hash").read_text()
                              .splitlines() if not line.startswith("#")][0].split()
    assert hashlib.new(algorithm, (ROOT / name).read_bytes()).hexdigest() == value


def test_the_external_tree_is_named():
    named = dict(line.split(": ", 1) for line in
                 (BUILDROOT / "external.desc").read_text().splitlines())
    assert re.fullmatch(r"[A-Z_]+", named["name"]) and named["desc"]
    text = (BUILDROOT / "external.mk").read_text() + (BUILDROOT / "Config.in").read_text()
    assert set(re.findall(r"BR2_EXTERNAL_(\w+)_PATH", text)) == {named["name"]}


@pytest.fixture
def menu(tmp_path, monkeypatch):
    """Buildroot's menu with this one package, as kconfig reads it."""
    kconfiglib = pytest.importorskip("kconfiglib")
    monkeypatch.setenv("BR2_EXTERNAL_KESTROVA_PATH", str(BUILDROOT))
    top = tmp_path / "Kconfig"
    top.write_text("".join(f'config {name}\n\tbool "{name}"\n' for name in BUILDROOT_SYMBOLS)
                   + f'source "{BUILDROOT}/Config.in"\n')
    kconfig = kconfiglib.Kconfig(str(top), warn_to_stderr=False)
    kconfig.warn_assign_redun = False
    assert kconfig.warnings == []
    undefined = [name for name, symbol in kconfig.syms.items()
                 if name.startswith("BR2_") and not symbol.nodes]
    assert undefined == []
    for name, value in NEEDED.items():
        kconfig.syms[name].set_value(value)
    return kconfig


def offered(menu):
    return menu.syms["BR2_PACKAGE_KESTROVA_SYSTEM"].visibility == 2


def explained(menu):
    return [node for node in menu.node_iter() if type(node.item) is int     # a comment
            and node.prompt[0].startswith("kestrova-system needs")
            and node.prompt[1] is not menu.n and _value(node.prompt[1]) == 2]


def _value(expression):
    import kconfiglib
    return kconfiglib.expr_value(expression)


def test_the_menu_offers_the_package_where_it_can_be_built(menu):
    assert offered(menu) and not explained(menu)


@pytest.mark.parametrize("name", [name for name in NEEDED if name not in
                                  ("BR2_i386", "BR2_PACKAGE_LIBURCU_ARCH_SUPPORTS")])
def test_the_menu_says_what_is_missing(menu, name):
    menu.syms[name].set_value(2 - NEEDED[name])
    assert not offered(menu) and explained(menu)


def test_the_menu_is_silent_on_other_processors(menu):
    menu.syms["BR2_i386"].set_value(0)
    assert not offered(menu) and not explained(menu)
    menu.syms["BR2_x86_64"].set_value(2)
    assert offered(menu)


def test_the_drive_selects_its_tools(menu):
    menu.syms["BR2_PACKAGE_KESTROVA_SYSTEM"].set_value(2)
    tools = [name for name in BUILDROOT_SYMBOLS if name.startswith("BR2_PACKAGE_")]
    assert {menu.syms[name].str_value for name in tools} == {"y"}
    menu.syms["BR2_PACKAGE_KESTROVA_SYSTEM_DRIVE"].set_value(0)
    assert menu.syms["BR2_PACKAGE_XFSPROGS"].str_value == "n"


def test_the_options_of_the_menu_are_those_of_the_package():
    named = re.compile(r"\bBR2_PACKAGE_KESTROVA_SYSTEM_\w+")
    in_menu = set(re.findall(r"^config (BR2_PACKAGE_KESTROVA_SYSTEM_\w+)",
                             (PACKAGE / "Config.in").read_text(), re.M))
    assert in_menu == set(named.findall((PACKAGE / "kestrova-system.mk").read_text()))
    assert in_menu == set(named.findall((BUILDROOT / "README.md").read_text()))


@pytest.fixture(scope="module", name="recipe")
def the_recipe():
    found = list((YOCTO / "recipes-kestrova" / "kestrova-system").glob("*.bb"))
    assert [path.name for path in found] == [f"kestrova-system_{project_version()}.bb"]
    return bitbake.Recipe(found[0])


def test_the_layer_finds_the_recipe(recipe):
    layer = bitbake.Recipe(YOCTO / "conf" / "layer.conf").variables
    name = layer["BBFILE_COLLECTIONS"].strip()
    for variable in ("BBFILE_PATTERN", "BBFILE_PRIORITY", "LAYERDEPENDS", "LAYERSERIES_COMPAT"):
        assert layer[f"{variable}_{name}"]
    pattern = layer["BBFILES"].strip().removeprefix("${LAYERDIR}/")
    assert len(list(YOCTO.glob(pattern))) == 1 and recipe.inherited[0] == "cmake"


def test_the_recipe_has_the_licence_of_the_project(recipe):
    assert recipe.variables["LICENSE"] == "MIT"
    file, _, checksum = recipe.variables["LIC_FILES_CHKSUM"].removeprefix("file://").partition(";")
    assert checksum == "md5=" + hashlib.md5((ROOT / file).read_bytes()).hexdigest()


def test_the_recipe_takes_the_tree_around_it(recipe):
    assert recipe.variables["EXTERNALSRC"] == "${KESTROVA_SYSTEM_SOURCE}"
    here = YOCTO / "recipes-kestrova" / "kestrova-system"
    source = recipe.variables["KESTROVA_SYSTEM_SOURCE"].replace("${THISDIR}", str(here))
    assert os.path.realpath(source) == str(ROOT) and "externalsrc" in recipe.inherited


def test_the_recipe_s_options_are_those_of_the_project(recipe, tmp_path):
    options = recipe.words("EXTRA_OECMAKE")
    assert decided(options) == project_options()
    configured(options, tmp_path / "build")


@pytest.mark.parametrize("text", ['A = "b', "A = b", "inherit", "f() {\nx\n", 'A = "b" "c"',
                                  "A", 'A "b"'])
def test_the_reader_of_recipes_refuses_bad_ones(tmp_path, text):
    bad = tmp_path / "bad.bb"
    bad.write_text(text + "\n")
    with pytest.raises((SyntaxError, IndexError)):
        bitbake.Recipe(bad)


FOLDERS = {"prefix": "/usr", "bindir": "/usr/bin", "sbindir": "/usr/sbin", "libdir": "/usr/lib",
           "includedir": "/usr/include", "datadir": "/usr/share", "mandir": "/usr/share/man",
           "PN": "kestrova-system"}


def expanded(text):
    return re.sub(r"\$\{(\w+)\}", lambda match: FOLDERS[match[1]], text)


def run_function(body, **variables):
    return subprocess.run(["sh", "-eu", "-c", body], env={**os.environ, **FOLDERS, **variables},
                          capture_output=True, text=True, check=False)


@pytest.fixture
def installed(recipe, tmp_path):
    """The tree that the recipe's do_install leaves."""
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
    done = run_function(recipe.functions["do_install:append"], D=str(tree), S=str(ROOT))
    assert done.returncode == 0, done.stderr
    return tree


def packages(recipe):
    """Patterns of each package in the order in which bitbake takes the files, with those that
    every recipe has."""
    own = [expanded(name) for name in recipe.words("PACKAGES")]
    usual = {"kestrova-system-dev": ["/usr/include", "/usr/lib/lib*.so", "/usr/lib/pkgconfig"],
             "kestrova-system-doc": ["/usr/share/man", "/usr/share/doc"],
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
    version = project_version()
    assert holds["kestrova-system"] == ["/usr/lib/libkestrova-system.so.1",
                                        f"/usr/lib/libkestrova-system.so.{version}"]
    assert "/usr/lib/libkestrova-system.so" in holds["kestrova-system-dev"]
    for package, listed in patterns.items():
        own = expanded(recipe.variables.get("FILES:${PN}" + package.removeprefix("kestrova-system"),
                                            "")).split()
        for pattern in own:
            assert [name for name in holds[package] if fnmatch.fnmatchcase(name, pattern)
                    or name.startswith(pattern + "/")], f"{package}: nothing is {pattern}"
        assert listed and (holds[package] or package == "kestrova-system-doc")


def test_the_class_for_images_puts_the_adapters_in_place(recipe, image):
    done = run_function(recipe.functions["do_install:append"], D=str(image), S=str(ROOT))
    assert done.returncode == 0, done.stderr
    box = bitbake.Recipe(YOCTO / "classes" / "kestrova-box.bbclass")
    (hook,) = box.variables["ROOTFS_POSTPROCESS_COMMAND"].split()
    done = run_function(box.functions[hook.rstrip(";")], IMAGE_ROOTFS=str(image))
    assert done.returncode == 0, done.stderr
    assert_adapted(image)
    assert box.variables["IMAGE_INSTALL:append"].split() == ["kestrova-system-box-tools"]
