#!/usr/bin/env bash
# Installs every Debian package the project needs. Idempotent: packages already present are skipped.
set -euo pipefail

packages=(
  build-essential cmake pkg-config git
  libjson-c-dev libsafec-dev
  fuse3 libfuse3-dev
  libsqlite3-dev sqlite3
  libevent-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  curl procps
  gcovr valgrind
  clang-14 libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
  exit 0
fi

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
echo "setup: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
