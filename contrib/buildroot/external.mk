# SPDX-License-Identifier: Apache-2.0
include $(sort $(wildcard $(BR2_EXTERNAL_QUARL_PATH)/package/*/*.mk))
