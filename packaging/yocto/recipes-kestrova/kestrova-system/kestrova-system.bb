# SPDX-License-Identifier: MIT
SUMMARY = "System services of the media client"
DESCRIPTION = "Recording drive, boot variables, HTTP documents, shell commands and maintenance \
for an embedded media client"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=73a1d08cbe9d372efdba26aec9e9a46a"

# Two header-only libraries of the command, and what makes the manual pages.
DEPENDS = "cli11 doxygen-native nlohmann-json"

inherit cmake bash-completion externalsrc features_check pkgconfig ptest python3native systemd update-rc.d

# The sources: a release's tarball from KESTROVA_SYSTEM_RELEASE, the address of the folder that holds
# it, or a local tree, by default the one that this layer is a part of. A release has its number and
# the tarball's checksum here.
KESTROVA_SYSTEM_RELEASE ?= ""
KESTROVA_SYSTEM_SOURCE ?= "${@os.path.normpath('${THISDIR}/../../../..')}"
PV = "${@tree_version(d)}"
SRC_URI = "${@'${KESTROVA_SYSTEM_RELEASE}/${BPN}-${PV}.tar.xz' if d.getVar('KESTROVA_SYSTEM_RELEASE') else ''}"
SRC_URI[sha256sum] = ""
EXTERNALSRC = "${@'' if d.getVar('KESTROVA_SYSTEM_RELEASE') else d.getVar('KESTROVA_SYSTEM_SOURCE')}"
# No links to the build in the sources.
EXTERNALSRC_SYMLINKS = ""

def tree_version(d):
    import re
    path = os.path.join(d.getVar("KESTROVA_SYSTEM_SOURCE"), "CMakeLists.txt")
    if not os.path.exists(path):
        return "0"
    bb.parse.mark_dependency(d, path)
    with open(path) as lists:
        return re.search(r"^project\(\S+ VERSION (\S+)", lists.read(), re.M)[1]

# Of a local tree these are watched. The class would watch all of it, and keep an index below .git.
python () {
    source = d.getVar("EXTERNALSRC")
    if source:
        if not os.path.exists(os.path.join(source, "System")):
            raise bb.parse.SkipRecipe("%s has no sources: set KESTROVA_SYSTEM_RELEASE or"
                                      " KESTROVA_SYSTEM_SOURCE" % source)
        watched = " ".join("%s/%s:True" % (source, name) for name in d.getVar("WATCHED").split())
        for task in ("do_configure", "do_compile"):
            d.setVarFlag(task, "file-checksums", watched)
}
WATCHED = "CHANGELOG.md CMakeLists.txt LICENSE System app base box/tools cmake completion \
    docs/Doxyfile examples man packaging script/manual.py"

COMPATIBLE_HOST = "(i.86|x86_64).*-linux"
COMPATIBLE_HOST:libc-musl = "null"
# The library runs its tools by absolute paths, such as /sbin/sfdisk and /bin/mount.
REQUIRED_DISTRO_FEATURES = "usrmerge"

EXTRA_OECMAKE = "\
    -DCMAKE_BUILD_TYPE=Release \
    -DKESTROVA_APP=ON \
    -DKESTROVA_BENCH=OFF \
    -DKESTROVA_EXAMPLES=${@bb.utils.contains('PTEST_ENABLED', '1', 'ON', 'OFF', d)} \
    -DKESTROVA_FUZZ=OFF \
    -DKESTROVA_MANUAL=ON \
    -DKESTROVA_TESTS=OFF \
"

# The adapters for today's tools take nobody's place before kestrova-box-tools is run. The .pc file
# finds its prefix from its own place, in front of which pkg-config would put the sysroot once more.
do_install:append() {
    sed -i "s,^prefix=.*,prefix=${prefix}," ${D}${libdir}/pkgconfig/kestrova-system.pc
    install -d ${D}${prefix}/lib/kestrova/box-tools ${D}${sbindir}
    install -m 0755 ${S}/box/tools/sfdisk ${D}${prefix}/lib/kestrova/box-tools/sfdisk
    install -m 0755 ${S}/box/tools/mkfs.xfs ${D}${prefix}/lib/kestrova/box-tools/mkfs.xfs
    install -m 0755 ${S}/packaging/kestrova-box-tools ${D}${sbindir}/kestrova-box-tools
    install -d ${D}${mandir}/man8
    install -m 0644 ${S}/packaging/kestrova-box-tools.8 ${D}${mandir}/man8/kestrova-box-tools.8
    # The library does not create its mount points.
    install -d ${D}/dvr ${D}/boot-sw

    install -D -m 0755 ${S}/packaging/start/by-path ${D}${prefix}/lib/kestrova/by-path
    install -D -m 0644 ${S}/packaging/start/60-kestrova.rules \
        ${D}${prefix}/lib/udev/rules.d/60-kestrova.rules
    install -D -m 0755 ${S}/packaging/start/kestrova.init ${D}${sysconfdir}/init.d/kestrova
    install -D -m 0644 ${S}/packaging/start/kestrova.service \
        ${D}${prefix}/lib/systemd/system/kestrova.service
}

do_install_ptest() {
    install -D -m 0755 ${S}/packaging/start/run-ptest ${D}${PTEST_PATH}/run-ptest
    for example in record setting download tool table; do
        install -m 0755 ${B}/examples/$example ${D}${PTEST_PATH}/$example
    done
}

INITSCRIPT_PACKAGES = "${PN}-start"
INITSCRIPT_NAME:${PN}-start = "kestrova"
INITSCRIPT_PARAMS:${PN}-start = "start 45 2 3 4 5 ."
SYSTEMD_PACKAGES = "${PN}-start"
SYSTEMD_SERVICE:${PN}-start = "kestrova.service"

# The library stays in ${PN}; headers, pkg-config and CMake files and the manual go where they
# always go, to ${PN}-dev and ${PN}-doc.
PACKAGES =+ "${PN}-tools ${PN}-box-tools ${PN}-start"
FILES:${PN} += "/dvr /boot-sw"
FILES:${PN}-tools = "${bindir}/kestrova"
FILES:${PN}-box-tools = "\
    ${prefix}/lib/kestrova/box-tools \
    ${sbindir}/kestrova-box-tools \
"
FILES:${PN}-start = "\
    ${prefix}/lib/kestrova/by-path \
    ${prefix}/lib/systemd/system/kestrova.service \
    ${prefix}/lib/udev/rules.d/60-kestrova.rules \
    ${sysconfdir}/init.d/kestrova \
"
FILES:${PN}-dev += "${libdir}/cmake/KestrovaSystem"

RDEPENDS:${PN} = "\
    busybox \
    busybox-syslog \
    e2fsprogs-e2fsck \
    e2fsprogs-mke2fs \
    hdparm \
    util-linux-mount \
    util-linux-sfdisk \
    xfsprogs-mkfs \
"
RDEPENDS:${PN}-box-tools = "util-linux-blockdev util-linux-sfdisk xfsprogs-mkfs"
RDEPENDS:${PN}-start = "${PN}-tools"
RDEPENDS:${PN}-ptest = "${PN}-tools"
