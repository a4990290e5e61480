#!/usr/bin/env bash
# The one-command demo: installs what is missing, builds the `default` preset, starts the camera
# emulator (service file system at /mnt/srvfs, command channel, SQLite state with demo data) and the
# access server on 127.0.0.1:8080, prints curl lines to try, and on Ctrl-C stops both so that the
# emulator unmounts.
# The emulator's control port (faults, state, journal, console page) listens on VKS_CONTROL_PORT.
# Needs no root once root has run scripts/setup.sh: another user serves from a user and mount
# namespace of its own (scripts/rootless.sh), where the service file system is mounted.
# Usage: scripts/run.sh   (environment: VKS_PORT=8080, VKS_CONTROL_PORT=8081 (0: any free port),
#   VKS_DEMO_DIR=<build>/demo, VKS_BUILD_DIR=build/default, VKS_BIN_DIR: serve these binaries, build nothing)
# VKS_TLS=1 serves HTTPS with the self-signed pair of build/demo-tls (made by scripts/setup.sh; a user
# who does not own that folder gets a pair of its own in the demo folder), and
# VKS_AUTH_FILE=<htdigest file> asks for a Digest login; the curl lines then carry --cacert and
# --digest -u <the file's first user> (curl asks for the password).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
source scripts/rootless.sh

port=${VKS_PORT:-8080}
control_port=${VKS_CONTROL_PORT:-8081}

# The tree's build folder; where this user may not write the tree, a folder of the user's own.
choose_build() {
  local build=${VKS_BUILD_DIR:-$root/build/default}
  if [ -z "${VKS_BUILD_DIR:-}" ] && ! { mkdir -p "$build" 2>/dev/null && [ -w "$build" ]; }; then
    build=${XDG_CACHE_HOME:-${HOME:-/nonexistent}/.cache}/vks-kit/build
    if ! mkdir -p "$build" 2>/dev/null; then
      build=/var/tmp/vks-kit-$(id -u)
      (umask 077 && mkdir -p "$build") 2>/dev/null || true
      if [ -L "$build" ] || [ ! -O "$build" ]; then
        echo "run: no folder to build in: $root is not writable by $(id -un) and $build is not its own; set VKS_BUILD_DIR to a folder you own" >&2
        exit 1
      fi
    fi
  fi
  echo "$build"
}

if [ -z "${VKS_BIN_DIR:-}" ]; then
  scripts/setup.sh
  build=$(choose_build)
  cmake --preset default -B "$build" >/dev/null
  cmake --build "$build" -j "$(nproc)" --target vks_emulator vks_access_server
  export VKS_BIN_DIR=$build/bin VKS_DEMO_DIR=${VKS_DEMO_DIR:-$build/demo}
elif [ "$(id -u)" -ne 0 ] && ! why=$(rootless_check 2>&1); then
  echo "run: $why" >&2
  exit 1
fi
bin=$VKS_BIN_DIR
demo=${VKS_DEMO_DIR:-$(dirname "$bin")/demo}
# The daemons refuse folders that another user could change (a demo folder of an older run may be open).
(umask 077 && mkdir -p "$demo/results") && chmod 0700 "$demo" "$demo/results"
# Root mounts on the host's /mnt/srvfs; another user goes on in a namespace of its own.
[ "$(id -u)" -eq 0 ] || VKS_DEMO_DIR=$demo rootless_exec "$root/scripts/run.sh"
mkdir -p /mnt/srvfs

scheme=http
login_args=()
curl_options=""
if [ "${VKS_TLS:-0}" = 1 ]; then
  tls=$root/build/demo-tls
  [ -O "$tls" ] || tls=$demo/tls
  scripts/tls-pair.sh "$tls"
  scheme=https
  login_args+=(--tls-cert "$tls/cert.pem" --tls-key "$tls/key.pem")
  curl_options+="--cacert $(printf %q "$tls/cert.pem") "
fi
if [ -n "${VKS_AUTH_FILE:-}" ]; then
  login_args+=(--auth-file "$(realpath "$VKS_AUTH_FILE")")
  curl_options+="--digest -u $(printf %q "$(head -n1 "$VKS_AUTH_FILE" | cut -d: -f1)") "
fi
# The curl lines as printed, with what HTTPS and the login need (shell-quoted: a path with a blank
# or a user name with a sed metacharacter stays one word and itself).
with_curl_options() {
  local line
  while IFS= read -r line; do
    [[ $line != "  curl "* ]] || line="  curl $curl_options${line#  curl }"
    printf '%s\n' "$line"
  done
}

emulator_pid=""
server_pid=""
stop() {
  trap - INT TERM EXIT
  echo
  [ -z "$server_pid" ] || { kill -TERM "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; }
  [ -z "$emulator_pid" ] || { kill -TERM "$emulator_pid" 2>/dev/null || true; wait "$emulator_pid" 2>/dev/null || true; }
  echo "run: stopped (logs in $demo)"
}
trap stop INT TERM EXIT

# Waits up to 20 s for a line in a log; fails with the log when the daemon dies or stays silent.
wait_for() {
  local log=$1 line=$2 pid=$3
  for _ in $(seq 200); do
    grep -q "$line" "$log" 2>/dev/null && return 0
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  echo "run: \"$line\" did not appear; $log says:" >&2
  cat "$log" >&2
  exit 1
}

"$bin/vks_emulator" --mount /mnt/srvfs --db "$demo/vks.db" --cmd-socket "$demo/cmd.sock" \
  --result-dir "$demo/results" --control-port "$control_port" >"$demo/emulator.log" 2>&1 &
emulator_pid=$!
wait_for "$demo/emulator.log" "vks_emulator: ready" "$emulator_pid"
control_port=$(sed -n 's|^vks_emulator: control on http://127.0.0.1:\([0-9]*\)/$|\1|p' "$demo/emulator.log")

"$bin/vks_access_server" --listen "127.0.0.1:$port" --cmd-socket "$demo/cmd.sock" \
  --oplog "$demo/oplog.txt" "${login_args[@]}" >"$demo/server.log" 2>&1 &
server_pid=$!
wait_for "$demo/server.log" "vks_access_server: listening" "$server_pid"
port=$(sed -n 's|^vks_access_server: listening on https\{0,1\}://127.0.0.1:\([0-9]*\) .*|\1|p' "$demo/server.log")

api="$scheme://127.0.0.1:$port/api"
cat <<CURLS | with_curl_options

The camera emulator and the access server are running. Try:

  curl -s $api/MultiTaskAppTaskModesAvailableList
  curl -s $api/MultiTaskAppTaskModesCapacity
  curl -s $api/MultiTaskAppTaskModesEnableList
  curl -s "$api/MultiTaskAppTaskModesEnableList?ChannelId=101&ChannelGroup=0"
  curl -s $api/MultiTaskAppDisplayRecogPopUps
  curl -s -X PUT -H 'Content-Type: application/json' -d '{"blackPopUp": true, "whitePopUp": false}' $api/MultiTaskAppDisplayRecogPopUps
  curl -s $api/MultiTaskAppDisplayRecogInfos
  curl -s -X PUT -H 'Content-Type: application/json' -d '{"name": 0}' $api/MultiTaskAppDisplayRecogInfos
  curl -s "$api/MultiTaskAppHistory?ChannelId=101"
  curl -s -X PUT -H 'Content-Type: application/json' -d '{"enableRecord": 0}' $api/MultiTaskAppHistory
  curl -s "$api/MultiTaskAppHistoryRecords?StartIndex=0&FindNum=5&EndTime=2024-05-01T23:59:59&DatabaseType=0"
  curl -s -X DELETE "$api/MultiTaskAppHistoryRecords?StartTime=2024-05-01T08:00:00&EndTime=2024-05-01T09:59:59"

(A DELETE without both StartTime and EndTime deletes every record.)

API docs (try requests from the page):  $scheme://127.0.0.1:$port/docs   (OpenAPI: $api/openapi.json)
Emulator console (state, faults, journal): http://127.0.0.1:$control_port/   (control API: http://127.0.0.1:$control_port/openapi.json)

Operation log: $demo/oplog.txt   Debug lines: $demo/server.log, $demo/emulator.log
Press Ctrl-C to stop both (the emulator unmounts /mnt/srvfs).
CURLS

# Serve until Ctrl-C, or until one of the daemons ends on its own.
while kill -0 "$server_pid" 2>/dev/null && kill -0 "$emulator_pid" 2>/dev/null; do
  sleep 1
done
# Ctrl-C in the terminal reaches the daemons as well: they stop cleanly with status 0. Any other
# status means a daemon ended on its own.
status=0
wait "$server_pid" || status=$?
wait "$emulator_pid" || status=$?
[ "$status" -eq 0 ] || echo "run: a daemon ended on its own (status $status); see $demo/*.log" >&2
