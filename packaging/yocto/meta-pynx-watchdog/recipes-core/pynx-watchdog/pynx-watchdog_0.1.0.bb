# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT

SUMMARY = "Keeps one application of an embedded Linux product alive"
DESCRIPTION = "Starts one application, logs what it prints, restarts it when it ends, feeds the \
hardware watchdog, and reboots the board at the third end."
HOMEPAGE = "https://example.org/watchdog"
BUGTRACKER = "https://git.example.org/watchdog/issues"
SECTION = "base"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSES/MIT.txt;md5=eb999f175208430936b05abd9aba55e8"

DEPENDS = "qtbase"

# Releases differ in the directory into which they unpack a repository. With this suffix it is the one
# that S names by default, in all of them.
SRC_URI = "git://git.example.org/watchdog.git;protocol=https;branch=main;destsuffix=${BP} \
           file://run-ptest"
# The commit of the version, which the product's configuration has to name.
SRCREV ?= "0000000000000000000000000000000000000000"

inherit bash-completion cmake_qt5 features_check ptest systemd update-rc.d

ANY_OF_DISTRO_FEATURES = "systemd sysvinit"

# Without this, the supervisor uses busybox's tools.
PACKAGECONFIG ??= "full-tools"
PACKAGECONFIG[full-tools] = ",,,gzip procps psmisc tar"
# pynx-watchdog-check. What it needs is in meta-oe.
PACKAGECONFIG[check] = "-DWATCHDOG_CHECK=ON,-DWATCHDOG_CHECK=OFF,rapidjson valijson"
# pynx-watchdog-guard
PACKAGECONFIG[guard] = "-DWATCHDOG_GUARD=ON,-DWATCHDOG_GUARD=OFF,elfutils"

# With the maker's SDK, add -DPYNX_SDK_ROOT=${STAGING_DIR_HOST}${prefix} here and the SDK's recipe to
# DEPENDS.
EXTRA_OECMAKE += " \
    -DBUILD_TESTING=OFF \
    -DWATCHDOG_INIT_DIR=${sysconfdir}/init.d \
    -DWATCHDOG_SYSTEMD_UNIT_DIR=${systemd_system_unitdir} \
    -DWATCHDOG_TMPFILES_DIR=${nonarch_libdir}/tmpfiles.d \
"

# No unit is enabled, because the integrator has to name an application first.
SYSTEMD_SERVICE:${PN} = "pynx-watchdog.service pynx-watchdog-boot.service \
                         pynx-watchdog-shutdown.service"
SYSTEMD_AUTO_ENABLE:${PN} = "disable"
# The script starts nothing before an application is named.
INITSCRIPT_NAME = "pynx-watchdog"
INITSCRIPT_PARAMS = "defaults 99 01"

# The classes would stop the service at an upgrade or a removal on the board. The hardware watchdog
# resets the board when the supervisor has ended, so a running one is left alone.
systemd_prerm() {
    :
}
updatercd_prerm() {
    :
}

# What can run on a target: the tests for an installed package.
do_install_ptest() {
    install -d ${D}${PTEST_PATH}/tests
    install -m 0755 ${S}/debian/tests/rotate-only ${S}/debian/tests/settings ${D}${PTEST_PATH}/tests
}

FILES:${PN} += "${nonarch_libdir}/tmpfiles.d"
CONFFILES:${PN} = "${sysconfdir}/default/pynx-watchdog"
