#!/usr/bin/env bash
# Installs every Debian package the project needs, then the pinned npm packages of package-lock.json
# (the docs page's OpenAPI viewer, the OpenAPI linter, the schema validator and the browser driver of
# the tests; the browser itself is Debian's chromium). Idempotent: what is present is skipped.
# Usage: scripts/setup.sh [armhf-vm]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

packages=(
  build-essential cmake pkg-config git
  libjson-c-dev libsafec-dev
  fuse3 libfuse3-dev
  libsqlite3-dev sqlite3
  libevent-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  curl procps
  nodejs chromium
  gcovr valgrind strace
  clang-14 libclang-rt-14-dev
  python3
  crossbuild-essential-armhf qemu-user
)
# `scripts/setup.sh armhf-vm`: also what scripts/test-armhf-vm.sh needs.
[ "${1:-}" != armhf-vm ] || packages+=(qemu-system-arm cpio)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
else
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  echo "setup: installing ${missing[*]}"
  # A mirror in mid-sync can fail one index; an install that then lacks a package still fails below.
  $SUDO apt-get update -qq || echo "setup: apt-get update reported errors, going on"
  # Never remove an installed package to make room for one of ours.
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends --no-remove "${missing[@]}"
fi

# npm packages exactly as locked; no install scripts run and no browser is downloaded. A stamp of the
# lock file's hash makes a second run a no-op.
cd "$(dirname "$0")/.."
stamp=node_modules/.vks-lock.sha256
want=$(sha256sum package-lock.json | cut -d' ' -f1)
if [ "$(cat "$stamp" 2>/dev/null)" != "$want" ]; then
  echo "setup: npm ci"
  npm ci --ignore-scripts --no-audit --no-fund --loglevel=error
  echo "$want" >"$stamp"
else
  echo "setup: npm packages present"
fi

# The armhf libraries of the cross build, unpacked into the build tree (never installed).
"$here/armhf-sysroot.sh"
