# Builds for aarch64 with Debian's cross compiler and Qt 6. KORRIN_SYSROOT names a directory with
# the device's headers and libraries, as scripts/cross makes it; without it Debian's multi-arch
# packages on this machine are used (dpkg --add-architecture arm64).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KORRIN_SYSROOT)
if(KORRIN_SYSROOT)
  set(CMAKE_SYSROOT ${KORRIN_SYSROOT})
  set(ENV{PKG_CONFIG_SYSROOT_DIR} ${KORRIN_SYSROOT})
  set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR}
  ${KORRIN_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${KORRIN_SYSROOT}/usr/share/pkgconfig)

# Qt's code generators run here, so they come from this machine's Qt.
set(QT_HOST_PATH /usr CACHE PATH "Qt of the machine that builds")
set(QT_HOST_PATH_CMAKE_DIR /usr/lib/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu/cmake CACHE PATH
  "CMake packages of that Qt")
