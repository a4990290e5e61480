# Sourced by setup.sh and run.sh: what a user other than root needs to run the kit, and the
# namespace it runs in. Such a user becomes root of a user namespace of its own, with a mount
# namespace of its own (FUSE mounts are allowed there since Linux 4.18) and a tmpfs over /mnt there,
# so that /mnt/srvfs can be made. The network namespace stays the host's: curl from outside works.

# Prints one line naming what is missing and the command that fixes it, and fails; silent when the
# user has everything.
rootless_check() {
  local me
  me=$(id -un 2>/dev/null || id -u)
  if [ ! -r /dev/fuse ] || [ ! -w /dev/fuse ]; then
    echo "missing permission: /dev/fuse is not usable by $me ($(stat -c %a /dev/fuse 2>/dev/null || echo absent)); as root run: scripts/setup.sh (or: chmod 0666 /dev/fuse)" >&2
    return 1
  fi
  if ! unshare --user --map-root-user --mount true 2>/dev/null; then
    echo "missing permission: $me cannot make a user namespace; as root run: sysctl -w kernel.unprivileged_userns_clone=1 user.max_user_namespaces=15000" >&2
    return 1
  fi
}

# Runs "$@" as root of a new user and mount namespace, with a tmpfs over /mnt and /mnt/srvfs made.
# exec: the command keeps this process's id, so a signal sent to it (Ctrl-C) reaches it.
rootless_exec() {
  exec unshare --user --map-root-user --mount --propagation private -- \
    sh -c 'mount -t tmpfs -o mode=0755 tmpfs /mnt && mkdir /mnt/srvfs && exec "$@"' rootless "$@"
}
