# Cross build for 32-bit ARM (armhf) against a sysroot made by
# scripts/armhf-sysroot.sh; target programs run under qemu-user.
# usage: cmake -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake -DJAXEL_ARMHF_SYSROOT=<dir>
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# try_compile projects read the toolchain file again and need the sysroot too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES JAXEL_ARMHF_SYSROOT)
if(NOT JAXEL_ARMHF_SYSROOT)
  set(JAXEL_ARMHF_SYSROOT "$ENV{JAXEL_ARMHF_SYSROOT}")
endif()
if(NOT IS_DIRECTORY "${JAXEL_ARMHF_SYSROOT}")
  message(FATAL_ERROR "JAXEL_ARMHF_SYSROOT must name the armhf sysroot (scripts/armhf-sysroot.sh)")
endif()

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_SYSROOT "${JAXEL_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH "${JAXEL_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Every runtime library, the C library and its start files included, comes from
# the sysroot, both when linking and when qemu loads the program: mixing the
# cross toolchain's own C library with the sysroot's makes forked children crash.
set(JAXEL_ARMHF_LIBDIRS "-B${JAXEL_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf")
foreach(dir usr/lib/arm-linux-gnueabihf lib/arm-linux-gnueabihf)
  string(APPEND JAXEL_ARMHF_LIBDIRS " -L${JAXEL_ARMHF_SYSROOT}/${dir}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${JAXEL_ARMHF_LIBDIRS}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${JAXEL_ARMHF_LIBDIRS}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${JAXEL_ARMHF_LIBDIRS}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${JAXEL_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${JAXEL_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${JAXEL_ARMHF_SYSROOT}")
set(ENV{PKG_CONFIG_PATH} "")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L "${JAXEL_ARMHF_SYSROOT}")
