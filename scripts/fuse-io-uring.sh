# Sourced by the test and benchmark scripts. The kernel offers FUSE over io_uring only while the fuse
# module's enable_uring parameter is on; the emulator then serves from per-CPU io_uring queues (see
# docs/service-file-system.md). fuse_io_uring_on turns it on for this run where the kernel has it and we may
# (root); fuse_io_uring_restore puts back what was there.
fuse_io_uring_param=/sys/module/fuse/parameters/enable_uring
fuse_io_uring_before=

fuse_io_uring_on() {
  if [ -w "$fuse_io_uring_param" ] && fuse_io_uring_before=$(cat "$fuse_io_uring_param") &&
     echo Y 2>/dev/null > "$fuse_io_uring_param"; then
    echo "FUSE over io_uring: on for this run (it was $fuse_io_uring_before)" >&2
  else
    fuse_io_uring_before=
    echo "FUSE over io_uring: not available here; the FUSE device alone serves" >&2
  fi
}

fuse_io_uring_restore() {
  if [ -n "$fuse_io_uring_before" ]; then
    echo "$fuse_io_uring_before" > "$fuse_io_uring_param" || true
  fi
}
