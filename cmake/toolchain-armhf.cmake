# Cross build for the ARMv7-A controller (hard-float EABI), from an x86_64 Debian machine.
#
# Compiler: g++-arm-linux-gnueabihf; C library and libstdc++ from /usr/arm-linux-gnueabihf.
# Everything else the tree links against comes from the private sysroot that
# scripts/armhf-sysroot fills (build/armhf-sysroot, or $KX_ARMHF_SYSROOT).
# Programs run under qemu-arm, so ctest can run the test binaries.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

set(KX_ARMHF_CPU_FLAGS "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=hard")
# 64-bit off_t, ino_t and file positions on the 32-bit target: system images pass 2 GiB,
# and directory reads would otherwise fail with EOVERFLOW on file systems whose entries
# carry 64-bit inode numbers or offsets (ext4 under qemu-user hands out 64-bit ones).
# -Wno-psabi: GCC notes that passing some structures changed in GCC 7.1; everything
# here is built by one compiler.
set(CMAKE_C_FLAGS_INIT "${KX_ARMHF_CPU_FLAGS} -D_FILE_OFFSET_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "${KX_ARMHF_CPU_FLAGS} -D_FILE_OFFSET_BITS=64 -Wno-psabi")

if(DEFINED ENV{KX_ARMHF_SYSROOT})
  set(KX_ARMHF_SYSROOT "$ENV{KX_ARMHF_SYSROOT}")
else()
  get_filename_component(KX_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot" ABSOLUTE)
endif()
if(NOT EXISTS "${KX_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf")
  message(FATAL_ERROR "No armhf sysroot at ${KX_ARMHF_SYSROOT}: run scripts/armhf-sysroot first.")
endif()

set(KX_ARMHF_TOOLCHAIN_ROOT /usr/arm-linux-gnueabihf)
set(KX_ARMHF_LIBRARY_DIRS
    "${KX_ARMHF_SYSROOT}/lib/arm-linux-gnueabihf"
    "${KX_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf")

# Headers, libraries and package files only from the toolchain and the sysroot, never
# the machine's own; programs (pkg-config, the emulator) from the machine.
set(CMAKE_FIND_ROOT_PATH "${KX_ARMHF_TOOLCHAIN_ROOT}" "${KX_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the sysroot's .pc files and prefixes their paths with it.
set(ENV{PKG_CONFIG_LIBDIR} "${KX_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${KX_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${KX_ARMHF_SYSROOT}")
unset(ENV{PKG_CONFIG_PATH})

# The libraries the sysroot's libraries need in turn (libavahi-client needs libdbus-1, …)
# are looked up there at link time.
list(JOIN KX_ARMHF_LIBRARY_DIRS ":" _kx_armhf_library_path)
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-Wl,-rpath-link,${_kx_armhf_library_path}")
endforeach()

# ctest runs each test binary (and gtest's test discovery) through this.
find_program(KX_QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
    "${KX_QEMU_ARM};-L;${KX_ARMHF_TOOLCHAIN_ROOT};-E;LD_LIBRARY_PATH=${_kx_armhf_library_path}")
