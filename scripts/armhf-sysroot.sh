#!/usr/bin/env bash
# Unpacks the armhf libraries the cross build links against into a directory of the build tree
# (default build/armhf-sysroot). The packages are fetched with `apt-get download` over private armhf
# lists (scripts/armhf-apt.sh) and unpacked with `dpkg -x`: the host's packages and its dpkg
# configuration are never touched, so this works even where the armhf -dev packages cannot be
# installed beside the host's own (different versions of a shared file).
# The C library and libstdc++ come from the cross toolchain (/usr/arm-linux-gnueabihf).
set -euo pipefail
cd "$(dirname "$0")/.."

root=${1:-build/armhf-sysroot}
packages=(
  libjson-c-dev libjson-c5
  libsafec-dev libsafec3
  libfuse3-dev libfuse3-3
  libsqlite3-dev libsqlite3-0
  libevent-dev libevent-2.1-7 libevent-core-2.1-7 libevent-extra-2.1-7 libevent-pthreads-2.1-7
  libevent-openssl-2.1-7 libssl-dev libssl3
  libgtest-dev libgmock-dev
)
stamp="$root/.packages"
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "${packages[*]}" ]; then
  echo "armhf-sysroot: ${#packages[@]} packages present in $root"
  exit 0
fi

debs="$root/debs"
rm -rf "$root"
mkdir -p "$debs"
apt_armhf="$(pwd)/scripts/armhf-apt.sh"
(cd "$debs" && "$apt_armhf" download "${packages[@]}")
count=0
for deb in "$debs"/*.deb; do
  dpkg -x "$deb" "$root"
  dpkg-deb -f "$deb" Package Version | paste -sd' ' >>"$root/versions.txt"
  count=$((count + 1))
done
# Links such as libfuse3.so -> /lib/... must point into the sysroot, not at the host's files.
find "$root" -type l -lname '/*' | while read -r link; do
  ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$root$(readlink "$link")")" "$link"
done
if [ "$count" -ne "${#packages[@]}" ]; then
  echo "armhf-sysroot: fetched $count of ${#packages[@]} packages" >&2
  exit 1
fi
echo "${packages[*]}" >"$stamp"
echo "armhf-sysroot: ${#packages[@]} packages unpacked into $root"
