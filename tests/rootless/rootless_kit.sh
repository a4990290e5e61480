#!/usr/bin/env bash
# The kit run by a user other than root, as CI (which is root) proves it: the end-to-end tests, then
# scripts/run.sh, each run by a throwaway user from a private copy of the build's binaries (the tree
# may lie where that user cannot go, under /root say). Every curl line run.sh prints must answer
# 200, no process of the run may be root's, and Ctrl-C must end the run with status 0.
# Usage: rootless_kit.sh SOURCE_DIR BIN_DIR LIB_DIR   (VKS_TEST_USER: the user when run as root,
# default nobody; run by another user, that user runs it all)
set -euo pipefail
src=$1 bin=$2 lib=$3
user=${VKS_TEST_USER:-nobody}
as_user=()
if [ "$(id -u)" -eq 0 ]; then
  uid=$(id -u "$user") gid=$(id -g "$user")
  as_user=(setpriv --reuid="$uid" --regid="$gid" --clear-groups --)
else
  uid=$(id -u) gid=$(id -g) user=$(id -un)
fi

stage=$(mktemp -d /tmp/vks-rootless.XXXXXX)
run_pid=""
cleanup() {
  [ -z "$run_pid" ] || kill -KILL -- "-$run_pid" 2>/dev/null || true
  rm -rf "$stage"
}
trap cleanup EXIT
mkdir -p "$stage/bin" "$stage/lib" "$stage/scripts"
cp "$bin/vks_emulator" "$bin/vks_access_server" "$bin/integration_tests" "$stage/bin/"
cp "$lib"/*.so "$stage/lib/"
cp "$src/scripts/run.sh" "$src/scripts/rootless.sh" "$stage/scripts/"
chown -R "$uid:$gid" "$stage"
user_env=(env -u XDG_RUNTIME_DIR HOME="$stage" LD_LIBRARY_PATH="$stage/lib" VKS_BIN_DIR="$stage/bin"
  VKS_LIB_DIR="$stage/lib")
seconds() { echo "$(($(date +%s%N) / 1000000 - $1))"; }
fail() {
  echo "rootless_kit: $*" >&2
  exit 1
}

echo "== the end-to-end tests as $user (uid $uid)"
t=$(seconds 0)
timeout -k 5 240 "${as_user[@]}" "${user_env[@]}" "$stage/bin/integration_tests" \
  --gtest_filter="${VKS_ROOTLESS_TESTS:-EndToEnd.*:KitUnderLoad.*}" || fail "the end-to-end tests failed as $user"
echo "rootless_kit: end-to-end tests as $user: $(seconds "$t") ms"

echo "== scripts/run.sh as $user"
out=$stage/run.out
t=$(seconds 0)
# Its own process group, as in a terminal: Ctrl-C is a SIGINT to the whole group.
setsid "${as_user[@]}" "${user_env[@]}" VKS_PORT=0 VKS_CONTROL_PORT=0 "$stage/scripts/run.sh" >"$out" 2>&1 &
run_pid=$!
for _ in $(seq 300); do
  grep -q "^Press Ctrl-C" "$out" && break
  kill -0 "$run_pid" 2>/dev/null || fail "run.sh ended before serving: $(cat "$out")"
  sleep 0.1
done
grep -q "^Press Ctrl-C" "$out" || fail "run.sh did not serve within 30 s: $(cat "$out")"
echo "rootless_kit: run.sh serving after $(seconds "$t") ms"

procs=$(ps -o uid=,comm= -g "$run_pid")
echo "$procs" | grep -q vks_emulator && echo "$procs" | grep -q vks_access_serv ||
  fail "the daemons are not in the run's process group: $procs"
! echo "$procs" | awk -v uid="$uid" '$1 != uid' | grep . || fail "a process of the run is not $user's"

lines=0
while read -r line; do
  code=$(eval "$line -o /dev/null -w '%{http_code}' --max-time 10") || code="curl failed"
  [ "$code" = 200 ] || fail "$code from: $line"
  lines=$((lines + 1))
done < <(sed -n 's/^  \(curl .*\)$/\1/p' "$out")
[ "$lines" -ge 11 ] || fail "only $lines curl lines printed: $(cat "$out")"
echo "rootless_kit: $lines curl lines answered 200"

t=$(seconds 0)
kill -INT -- "-$run_pid"
for _ in $(seq 150); do
  kill -0 "$run_pid" 2>/dev/null || break
  sleep 0.1
done
kill -0 "$run_pid" 2>/dev/null && fail "run.sh still runs 15 s after Ctrl-C"
status=0
wait "$run_pid" || status=$?
run_pid=""
[ "$status" -eq 0 ] && grep -q "^run: stopped" "$out" || fail "run.sh ended with status $status: $(cat "$out")"
echo "rootless_kit: stopped $(seconds "$t") ms after Ctrl-C"
