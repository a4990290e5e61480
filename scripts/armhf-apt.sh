#!/usr/bin/env bash
# apt-get (or, for `depends`, apt-cache) over armhf package lists kept in build/armhf-apt: the armhf
# architecture is never added to the host's dpkg configuration, and nothing is installed.
# Usage: scripts/armhf-apt.sh download PACKAGE...   (into the current directory)
#        scripts/armhf-apt.sh depends PACKAGE
set -euo pipefail
state="$(cd "$(dirname "$0")/.." && pwd)/build/armhf-apt"
opts=(-o APT::Architecture=armhf -o APT::Architectures::=armhf -o Debug::NoLocking=1
  -o Dir::State::Lists="$state/lists" -o Dir::Cache="$state/cache" -o Dir::State::status="$state/status")
# Lists are fetched once a day at most. A mirror in mid-sync can fail one index (e.g. the security
# one); the others are enough, and a package that is then missing fails the download below.
if [ -z "$(find "$state/lists" -maxdepth 1 -name '*Packages*' -mtime -1 2>/dev/null | head -n1)" ]; then
  mkdir -p "$state/lists/partial" "$state/cache/archives/partial"
  : >"$state/status"
  apt-get "${opts[@]}" update -qq >"$state/update.log" 2>&1 ||
    echo "armhf-apt: apt-get update reported errors ($state/update.log), going on" >&2
fi
if [ "$1" = depends ]; then
  exec apt-cache "${opts[@]}" "$@"
fi
apt-get "${opts[@]}" -q "$@" 2>&1 | grep -v '^W: Download is performed unsandboxed' || true
