#!/usr/bin/env bash
# Builds and runs every test, in the normal build, the AddressSanitizer + UBSan build and the
# ThreadSanitizer build, then builds the module for 32-bit ARM and checks its budgets (handler
# stack, stripped size).
# Usage: scripts/test.sh [preset ...]   (default: default asan tsan, then the armhf budgets)
#   armhf: the whole suite cross-built for 32-bit ARM and run under qemu-user; the cases qemu-user
#   cannot run are left out and listed with the reason (scripts/test-armhf-vm.sh runs them all on a
#   real ARM kernel).
# Runs as root (CI); ctest's rootless_kit then runs the end-to-end tests and run.sh once more as a
# throwaway user (docs/running.md).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
# The service file system's tests run through the kernel's io_uring queues where it has them; one
# test also runs the device alone.
source scripts/fuse-io-uring.sh
fuse_io_uring_on
trap fuse_io_uring_restore EXIT

presets=("$@")
budgets_only=false
if [ ${#presets[@]} -eq 0 ]; then
  presets=(default asan tsan)
  budgets_only=true
fi
jobs=$(nproc)

declare -A qemu_limits=(
  [qemu-user-ioctl]="qemu-user does not forward ioctls it does not know (the service file system's requests)"
  [qemu-user-fanotify]="qemu-user does not emulate fanotify"
  [qemu-user-syscall-number]="under qemu-user, /proc/<tid>/syscall shows the host's system call numbers"
)

list_qemu_limited() {
  echo "==== left out under qemu-user (they run on a real ARM kernel: scripts/test-armhf-vm.sh)"
  for label in "${!qemu_limits[@]}"; do
    echo "-- $label: ${qemu_limits[$label]}"
    ctest --preset armhf -N -L "^$label\$" | sed -n 's/^ *Test *#[0-9]*: /   /p'
  done
}

for preset in "${presets[@]}"; do
  echo "==== build: $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "==== test: $preset"
  if [ "$preset" = armhf ]; then
    ctest --preset armhf -j "$jobs" --timeout 300 -LE '^qemu-user-'
    list_qemu_limited
  else
    ctest --preset "$preset" -j "$jobs" --timeout 300
  fi
done

if $budgets_only; then
  echo "==== build: armhf module"
  cmake --preset armhf >/dev/null
  cmake --build --preset armhf -j "$jobs" --target vksapiMultiTaskApp
  echo "==== test: armhf budgets"
  ctest --preset armhf -L '^budget$' --timeout 60
fi
