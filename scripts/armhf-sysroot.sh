#!/usr/bin/env bash
# Unpacks the armhf libraries the cross build links against into a directory of the build tree
# (default build/armhf-sysroot). The packages are fetched with `apt-get download` and unpacked with
# `dpkg -x`: the host's installed packages are never touched, so this works even where the armhf
# -dev packages cannot be installed beside the host's own (different versions of a shared file).
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
  libgtest-dev libgmock-dev
)
stamp="$root/.packages"
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "${packages[*]}" ]; then
  echo "armhf-sysroot: ${#packages[@]} packages present in $root"
  exit 0
fi

# apt-get download of :armhf needs the architecture's package lists.
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
if ! dpkg --print-foreign-architectures | grep -qx armhf; then
  $SUDO dpkg --add-architecture armhf
fi
if ! apt-cache show libjson-c5:armhf >/dev/null 2>&1; then
  # A mirror in mid-sync can fail one index (e.g. the security one); the main one is enough here.
  $SUDO apt-get update -qq || echo "armhf-sysroot: apt-get update reported errors, going on"
fi

debs="$root/debs"
rm -rf "$root"
mkdir -p "$debs"
names=()
for p in "${packages[@]}"; do names+=("$p:armhf"); done
(cd "$debs" && apt-get download -q "${names[@]}" 2>&1 | grep -v '^W: Download is performed unsandboxed' || true)
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
