# SPDX-License-Identifier: Apache-2.0

# Yocto: into recipes-connectivity/mdxgate/ of a layer, a tarball of the sources into files/ beside it. mdxctl, mdxsim
# and mdxtap need meta-openembedded's cli11 and nlohmann-json: PACKAGECONFIG:append = " tools"
SUMMARY = "AT command server of a cellular device"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"
SRC_URI = "file://${BPN}-${PV}.tar.gz"

inherit cmake pkgconfig systemd useradd

PACKAGECONFIG ??= ""
PACKAGECONFIG[tools] = "-DMDXGATE_TOOLS=ON,-DMDXGATE_TOOLS=OFF,cli11 nlohmann-json"
PACKAGECONFIG[terminal] = "-DMDXGATE_TERMINAL=ON,-DMDXGATE_TERMINAL=OFF,libedit ncurses"
EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=Release -DMDXGATE_BRIDGE=OFF -DMDXGATE_UNIT_DIR=${systemd_system_unitdir}"

SYSTEMD_SERVICE:${PN} = "mdxgate.service"

# The server becomes this user; members of its group may send commands.
USERADD_PACKAGES = "${PN}"
USERADD_PARAM:${PN} = "--system --no-create-home --shell /sbin/nologin --user-group --groups dialout mdxgate"

PACKAGES =+ "libmdxclient mdxctl mdxsim mdxtap"
FILES:libmdxclient = "${libdir}/libmdxclient.so.*"
FILES:mdxctl = "${bindir}/mdxctl ${systemd_system_unitdir}/mdxgate-init@.service \
  ${systemd_system_unitdir}/mdxgate-metrics.* ${datadir}/bash-completion"
FILES:mdxsim = "${bindir}/mdxsim"
FILES:mdxtap = "${bindir}/mdxtap ${systemd_system_unitdir}/mdxtap@.service"
FILES:${PN} += "${systemd_system_unitdir}/mdxgate.service ${nonarch_libdir}/sysusers.d ${nonarch_libdir}/tmpfiles.d \
  ${datadir}/cockpit"
