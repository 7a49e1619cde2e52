# SPDX-License-Identifier: MIT
"""The external tree, read by a real Buildroot: its own style check and its kconfig.

KESTROVA_BUILDROOT names an unpacked Buildroot tree; without it these tests are skipped.
"""

import os
import pathlib
import subprocess

import pytest

import recipes

EXTERNAL = recipes.ROOT / "packaging" / "buildroot"
TREE = os.environ.get("KESTROVA_BUILDROOT")

pytestmark = pytest.mark.skipif(not TREE, reason="KESTROVA_BUILDROOT names no Buildroot tree")

GLIBC = ["BR2_TOOLCHAIN_BUILDROOT_GLIBC=y", "BR2_TOOLCHAIN_BUILDROOT_CXX=y"]
MERGED = ["BR2_ROOTFS_MERGED_USR=y"]
I686 = ["BR2_i386=y", "BR2_x86_i686=y"]
EXTERNAL_TOOLCHAIN = [*I686, *MERGED, "BR2_TOOLCHAIN_EXTERNAL=y", "BR2_TOOLCHAIN_EXTERNAL_CUSTOM=y",
                      "BR2_TOOLCHAIN_EXTERNAL_CUSTOM_GLIBC=y", "BR2_TOOLCHAIN_EXTERNAL_CXX=y"]
WHOLE, LIBRARY, NOTHING = {"", "_DRIVE"}, {""}, set()

CONFIGURATIONS = {
    "i686": (WHOLE, [*I686, *GLIBC, *MERGED]),
    "x86-64": (WHOLE, ["BR2_x86_64=y", *GLIBC, *MERGED]),
    "systemd": (WHOLE, ["BR2_x86_64=y", *GLIBC, "BR2_INIT_SYSTEMD=y"]),
    "no busybox": (WHOLE, [*I686, *GLIBC, *MERGED, "BR2_INIT_NONE=y",
                           "# BR2_PACKAGE_BUSYBOX is not set"]),
    "headers 5.15": (WHOLE, [*EXTERNAL_TOOLCHAIN, "BR2_TOOLCHAIN_EXTERNAL_GCC_12=y",
                             "BR2_TOOLCHAIN_EXTERNAL_HEADERS_5_15=y"]),
    "headers 5.4": (LIBRARY, [*EXTERNAL_TOOLCHAIN, "BR2_TOOLCHAIN_EXTERNAL_GCC_12=y",
                              "BR2_TOOLCHAIN_EXTERNAL_HEADERS_5_4=y"]),
    "gcc 11": (NOTHING, [*EXTERNAL_TOOLCHAIN, "BR2_TOOLCHAIN_EXTERNAL_GCC_11=y",
                         "BR2_TOOLCHAIN_EXTERNAL_HEADERS_5_15=y"]),
    "usr not merged": (NOTHING, [*I686, *GLIBC]),
    "no C++": (NOTHING, [*I686, *MERGED, "BR2_TOOLCHAIN_BUILDROOT_GLIBC=y"]),
    "musl": (NOTHING, [*I686, *MERGED, "BR2_TOOLCHAIN_BUILDROOT_MUSL=y",
                       "BR2_TOOLCHAIN_BUILDROOT_CXX=y"]),
    "arm": (NOTHING, ["BR2_arm=y", "BR2_cortex_a9=y", *GLIBC, *MERGED]),
}


def test_the_external_tree_passes_check_package():
    files = [str(path.relative_to(EXTERNAL)) for path in EXTERNAL.rglob("*") if path.is_file()]
    checked = subprocess.run(["/usr/bin/python3", f"{TREE}/utils/check-package", "-b", *files],
                             cwd=EXTERNAL, capture_output=True, text=True, check=False)
    assert checked.returncode == 0, checked.stdout + checked.stderr
    assert "0 warnings generated" in checked.stdout + checked.stderr


@pytest.mark.parametrize("name", CONFIGURATIONS)
def test_the_package_is_offered_where_it_can_be_built(tmp_path, name):
    """Selecting the package leaves no dependency unmet."""
    expected, lines = CONFIGURATIONS[name]
    chosen = [f"BR2_PACKAGE_KESTROVA_SYSTEM{option}=y" for option in ("", "_DRIVE")]
    defconfig = tmp_path / "defconfig"
    defconfig.write_text("\n".join([*lines, *chosen]) + "\n")
    output = tmp_path / "output"
    configured = subprocess.run(
        ["make", "-s", "-C", TREE, f"O={output}", f"BR2_EXTERNAL={EXTERNAL}",
         f"BR2_DEFCONFIG={defconfig}", "defconfig"],
        capture_output=True, text=True, check=False)
    printed = configured.stdout + configured.stderr
    assert configured.returncode == 0, printed
    assert "unmet direct dependencies" not in printed
    configuration = pathlib.Path(output, ".config").read_text().splitlines()
    assert {option for option in WHOLE
            if f"BR2_PACKAGE_KESTROVA_SYSTEM{option}=y" in configuration} == expected
