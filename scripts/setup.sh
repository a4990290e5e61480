#!/usr/bin/env bash
# Installs every Debian package the project needs, then the pinned npm packages of package-lock.json
# (the docs page's OpenAPI viewer, the OpenAPI linter, the schema validator, the browser driver of
# the tests, and the contract-test generator and runner; the browser itself is Debian's chromium),
# and the demo's self-signed HTTPS pair. Idempotent: what is present is skipped.
# Run once as root: it installs the packages and lets ordinary users open /dev/fuse. After that,
# nothing of the kit needs root. Run as another user it changes nothing that needs root: the first
# thing missing is named in one line, with the command that fixes it, before anything is changed.
# Usage: scripts/setup.sh [armhf-vm]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/rootless.sh"

packages=(
  build-essential cmake pkg-config git
  libjson-c-dev libsafec-dev
  fuse3 libfuse3-dev
  libsqlite3-dev sqlite3
  libevent-dev libssl-dev openssl
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

cd "$(dirname "$0")/.."
stamp=node_modules/.vks-lock.sha256
want=$(sha256sum package-lock.json | cut -d' ' -f1)
npm_missing=false
[ "$(cat "$stamp" 2>/dev/null)" = "$want" ] || npm_missing=true

if [ "$(id -u)" -ne 0 ]; then
  if [ ${#missing[@]} -gt 0 ]; then
    echo "setup: missing packages: ${missing[*]}; as root run: scripts/setup.sh" >&2
    exit 1
  fi
  if $npm_missing && ! { [ -w . ] && { [ ! -e node_modules ] || [ -w node_modules ]; }; }; then
    echo "setup: missing npm packages and $(pwd) is not writable by $(id -un); as root run: scripts/setup.sh" >&2
    exit 1
  fi
  if [ ! -f build/armhf-sysroot/.packages ] && ! mkdir -p build 2>/dev/null; then
    echo "setup: missing the armhf libraries and $(pwd)/build is not writable by $(id -un); as root run: scripts/setup.sh" >&2
    exit 1
  fi
  if ! why=$(rootless_check 2>&1); then
    echo "setup: $why" >&2
    exit 1
  fi
fi

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
else
  echo "setup: installing ${missing[*]}"
  # A mirror in mid-sync can fail one index; an install that then lacks a package still fails below.
  apt-get update -qq || echo "setup: apt-get update reported errors, going on"
  # Never remove an installed package to make room for one of ours.
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends --no-remove "${missing[@]}"
fi

# Debian leaves /dev/fuse open to every user (0666); where a machine restricts it, ordinary users
# cannot mount the service file system even in their own namespace. The udev rule keeps the mode
# when the device is made again (a reboot, the module reloaded); chmod applies it now.
if [ "$(id -u)" -eq 0 ] && [ -c /dev/fuse ]; then
  if [ -d /etc/udev ] && [ ! -f /etc/udev/rules.d/60-vks-fuse.rules ]; then
    mkdir -p /etc/udev/rules.d
    echo 'KERNEL=="fuse", MODE="0666"' >/etc/udev/rules.d/60-vks-fuse.rules
    echo "setup: /dev/fuse open to every user from now on (/etc/udev/rules.d/60-vks-fuse.rules)"
  fi
  chmod 0666 /dev/fuse
fi

# npm packages exactly as locked; no install scripts run and no browser is downloaded. A stamp of the
# lock file's hash makes a second run a no-op.
if $npm_missing; then
  echo "setup: npm ci"
  npm ci --ignore-scripts --no-audit --no-fund --loglevel=error
  echo "$want" >"$stamp"
else
  echo "setup: npm packages present"
fi

# The demo's self-signed HTTPS pair (scripts/run.sh with VKS_TLS=1), in a private folder of the build
# tree; kept while it is valid. A user who cannot write the tree's build folder goes without it
# (scripts/run.sh then makes one in that user's demo folder).
if [ -O build/demo-tls ] || { [ ! -e build/demo-tls ] && mkdir -p build 2>/dev/null && [ -w build ]; }; then
  scripts/tls-pair.sh build/demo-tls
fi

# The armhf libraries of the cross build, unpacked into the build tree (never installed).
"$here/armhf-sysroot.sh"
