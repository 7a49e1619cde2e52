# SPDX-License-Identifier: MIT
FILESEXTRAPATHS:prepend := "${THISDIR}/files:"
SRC_URI:append = "${@bb.utils.contains('DISTRO_FEATURES', 'kestrova', ' file://kestrova-box.cfg', '', d)}"
