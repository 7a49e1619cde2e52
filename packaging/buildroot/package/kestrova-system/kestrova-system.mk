################################################################################
#
# kestrova-system
#
################################################################################

# SPDX-License-Identifier: MIT

KESTROVA_SYSTEM_VERSION = 1.0.0
# There is nothing to download: a local tree, by default the one around this file.
KESTROVA_SYSTEM_SITE = $(or $(call qstrip,$(BR2_PACKAGE_KESTROVA_SYSTEM_SOURCE)),$(realpath $(BR2_EXTERNAL_KESTROVA_PATH)/../..))
KESTROVA_SYSTEM_SITE_METHOD = local
KESTROVA_SYSTEM_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
KESTROVA_SYSTEM_LICENSE = MIT
KESTROVA_SYSTEM_LICENSE_FILES = LICENSE
KESTROVA_SYSTEM_INSTALL_STAGING = YES
KESTROVA_SYSTEM_SUPPORTS_IN_SOURCE_BUILD = NO
KESTROVA_SYSTEM_CONF_OPTS = \
	-DKESTROVA_APP=$(if $(BR2_PACKAGE_KESTROVA_SYSTEM_COMMAND),ON,OFF) \
	-DKESTROVA_BENCH=OFF \
	-DKESTROVA_EXAMPLES=OFF \
	-DKESTROVA_FUZZ=OFF \
	-DKESTROVA_TESTS=OFF

# The applets that the library runs. The remote system log needs "syslogd -C -R ADDRESS", which
# busybox's default configuration refuses.
define KESTROVA_SYSTEM_BUSYBOX_CONFIG_FIXUPS
	$(call KCONFIG_ENABLE_OPT,CONFIG_GETTY)
	$(call KCONFIG_ENABLE_OPT,CONFIG_KILLALL)
	$(call KCONFIG_ENABLE_OPT,CONFIG_SYSLOGD)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_REMOTE_LOG)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_IPC_SYSLOG)
	$(call KCONFIG_SET_OPT,CONFIG_FEATURE_IPC_SYSLOG_BUFFER_SIZE,16)
	$(call KCONFIG_ENABLE_OPT,CONFIG_LOGREAD)
endef

# For a kernel that is built with the image. The drivers of the disk controllers belong to the board.
# System V IPC carries the log buffer of "syslogd -C".
define KESTROVA_SYSTEM_LINUX_CONFIG_FIXUPS
	$(call KCONFIG_ENABLE_OPT,CONFIG_BLK_DEV_SD)
	$(call KCONFIG_ENABLE_OPT,CONFIG_MSDOS_PARTITION)
	$(call KCONFIG_ENABLE_OPT,CONFIG_EXT4_FS)
	$(call KCONFIG_ENABLE_OPT,CONFIG_SYSVIPC)
	$(call KCONFIG_ENABLE_OPT,CONFIG_BINFMT_SCRIPT)
	$(call KCONFIG_ENABLE_OPT,CONFIG_XFS_FS)
	$(call KCONFIG_ENABLE_OPT,CONFIG_XFS_QUOTA)
	$(call KCONFIG_ENABLE_OPT,CONFIG_XFS_SUPPORT_V4)
endef

# The library does not create its mount points.
define KESTROVA_SYSTEM_INSTALL_MOUNT_POINTS
	$(INSTALL) -d $(TARGET_DIR)/dvr $(TARGET_DIR)/boot-sw
endef
KESTROVA_SYSTEM_POST_INSTALL_TARGET_HOOKS += KESTROVA_SYSTEM_INSTALL_MOUNT_POINTS

ifeq ($(BR2_PACKAGE_KESTROVA_SYSTEM_DRIVE),y)

define KESTROVA_SYSTEM_INSTALL_ADAPTERS
	$(INSTALL) -D -m 0755 $(@D)/box/tools/sfdisk \
		$(TARGET_DIR)/usr/lib/kestrova/box-tools/sfdisk
	$(INSTALL) -D -m 0755 $(@D)/box/tools/mkfs.xfs \
		$(TARGET_DIR)/usr/lib/kestrova/box-tools/mkfs.xfs
endef
KESTROVA_SYSTEM_POST_INSTALL_TARGET_HOOKS += KESTROVA_SYSTEM_INSTALL_ADAPTERS

# In the copy that an image is made of. In the target folder itself a package that is built anew
# would meet its tool moved, and write through the adapter's link.
define KESTROVA_SYSTEM_ENABLE_ADAPTERS
	$(KESTROVA_SYSTEM_DIR)/packaging/kestrova-box-tools enable --root $(TARGET_DIR)
endef
KESTROVA_SYSTEM_ROOTFS_PRE_CMD_HOOKS += KESTROVA_SYSTEM_ENABLE_ADAPTERS

endif

$(eval $(cmake-package))
