# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
#
# For an image with systemd and the layer meta-qt5; "kirkstone" or later. SRC_URI names the
# integrator's own mirror. For an image without systemd, remove the class systemd and start the
# supervisor from the image's own init.

SUMMARY = "Keeps one application of an embedded Linux device alive"
SECTION = "base"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=eb999f175208430936b05abd9aba55e8"

SRC_URI = "git://git.example.org/watchdog.git;protocol=https;branch=main"
SRCREV = "${AUTOREV}"
PV = "0.1.0+git${SRCPV}"
S = "${WORKDIR}/git"

inherit cmake_qt5 systemd

DEPENDS += "qtbase"

# With the maker's SDK, add -DPYNX_SDK_ROOT=${STAGING_DIR_HOST}${prefix} here and the SDK's recipe
# to DEPENDS.
EXTRA_OECMAKE += " \
    -DBUILD_TESTING=OFF \
    -DWATCHDOG_SYSTEMD_UNIT_DIR=${systemd_system_unitdir} \
    -DWATCHDOG_TMPFILES_DIR=${nonarch_libdir}/tmpfiles.d \
"

SYSTEMD_SERVICE:${PN} = "pynx-watchdog.service"
# The unit waits until the integrator has named an application.
SYSTEMD_AUTO_ENABLE:${PN} = "disable"

FILES:${PN} += "${nonarch_libdir}/tmpfiles.d"
CONFFILES:${PN} = "${sysconfdir}/default/pynx-watchdog"

# The full tools, because the supervisor runs top -b -n1 and killall -9 NAME.
RDEPENDS:${PN} = "gzip procps psmisc tar"
