#!/usr/bin/env bash
# The one-command demo: installs what is missing, builds the `default` preset, starts the camera
# emulator (service file system at /mnt/srvfs, command channel, SQLite state with demo data) and the
# access server on 127.0.0.1:8080, prints curl lines to try, and on Ctrl-C stops both so that the
# emulator unmounts.
# The emulator's control port (faults, state, journal, console page) listens on VKS_CONTROL_PORT.
# Usage: scripts/run.sh   (environment: VKS_PORT=8080, VKS_CONTROL_PORT=8081, VKS_DEMO_DIR=build/default/demo)
# VKS_TLS=1 serves HTTPS with the self-signed pair of build/demo-tls (made by scripts/setup.sh), and
# VKS_AUTH_FILE=<htdigest file> asks for a Digest login; the curl lines then carry --cacert and
# --digest -u <the file's first user> (curl asks for the password).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

port=${VKS_PORT:-8080}
control_port=${VKS_CONTROL_PORT:-8081}
demo=${VKS_DEMO_DIR:-$root/build/default/demo}
scheme=http
login_args=()
curl_options=""
if [ "${VKS_TLS:-0}" = 1 ]; then
  tls=$root/build/demo-tls
  scripts/tls-pair.sh "$tls"
  scheme=https
  login_args+=(--tls-cert "$tls/cert.pem" --tls-key "$tls/key.pem")
  curl_options+="--cacert $tls/cert.pem "
fi
if [ -n "${VKS_AUTH_FILE:-}" ]; then
  login_args+=(--auth-file "$(realpath "$VKS_AUTH_FILE")")
  curl_options+="--digest -u $(head -n1 "$VKS_AUTH_FILE" | cut -d: -f1) "
fi
# The curl lines as printed, with what HTTPS and the login need.
with_curl_options() {
  sed "s|^  curl |  curl $curl_options|"
}
bin=$root/build/default/bin

scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target vks_emulator vks_access_server

# Mounting a FUSE file system at /mnt/srvfs needs root.
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
$SUDO mkdir -p /mnt/srvfs "$demo/results"

emulator_pid=""
server_pid=""
stop() {
  trap - INT TERM EXIT
  echo
  [ -z "$server_pid" ] || { $SUDO kill -TERM "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; }
  [ -z "$emulator_pid" ] || { $SUDO kill -TERM "$emulator_pid" 2>/dev/null || true; wait "$emulator_pid" 2>/dev/null || true; }
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

$SUDO "$bin/vks_emulator" --mount /mnt/srvfs --db "$demo/vks.db" --cmd-socket "$demo/cmd.sock" \
  --result-dir "$demo/results" --control-port "$control_port" >"$demo/emulator.log" 2>&1 &
emulator_pid=$!
wait_for "$demo/emulator.log" "vks_emulator: ready" "$emulator_pid"

$SUDO "$bin/vks_access_server" --listen "127.0.0.1:$port" --cmd-socket "$demo/cmd.sock" \
  --oplog "$demo/oplog.txt" "${login_args[@]}" >"$demo/server.log" 2>&1 &
server_pid=$!
wait_for "$demo/server.log" "vks_access_server: listening" "$server_pid"

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
