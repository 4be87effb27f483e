# Builds for a 32-bit ARM board (ARMv7, hard float) with Debian's cross compiler. Programs that the build or CTest wants
# to run are run by qemu.
#   QO_SYSROOT   headers and libraries of the board; default: what scripts/armhf_sysroot makes
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(QO_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot CACHE PATH "Headers and libraries of the board")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QO_SYSROOT)
get_filename_component(CMAKE_SYSROOT ${QO_SYSROOT} ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig)

set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-arm-static -L ${CMAKE_SYSROOT})
