# SPDX-License-Identifier: MIT
SUMMARY = "System services of the media client"
DESCRIPTION = "Recording drive, boot variables, HTTP documents, shell commands and maintenance \
for an embedded media client"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=73a1d08cbe9d372efdba26aec9e9a46a"

inherit cmake bash-completion externalsrc features_check pkgconfig

# There is nothing to download: a local tree, by default the one that this layer is a part of.
KESTROVA_SYSTEM_SOURCE ?= "${@os.path.normpath('${THISDIR}/../../../..')}"
EXTERNALSRC = "${KESTROVA_SYSTEM_SOURCE}"
# No links to the build in the sources.
EXTERNALSRC_SYMLINKS = ""

COMPATIBLE_HOST = "(i.86|x86_64).*-linux"
COMPATIBLE_HOST:libc-musl = "null"
# The library runs its tools by absolute paths, such as /sbin/sfdisk and /bin/mount.
REQUIRED_DISTRO_FEATURES = "usrmerge"

EXTRA_OECMAKE = "\
    -DCMAKE_BUILD_TYPE=Release \
    -DKESTROVA_APP=ON \
    -DKESTROVA_BENCH=OFF \
    -DKESTROVA_EXAMPLES=OFF \
    -DKESTROVA_FUZZ=OFF \
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
}

# The library stays in ${PN}; headers, pkg-config and CMake files and the manual go where they
# always go, to ${PN}-dev and ${PN}-doc.
PACKAGES =+ "${PN}-tools ${PN}-box-tools"
FILES:${PN} += "/dvr /boot-sw"
FILES:${PN}-tools = "${bindir}/kestrova"
FILES:${PN}-box-tools = "\
    ${prefix}/lib/kestrova/box-tools \
    ${sbindir}/kestrova-box-tools \
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
