# SPDX-License-Identifier: Apache-2.0

################################################################################
#
# mdxgate: this folder becomes package/mdxgate of Buildroot's tree, a tarball of the sources goes to its dl/mdxgate
#
################################################################################

MDXGATE_VERSION = 0.1.0
MDXGATE_SOURCE = mdxgate-$(MDXGATE_VERSION).tar.gz
MDXGATE_LICENSE = Apache-2.0
MDXGATE_LICENSE_FILES = LICENSE
MDXGATE_INSTALL_STAGING = YES
MDXGATE_CONF_OPTS = -DMDXGATE_TERMINAL=OFF -DMDXGATE_BRIDGE=OFF

ifeq ($(BR2_PACKAGE_MDXGATE_MDXCTL),y)
MDXGATE_DEPENDENCIES += cli11 json-for-modern-cpp
MDXGATE_CONF_OPTS += -DMDXGATE_TOOLS=ON
else
MDXGATE_CONF_OPTS += -DMDXGATE_TOOLS=OFF
endif

# The server becomes this user; members of its group may send commands.
define MDXGATE_USERS
	mdxgate -1 mdxgate -1 * - - dialout AT command server
endef

define MDXGATE_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(MDXGATE_PKGDIR)/S60mdxgate $(TARGET_DIR)/etc/init.d/S60mdxgate
endef

$(eval $(cmake-package))
