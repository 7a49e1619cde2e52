# SPDX-License-Identifier: MIT
SUMMARY = "Image of a box: the library, the command, the adapters, and what they run"
LICENSE = "MIT"

inherit core-image features_check kestrova-box

# The feature kestrova sets the options of kernel and busybox.
REQUIRED_DISTRO_FEATURES = "kestrova usrmerge"

IMAGE_INSTALL = "\
    packagegroup-core-boot \
    kestrova-system \
    kestrova-system-start \
    kestrova-system-tools \
"
# It takes the name /sbin/getty, and other arguments than the library gives.
BAD_RECOMMENDATIONS += "util-linux-agetty"
