# SPDX-License-Identifier: Apache-2.0
################################################################################
#
# quarl
#
################################################################################

QUARL_VERSION = 1.0.0
QUARL_SOURCE = quarl-$(QUARL_VERSION).tar.xz
# Beside this tree, where `make dist` puts both.
QUARL_SITE ?= $(BR2_EXTERNAL_QUARL_PATH)/..
QUARL_SITE_METHOD ?= file
QUARL_LICENSE = Apache-2.0
QUARL_LICENSE_FILES = LICENSE NOTICE

# A program may be linked with it, too.
QUARL_INSTALL_STAGING = YES
QUARL_CONF_OPTS = \
	-DQUARL_TARGET=library \
	-DQUARL_SEAM=$(if $(BR2_PACKAGE_QUARL_SEAM_NATIVE),native,layer) \
	-DCMAKE_INSTALL_LIBDIR=lib

HOST_QUARL_DEPENDENCIES = host-pkgconf host-elfutils host-sqlite host-zlib
HOST_QUARL_CONF_OPTS = -DQUARL_TARGET=host -DBUILD_TESTING=OFF

# The tool looks for the libraries of the desk beside itself.
define HOST_QUARL_INSTALL_TARGET_LIBRARY
	mkdir -p $(HOST_DIR)/lib/quarl/$(QUARL_DESK)
	cp -f $(STAGING_DIR)/usr/lib/libquarl.so $(HOST_DIR)/lib/quarl/$(QUARL_DESK)/
endef
QUARL_DESK = $(if $(BR2_i386),i686,$(if $(BR2_ARM_EABIHF),armhf,armel))
ifeq ($(BR2_PACKAGE_HOST_QUARL),y)
QUARL_DEPENDENCIES += host-quarl
QUARL_POST_INSTALL_STAGING_HOOKS += HOST_QUARL_INSTALL_TARGET_LIBRARY
endif

$(eval $(cmake-package))
$(eval $(host-cmake-package))
