# Cross build for 32-bit ARM (armhf) with Debian's cross toolchain (crossbuild-essential-armhf).
# The armhf libraries come from the sysroot that scripts/armhf-sysroot.sh unpacks into the build
# tree; the C library and libstdc++ are the cross toolchain's own. Binaries run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

get_filename_component(_vks_source "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
set(_vks_sysroot "${_vks_source}/build/armhf-sysroot")
set(_vks_libdirs "${_vks_sysroot}/usr/lib/arm-linux-gnueabihf:${_vks_sysroot}/lib/arm-linux-gnueabihf")

set(CMAKE_FIND_ROOT_PATH "${_vks_sysroot}" /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} "${_vks_sysroot}")
set(ENV{PKG_CONFIG_LIBDIR} "${_vks_sysroot}/usr/lib/arm-linux-gnueabihf/pkgconfig:${_vks_sysroot}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Debian keeps a few architecture-specific headers (OpenSSL's configuration) in the multiarch folder,
# which pkg-config does not name and the cross compiler does not search in the sysroot.
set(CMAKE_C_FLAGS_INIT "-isystem ${_vks_sysroot}/usr/include/arm-linux-gnueabihf")
set(CMAKE_CXX_FLAGS_INIT "-isystem ${_vks_sysroot}/usr/include/arm-linux-gnueabihf")

# The sysroot's libraries are not installed where the linker looks for the libraries they need.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${_vks_libdirs}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${_vks_libdirs}")
set(CMAKE_CROSSCOMPILING_EMULATOR "${_vks_source}/scripts/qemu-armhf.sh")
