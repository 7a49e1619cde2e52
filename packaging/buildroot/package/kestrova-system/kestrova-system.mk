################################################################################
#
# kestrova-system
#
################################################################################

# SPDX-License-Identifier: MIT

# The sources: a release's tarball, or a local tree, by default the one around this file.
KESTROVA_SYSTEM_TREE = $(or $(call qstrip,$(BR2_PACKAGE_KESTROVA_SYSTEM_SOURCE)),$(realpath $(BR2_EXTERNAL_KESTROVA_PATH)/../..))
# A release has the number here, and its tarball's checksum in kestrova-system.hash.
KESTROVA_SYSTEM_VERSION = $(shell sed -n 's/^project.* VERSION \([0-9.]*\).*/\1/p' $(KESTROVA_SYSTEM_TREE)/CMakeLists.txt)
ifeq ($(call qstrip,$(BR2_PACKAGE_KESTROVA_SYSTEM_RELEASE)),)
KESTROVA_SYSTEM_SITE = $(KESTROVA_SYSTEM_TREE)
KESTROVA_SYSTEM_SITE_METHOD = local
ifeq ($(BR2_PACKAGE_KESTROVA_SYSTEM)$(wildcard $(KESTROVA_SYSTEM_TREE)/System),y)
$(error $(KESTROVA_SYSTEM_TREE) has no sources: set BR2_PACKAGE_KESTROVA_SYSTEM_RELEASE or BR2_PACKAGE_KESTROVA_SYSTEM_SOURCE)
endif
else
KESTROVA_SYSTEM_SITE = $(call qstrip,$(BR2_PACKAGE_KESTROVA_SYSTEM_RELEASE))
KESTROVA_SYSTEM_SOURCE = kestrova-system-$(KESTROVA_SYSTEM_VERSION).tar.xz
endif
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
	-DKESTROVA_MANUAL=OFF \
	-DKESTROVA_TESTS=OFF

# Two header-only libraries, which the command alone is built with.
ifeq ($(BR2_PACKAGE_KESTROVA_SYSTEM_COMMAND),y)
KESTROVA_SYSTEM_DEPENDENCIES += cli11 json-for-modern-cpp
endif

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

# The names by path that the table of partitions expects, and what makes them.
define KESTROVA_SYSTEM_INSTALL_NAMES
	$(INSTALL) -D -m 0755 $(@D)/packaging/start/by-path \
		$(TARGET_DIR)/usr/lib/kestrova/by-path
endef
KESTROVA_SYSTEM_POST_INSTALL_TARGET_HOOKS += KESTROVA_SYSTEM_INSTALL_NAMES

ifeq ($(BR2_PACKAGE_HAS_UDEV),y)
define KESTROVA_SYSTEM_INSTALL_UDEV_RULE
	$(INSTALL) -D -m 0644 $(@D)/packaging/start/60-kestrova.rules \
		$(TARGET_DIR)/usr/lib/udev/rules.d/60-kestrova.rules
endef
KESTROVA_SYSTEM_POST_INSTALL_TARGET_HOOKS += KESTROVA_SYSTEM_INSTALL_UDEV_RULE
endif

# mdev takes the first rule that fits, so that this one stands before busybox's.
ifeq ($(BR2_ROOTFS_DEVICE_CREATION_DYNAMIC_MDEV),y)
define KESTROVA_SYSTEM_ADD_MDEV_RULE
	grep -q /usr/lib/kestrova/by-path $(TARGET_DIR)/etc/mdev.conf || \
		{ cat $(KESTROVA_SYSTEM_DIR)/packaging/start/mdev.conf $(TARGET_DIR)/etc/mdev.conf \
			>$(TARGET_DIR)/etc/mdev.conf.new && \
			mv $(TARGET_DIR)/etc/mdev.conf.new $(TARGET_DIR)/etc/mdev.conf; }
endef
KESTROVA_SYSTEM_TARGET_FINALIZE_HOOKS += KESTROVA_SYSTEM_ADD_MDEV_RULE
endif

define KESTROVA_SYSTEM_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/start/kestrova.init \
		$(TARGET_DIR)/etc/init.d/S45kestrova
endef

define KESTROVA_SYSTEM_INSTALL_INIT_SYSTEMD
	$(INSTALL) -D -m 0644 $(@D)/packaging/start/kestrova.service \
		$(TARGET_DIR)/usr/lib/systemd/system/kestrova.service
endef

# All that needs rights runs as root: there is no user to add.
define KESTROVA_SYSTEM_PERMISSIONS
	/dvr d 755 0 0 - - - - -
	/boot-sw d 755 0 0 - - - - -
endef

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
