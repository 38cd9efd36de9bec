# SPDX-License-Identifier: Apache-2.0
SUMMARY = "Heap and mapping checker for 32-bit Linux programs"
DESCRIPTION = "libquarl.so, preloaded into an unmodified program, finds blocks that are released twice, bytes written \
in front of a block or behind it, and memory that is never given back. The tool for the desk tells what it found."
HOMEPAGE = "https://example.invalid/quarl"
SECTION = "devel"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

# Where the repository is: the project has no public host, so that this is set in local.conf. `make dist` fills in the
# revision that it archives.
QUARL_SITE ?= "git://example.invalid/quarl.git;protocol=https;branch=main"
SRC_URI = "${QUARL_SITE}"
SRCREV = "0000000000000000000000000000000000000000"
S = "${WORKDIR}/git"

inherit cmake pkgconfig

# The target has the library; the desk (native, SDK) the tool.
EXTRA_OECMAKE = "-DQUARL_TARGET=library -DQUARL_SEAM=layer -DBUILD_TESTING=OFF"
EXTRA_OECMAKE:class-native = "-DQUARL_TARGET=host -DBUILD_TESTING=OFF"
EXTRA_OECMAKE:class-nativesdk = "-DQUARL_TARGET=host -DBUILD_TESTING=OFF"

DESK_DEPENDS = "cli11 elfutils fmt nlohmann-json protozero sqlite3 zlib"
DEPENDS:class-native = "nodejs-native ${@' '.join(name + '-native' for name in d.getVar('DESK_DEPENDS').split())}"
DEPENDS:class-nativesdk = "nodejs-native ${@' '.join('nativesdk-' + name for name in d.getVar('DESK_DEPENDS').split())}"

# The page of the tool is made of npm packages.
do_compile[network] = "0"
do_compile:class-native[network] = "1"

COMPATIBLE_HOST:class-target = "(arm|i.86).*-linux.*"
COMPATIBLE_HOST:libc-musl:class-target = "null"

# libquarl.so is loaded by its plain name; programs that are linked with it want header, pkg-config and CMake files.
FILES_SOLIBSDEV = ""
FILES:${PN} += "${libdir}/libquarl.so ${datadir}/quarl ${datadir}/zsh ${datadir}/fish ${datadir}/bash-completion"
FILES:${PN}-dev += "${includedir}/quarl.h ${libdir}/pkgconfig ${libdir}/cmake"

BBCLASSEXTEND = "native nativesdk"
