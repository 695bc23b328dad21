################################################################################
#
# pynx-watchdog
#
################################################################################

# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT

PYNX_WATCHDOG_VERSION = 0.1.0
# The sources are those beside this tree, so there is nothing to download and no hash of it.
PYNX_WATCHDOG_SITE = $(BR2_EXTERNAL_PYNX_WATCHDOG_PATH)/../..
PYNX_WATCHDOG_SITE_METHOD = local
PYNX_WATCHDOG_LICENSE = MIT
PYNX_WATCHDOG_LICENSE_FILES = LICENSES/MIT.txt
PYNX_WATCHDOG_DEPENDENCIES = qt5base
PYNX_WATCHDOG_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build --exclude=/simulated-device

# Buildroot hardens all packages as its configuration says (BR2_SSP_*, BR2_RELRO_*,
# BR2_FORTIFY_SOURCE_*, BR2_PIC_PIE), also for C libraries that lack a part of it.
PYNX_WATCHDOG_CONF_OPTS = \
	-DCMAKE_INSTALL_LIBDIR=lib \
	-DWATCHDOG_HARDENING=OFF

ifeq ($(BR2_PACKAGE_PYNX_WATCHDOG_CHECK),y)
PYNX_WATCHDOG_CONF_OPTS += -DWATCHDOG_CHECK=ON
PYNX_WATCHDOG_DEPENDENCIES += rapidjson valijson
else
PYNX_WATCHDOG_CONF_OPTS += -DWATCHDOG_CHECK=OFF
endif

ifeq ($(BR2_PACKAGE_PYNX_WATCHDOG_GUARD),y)
PYNX_WATCHDOG_CONF_OPTS += -DWATCHDOG_GUARD=ON
PYNX_WATCHDOG_DEPENDENCIES += elfutils
else
PYNX_WATCHDOG_CONF_OPTS += -DWATCHDOG_GUARD=OFF
endif

define PYNX_WATCHDOG_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(PYNX_WATCHDOG_BUILDDIR)/packaging/init/pynx-watchdog \
		$(TARGET_DIR)/etc/init.d/S99pynx-watchdog
endef

# Buildroot enables each unit that no preset names. Here the integrator does it, with a preset of a
# smaller number, once an application is named.
define PYNX_WATCHDOG_INSTALL_INIT_SYSTEMD
	$(INSTALL) -D -m 0644 $(PYNX_WATCHDOG_PKGDIR)/50-pynx-watchdog.preset \
		$(TARGET_DIR)/usr/lib/systemd/system-preset/50-pynx-watchdog.preset
endef

$(eval $(cmake-package))
