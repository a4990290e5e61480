#!/usr/bin/env bash
# Runs the whole armhf suite on a real 32-bit ARM kernel: Debian's armmp kernel in qemu-system-arm
# (the "virt" board), with nothing left out, unlike the qemu-user run of `scripts/test.sh armhf`.
# The machine boots an initramfs that holds busybox, the ARM C library and the sysroot's libraries,
# the fuse module and the build tree's binaries at their own paths; it runs every test with a
# deadline, prints "armhf-vm: N passed, N failed, N skipped" and powers off.
# Usage: scripts/test-armhf-vm.sh   (VKS_VM_CPUS, VKS_VM_MEMORY_MB, VKS_VM_TIMEOUT_S to change the
# machine's 2 cores, 1024 MB and 3600 s limit)
set -euo pipefail
cd "$(dirname "$0")/.."
source=$(pwd)

scripts/setup.sh armhf-vm
echo "==== build: armhf"
cmake --preset armhf >/dev/null
cmake --build --preset armhf -j "$(nproc)"

vm=$source/build/armhf-vm
debs=$vm/debs
mkdir -p "$debs"
# The kernel package the metapackage points at, and busybox; fetched once, never installed.
kernel_pkg=$(scripts/armhf-apt.sh depends linux-image-armmp | sed -n 's/^ *Depends: \(linux-image-[^ :]*\).*$/\1/p' | head -n1)
for pkg in "$kernel_pkg" busybox-static; do
  ls "$debs/${pkg}"_*.deb >/dev/null 2>&1 || (cd "$debs" && "$source/scripts/armhf-apt.sh" download "$pkg")
done

root=$vm/root
rm -rf "$root" "$vm/kernel"
mkdir -p "$root"/{bin,dev,proc,sys,tmp,mnt/srvfs,lib/arm-linux-gnueabihf,lib/modules} "$vm/kernel"
dpkg -x "$(ls "$debs/${kernel_pkg}"_*.deb)" "$vm/kernel"
dpkg -x "$(ls "$debs"/busybox-static_*.deb)" "$vm/busybox"
cp "$vm/busybox/bin/busybox" "$root/bin/"
rm -rf "$vm/busybox"
find "$vm/kernel/lib/modules" -name fuse.ko -exec cp {} "$root/lib/modules/" \;
cp -a /usr/arm-linux-gnueabihf/lib/ld-linux-armhf.so.3 "$root/lib/"
cp -a /usr/arm-linux-gnueabihf/lib/*.so* build/armhf-sysroot/usr/lib/arm-linux-gnueabihf/*.so* \
  build/armhf-sysroot/lib/arm-linux-gnueabihf/*.so* "$root/lib/arm-linux-gnueabihf/"
# The build tree at its own path: tests name their binaries, libraries and daemons by absolute path.
mkdir -p "$root$source/build/armhf"
(cd build/armhf && find bin lib -type f \( -perm -u+x -o -name '*.so*' \) | cpio -pdmu --quiet "$root$source/build/armhf")
find "$root$source/build/armhf" -type f -exec arm-linux-gnueabihf-strip --strip-debug {} + 2>/dev/null || true
(cd build/armhf && find tests -type d) | while read -r d; do mkdir -p "$root$source/build/armhf/$d"; done
# Data the tests read from the source tree: the golden transcripts and the fuzz corpora.
for d in tests/transcript/golden tests/fuzz/corpus; do
  mkdir -p "$root$source/$d" && cp -a "$d/." "$root$source/$d/"
done
(cd build/armhf && ctest --show-only=json-v1) | scripts/armhf-vm-tests.py >"$root/run-tests.sh"
cat >"$root/init" <<'INIT'
#!/bin/busybox sh
/bin/busybox --install -s /bin
# /tmp stays the initramfs's own (writable): a build tree under /tmp must stay visible.
mount -t proc proc /proc && mount -t sysfs sys /sys && mount -t devtmpfs dev /dev
insmod /lib/modules/fuse.ko
ip link set lo up
echo "armhf-vm: $(uname -srm), $(nproc) cores"
start=$(date +%s)
sh /run-tests.sh
echo "armhf-vm: tests took $(($(date +%s) - start)) s"
poweroff -f
INIT
chmod +x "$root/init"
(cd "$root" && find . | cpio -o -H newc --quiet | gzip -1) >"$vm/initrd.gz"
echo "==== boot: $(ls "$vm"/kernel/boot/vmlinuz-*), initramfs $(du -h "$vm/initrd.gz" | cut -f1)"

log=$vm/console.log
timeout "${VKS_VM_TIMEOUT_S:-3600}" qemu-system-arm -M virt,highmem=off -cpu cortex-a15 \
  -smp "${VKS_VM_CPUS:-2}" -m "${VKS_VM_MEMORY_MB:-1024}" -nographic -no-reboot -nic none \
  -kernel "$(ls "$vm"/kernel/boot/vmlinuz-*)" -initrd "$vm/initrd.gz" \
  -append "console=ttyAMA0 rdinit=/init panic=-1 quiet" </dev/null | tee "$log"
summary=$(grep -a -o 'armhf-vm: [0-9]* passed, [0-9]* failed, [0-9]* skipped' "$log" | tail -n1)
[ -n "$summary" ] || { echo "test-armhf-vm: the machine ended without a summary (see $log)" >&2; exit 1; }
echo "$summary"
case "$summary" in *" 0 failed, 0 skipped") exit 0 ;; *) exit 1 ;; esac
