# SPDX-License-Identifier: MIT
#
# For the recipe of an image: puts the adapters in the place of today's sfdisk and mkfs.xfs.

IMAGE_INSTALL:append = " kestrova-system-box-tools"

kestrova_enable_adapters() {
    ${IMAGE_ROOTFS}${sbindir}/kestrova-box-tools enable --root ${IMAGE_ROOTFS}
}
ROOTFS_POSTPROCESS_COMMAND += "kestrova_enable_adapters"
