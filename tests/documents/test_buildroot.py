# SPDX-License-Identifier: MIT
"""The package for Buildroot, as far as it can be checked without Buildroot."""

import hashlib
import re
import shutil
import subprocess

import pytest

import documents
import recipes

BUILDROOT = recipes.ROOT / "packaging" / "buildroot"
PACKAGE = BUILDROOT / "package" / "kestrova-system"

# What Buildroot itself provides around a package.
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
KESTROVA_SYSTEM_ROOTFS_PRE_CMD_HOOKS =
KESTROVA_SYSTEM_TARGET_FINALIZE_HOOKS =
include $(BR2_EXTERNAL_KESTROVA_PATH)/external.mk
print-%: ; @printf '%s' '$($*)'
{root}/.installed: FORCE ; $(foreach hook,$(KESTROVA_SYSTEM_POST_INSTALL_TARGET_HOOKS),$(call $(hook))$(sep))
rootfs: ; $(foreach hook,$(KESTROVA_SYSTEM_ROOTFS_PRE_CMD_HOOKS),$(call $(hook))$(sep))
finalize: ; $(foreach hook,$(KESTROVA_SYSTEM_TARGET_FINALIZE_HOOKS),$(call $(hook))$(sep))
{root}/.init: FORCE ; $(call KESTROVA_SYSTEM_INSTALL_INIT_$(INIT))
FORCE:
"""

# The symbols of Buildroot that the menu uses; each a selectable "bool".
BUILDROOT_SYMBOLS = """
BR2_i386 BR2_x86_64 BR2_arm BR2_TOOLCHAIN_USES_GLIBC BR2_TOOLCHAIN_GCC_AT_LEAST_12
BR2_INSTALL_LIBSTDCPP BR2_STATIC_LIBS BR2_ROOTFS_MERGED_USR BR2_PACKAGE_LIBURCU_ARCH_SUPPORTS
BR2_PACKAGE_E2FSPROGS BR2_PACKAGE_HDPARM BR2_PACKAGE_UTIL_LINUX BR2_PACKAGE_UTIL_LINUX_BINARIES
BR2_PACKAGE_UTIL_LINUX_MOUNT BR2_PACKAGE_XFSPROGS BR2_HOST_CMAKE_AT_LEAST_3_25
BR2_PACKAGE_CLI11 BR2_PACKAGE_JSON_FOR_MODERN_CPP
BR2_PACKAGE_BUSYBOX_SHOW_OTHERS BR2_TOOLCHAIN_HEADERS_AT_LEAST_5_9
""".split()
NEEDED = {"BR2_i386": 2, "BR2_TOOLCHAIN_USES_GLIBC": 2, "BR2_TOOLCHAIN_GCC_AT_LEAST_12": 2,
          "BR2_INSTALL_LIBSTDCPP": 2, "BR2_STATIC_LIBS": 0, "BR2_ROOTFS_MERGED_USR": 2,
          "BR2_PACKAGE_LIBURCU_ARCH_SUPPORTS": 2, "BR2_TOOLCHAIN_HEADERS_AT_LEAST_5_9": 2}
# Needed only by the tools for the recording drive.
NEEDED_BY_DRIVE = ["BR2_PACKAGE_LIBURCU_ARCH_SUPPORTS", "BR2_TOOLCHAIN_HEADERS_AT_LEAST_5_9"]


@pytest.fixture
def make(tmp_path, image):
    makefile = tmp_path / "Makefile"
    makefile.write_text(STUBS.replace("{root}", str(recipes.ROOT)).replace("{target}", str(image))
                        .replace("{external}", str(BUILDROOT)))

    def run(*arguments, fails=False):
        done = subprocess.run(["make", "-f", makefile, "--warn-undefined-variables", *arguments],
                              cwd=tmp_path, capture_output=True, text=True, check=False)
        assert (done.returncode != 0) == fails, done.stderr
        if fails:
            return done.stderr
        undefined = set(re.findall(r"undefined variable '(\w+)'", done.stderr))
        assert all(name.startswith("BR2_") for name in undefined - {"KESTROVA_SYSTEM_SITE_METHOD"})
        return done.stdout

    return run


def test_make_reads_the_buildroot_package(make):
    variable = {name: make(f"print-KESTROVA_SYSTEM_{name}") for name in
                ("VERSION", "SITE", "SITE_METHOD", "LICENSE", "LICENSE_FILES", "INSTALL_STAGING")}
    assert variable == {"VERSION": recipes.project_version(), "SITE": str(recipes.ROOT), "SITE_METHOD": "local",
                        "LICENSE": "MIT", "LICENSE_FILES": "LICENSE", "INSTALL_STAGING": "YES"}
    assert make("print-CMAKE_PACKAGE") == "called"


def test_the_buildroot_sources_can_be_elsewhere(make):
    site = make("print-KESTROVA_SYSTEM_SITE", 'BR2_PACKAGE_KESTROVA_SYSTEM_SOURCE="/src/here"')
    assert site == "/src/here"


def test_the_buildroot_sources_can_be_a_release(make):
    release = 'BR2_PACKAGE_KESTROVA_SYSTEM_RELEASE="file:///srv/releases"'
    variable = {name: make(f"print-KESTROVA_SYSTEM_{name}", release)
                for name in ("SITE", "SITE_METHOD", "SOURCE")}
    assert variable == {"SITE": "file:///srv/releases", "SITE_METHOD": "",
                        "SOURCE": f"kestrova-system-{recipes.project_version()}.tar.xz"}


def test_missing_sources_are_said(make, tmp_path):
    done = make("print-KESTROVA_SYSTEM_SITE", "BR2_PACKAGE_KESTROVA_SYSTEM=y",
                f'BR2_PACKAGE_KESTROVA_SYSTEM_SOURCE="{tmp_path}"', fails=True)
    assert f"{tmp_path} has no sources: set BR2_PACKAGE_KESTROVA_SYSTEM_RELEASE or" in done


def test_mdev_makes_the_names_by_path(make, tmp_path):
    target = tmp_path / "target"
    (target / "etc").mkdir(parents=True)
    configuration = target / "etc" / "mdev.conf"
    configuration.write_text("sd[a-z][0-9]* root:disk 660\n")
    for _ in range(2):  # each image is finished anew
        make("finalize", "BR2_ROOTFS_DEVICE_CREATION_DYNAMIC_MDEV=y", f"TARGET_DIR={target}")
    rule = (recipes.ROOT / "packaging" / "start" / "mdev.conf").read_text()
    assert configuration.read_text() == rule + "sd[a-z][0-9]* root:disk 660\n"


@pytest.mark.parametrize("command", ["y", ""])
def test_the_buildroot_options_are_those_of_the_project(make, command, tmp_path):
    options = make("print-KESTROVA_SYSTEM_CONF_OPTS",
                   f"BR2_PACKAGE_KESTROVA_SYSTEM_COMMAND={command}").split()
    assert recipes.decided(options) == recipes.project_options()
    assert f"-DKESTROVA_APP={'ON' if command else 'OFF'}" in options
    recipes.configured(options, tmp_path / "build")


@pytest.mark.parametrize("kind", ["ext2", "tar"])
def test_the_buildroot_hooks_put_the_adapters_in_place(make, image, kind):
    """In the copy for an image of some kind; the directory in which packages are installed is kept."""
    chosen = "BR2_PACKAGE_KESTROVA_SYSTEM_DRIVE=y"
    make(str(recipes.ROOT / ".installed"), chosen)
    before = sorted(image.rglob("*"))
    copy = shutil.copytree(image, image.parent / kind, symlinks=True)
    make("rootfs", chosen, f"TARGET_DIR={copy}")
    recipes.assert_adapted(copy)
    assert sorted(image.rglob("*")) == before
    assert not any((image / "sbin" / name).is_symlink() for name in recipes.ADAPTERS)


def test_the_buildroot_hooks_add_only_the_mount_points_without_a_drive(make, image):
    before = set(image.rglob("*"))
    make(str(recipes.ROOT / ".installed"))
    make("rootfs")
    assert set(image.rglob("*")) - before == {image / "dvr", image / "boot-sw",
                                              image / "usr/lib/kestrova",
                                              image / "usr/lib/kestrova/by-path"}
    assert (image / "dvr").is_dir() and (image / "boot-sw").is_dir()


@pytest.mark.parametrize("init, path", [
    ("SYSV", "etc/init.d/S45kestrova"), ("SYSTEMD", "usr/lib/systemd/system/kestrova.service")])
def test_the_start_is_installed(make, image, init, path):
    make(str(recipes.ROOT / ".init"), f"INIT={init}")
    assert (image / path).is_file()


KCONFIG_MACROS = r'''
KCONFIG_ENABLE_OPT = printf '%s=y\n' $(1)
KCONFIG_SET_OPT = printf '%s=%s\n' $(1) $(2)
fixups: ; @$(call $(FIXUPS))
'''


@pytest.mark.parametrize("fixups, wanted", [
    ("BUSYBOX", {"CONFIG_GETTY=y", "CONFIG_KILLALL=y", "CONFIG_SYSLOGD=y", "CONFIG_LOGREAD=y",
                 "CONFIG_FEATURE_REMOTE_LOG=y", "CONFIG_FEATURE_IPC_SYSLOG=y",
                 "CONFIG_FEATURE_IPC_SYSLOG_BUFFER_SIZE=16"}),
    ("LINUX", {"CONFIG_BLK_DEV_SD=y", "CONFIG_MSDOS_PARTITION=y", "CONFIG_EXT4_FS=y",
               "CONFIG_SYSVIPC=y", "CONFIG_BINFMT_SCRIPT=y", "CONFIG_XFS_FS=y",
               "CONFIG_XFS_QUOTA=y", "CONFIG_XFS_SUPPORT_V4=y"})])
def test_the_package_sets_what_the_library_needs_of_others(make, tmp_path, fixups, wanted):
    with open(tmp_path / "Makefile", "a", encoding="ascii") as makefile:
        makefile.write(KCONFIG_MACROS)
    printed = make("fixups", f"FIXUPS=KESTROVA_SYSTEM_{fixups}_CONFIG_FIXUPS")
    assert set(printed.split()) == wanted


def test_buildroot_knows_the_licence_file():
    algorithm, value, name = [line for line in (PACKAGE / "kestrova-system.hash").read_text()
                              .splitlines() if not line.startswith("#")][0].split()
    assert hashlib.new(algorithm, (recipes.ROOT / name).read_bytes()).hexdigest() == value


def test_the_external_tree_is_named():
    named = dict(line.split(": ", 1) for line in
                 (BUILDROOT / "external.desc").read_text().splitlines())
    assert re.fullmatch(r"[A-Z_]+", named["name"]) and named["desc"]
    text = (BUILDROOT / "external.mk").read_text() + (BUILDROOT / "Config.in").read_text()
    assert set(re.findall(r"BR2_EXTERNAL_(\w+)_PATH", text)) == {named["name"]}


@pytest.fixture
def menu(tmp_path, monkeypatch):
    """Returns Buildroot's menu with this one package, as read by kconfig."""
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
                                  ("BR2_i386", *NEEDED_BY_DRIVE)])
def test_the_menu_says_what_is_missing(menu, name):
    menu.syms[name].set_value(2 - NEEDED[name])
    assert not offered(menu) and explained(menu)


def test_the_menu_is_silent_on_other_processors(menu):
    menu.syms["BR2_i386"].set_value(0)
    assert not offered(menu) and not explained(menu)
    menu.syms["BR2_x86_64"].set_value(2)
    assert offered(menu)


def test_the_package_and_the_drive_select_their_tools(menu):
    menu.syms["BR2_PACKAGE_KESTROVA_SYSTEM"].set_value(2)
    major, minor = re.search(r"^cmake_minimum_required\(VERSION (\d+)\.(\d+)\)",
                             documents.read("CMakeLists.txt"), re.M).groups()
    assert menu.syms[f"BR2_HOST_CMAKE_AT_LEAST_{major}_{minor}"].str_value == "y"
    tools = [name for name in BUILDROOT_SYMBOLS if name.startswith("BR2_PACKAGE_")]
    assert {menu.syms[name].str_value for name in tools} == {"y"}
    menu.syms["BR2_PACKAGE_KESTROVA_SYSTEM_DRIVE"].set_value(0)
    assert menu.syms["BR2_PACKAGE_XFSPROGS"].str_value == "n"


@pytest.mark.parametrize("name", NEEDED_BY_DRIVE)
def test_the_menu_offers_no_drive_tools_that_cannot_be_built(menu, name):
    menu.syms["BR2_PACKAGE_KESTROVA_SYSTEM"].set_value(2)
    assert menu.syms["BR2_PACKAGE_KESTROVA_SYSTEM_DRIVE"].visibility == 2
    menu.syms[name].set_value(0)
    assert menu.syms["BR2_PACKAGE_KESTROVA_SYSTEM_DRIVE"].visibility == 0
    assert menu.syms["BR2_PACKAGE_XFSPROGS"].str_value == "n"


def test_the_options_of_the_menu_are_those_of_the_package():
    named = re.compile(r"\bBR2_PACKAGE_KESTROVA_SYSTEM_\w+")
    in_menu = set(re.findall(r"^config (BR2_PACKAGE_KESTROVA_SYSTEM_\w+)",
                             (PACKAGE / "Config.in").read_text(), re.M))
    assert in_menu == set(named.findall((PACKAGE / "kestrova-system.mk").read_text()))
    assert in_menu == set(named.findall((BUILDROOT / "README.md").read_text()))
