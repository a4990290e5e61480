#!/bin/sh
# Runs an armhf program under qemu-user: the C library and libstdc++ of the cross toolchain, the
# other libraries from the sysroot that scripts/armhf-sysroot.sh unpacked into the build tree.
root="$(cd "$(dirname "$0")/.." && pwd)/build/armhf-sysroot"
exec qemu-arm -L /usr/arm-linux-gnueabihf \
  -E "LD_LIBRARY_PATH=$root/usr/lib/arm-linux-gnueabihf:$root/lib/arm-linux-gnueabihf" "$@"
