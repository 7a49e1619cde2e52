# SPDX-License-Identifier: MIT
include $(sort $(wildcard $(BR2_EXTERNAL_KESTROVA_PATH)/package/*/*.mk))
