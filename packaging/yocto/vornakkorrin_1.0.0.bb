SUMMARY = "Talk to the maker's cloud from a device's host application"
DESCRIPTION = "A shared library with thirteen blocking C functions over HTTP(S): update checks, \
downloads, result and log reports, remote-access checks, signed uploads to Amazon S3."
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=eaeddf1b0688aa60a022a5faa25edcfc"

# Made by scripts/package; to be put into the directory "files" beside this recipe.
SRC_URI = "file://vornakkorrin_${PV}.orig.tar.xz"

DEPENDS = "qtbase qtbase-native qt5compat"

inherit qt6-cmake pkgconfig

EXTRA_OECMAKE += "-DKORRIN_QT_MAJOR=6 -DKORRIN_BUILD_TESTS=OFF"

PACKAGECONFIG ??= ""
# The command-line tool and the local cloud; what they need is in meta-openembedded.
PACKAGECONFIG[tools] = "-DKORRIN_BUILD_TOOLS=ON,-DKORRIN_BUILD_TOOLS=OFF,cli11 cpp-httplib nlohmann-json openssl sqlite3"

PACKAGES =+ "${PN}-tools"
FILES:${PN}-tools = "${bindir} ${datadir}/bash-completion"

# Qt loads its TLS backend as a plugin.
RRECOMMENDS:${PN} = "qtbase-plugins ca-certificates"
