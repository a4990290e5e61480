#!/usr/bin/env bash
# Counts the access server's user-space instructions per request, by shared object, for two request
# targets (default: the enable list's asynchronous and synchronous ways) and prints their difference.
# Instruction counts do not swing with the machine's load as timings do: where two loads' timings
# differ by a few per cent, this tells which code the difference is in.
#
# Each target is served twice by a fresh kit (emulator and access server under callgrind, in a private
# mount namespace), once with N and once with 2N requests on one keep-alive connection; the per-request
# figure is the difference divided by N, so start-up and shutdown cancel out.
# --same-tasks first puts every task of the demo state on channel 101 through the emulator's control
# API, so that both default targets answer the same four tasks and differ only in their way.
# Usage: bench/instructions.sh [--same-tasks] [N] [TARGET_A TARGET_B]   (root; build dir: $VKS_BUILD_DIR)
set -euo pipefail
cd "$(dirname "$0")/.."
same_tasks=false
if [ "${1:-}" = --same-tasks ]; then same_tasks=true; shift; fi
n=${1:-500}
a=${2:-/api/MultiTaskAppTaskModesEnableList}
b=${3:-/api/MultiTaskAppTaskModesEnableList?ChannelId=101}
build=$(realpath "${VKS_BUILD_DIR:-build/default}")
cmake --build "$build" --target vks_emulator vks_access_server >/dev/null
for tool in valgrind callgrind_annotate curl python3; do
  command -v "$tool" >/dev/null || { echo "instructions: needs $tool" >&2; exit 1; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# One kit, COUNT requests of TARGET, the server's callgrind profile in OUT. Runs in its own mount
# namespace, so the emulator's /mnt/srvfs is private to it.
serve() {
  local target=$1 count=$2 out=$3
  unshare -m bash -s "$build" "$work/kit" "$target" "$count" "$out" "$same_tasks" <<'KIT'
set -euo pipefail
build=$1 dir=$2 target=$3 count=$4 out=$5 same_tasks=$6
rm -rf "$dir"; mkdir -p "$dir/results" /mnt/srvfs
wait_for() { for _ in $(seq 600); do grep -q "$2" "$1" 2>/dev/null && return 0; sleep 0.1; done; cat "$1" >&2; return 1; }
# The control port (and the journal it feeds) only where the state is to be changed through it.
control_port=(); if $same_tasks; then control_port=(--control-port=0); fi
"$build/bin/vks_emulator" --mount /mnt/srvfs --db "$dir/vks.db" --cmd-socket "$dir/cmd.sock" \
  --result-dir "$dir/results" "${control_port[@]}" >"$dir/emulator.log" 2>&1 &
emulator=$!
wait_for "$dir/emulator.log" "vks_emulator: ready"
if $same_tasks; then
  control=$(sed -n 's/.*control on \(http:[^ ]*\).*/\1/p' "$dir/emulator.log")control/state/tasks
  curl -s --fail "$control" |
    python3 -c 'import json, sys; t = json.load(sys.stdin); [x.update(channelId=101) for x in t]; print(json.dumps(t))' |
    curl -s --fail -X PUT -H 'Content-Type: application/json' --data-binary @- "$control" >/dev/null
fi
valgrind --tool=callgrind --callgrind-out-file="$out" "$build/bin/vks_access_server" \
  --listen 127.0.0.1:0 --cmd-socket "$dir/cmd.sock" >"$dir/server.log" 2>&1 &
server=$!
wait_for "$dir/server.log" "listening on"
url=$(sed -n 's/.*listening on \(http:[^ ]*\).*/\1/p' "$dir/server.log")$target
# One keep-alive connection; every answer must be a 200.
awk -v url="$url" -v n="$count" 'BEGIN { for (i = 0; i < n; i++) printf "url = \"%s\"\noutput = /dev/null\n", url }' >"$dir/requests"
curl -s --fail -K "$dir/requests"
kill -TERM "$server"; wait "$server" || true
kill -TERM "$emulator"; wait "$emulator" || true
KIT
}

# "object instructions" lines: the profile's self cost summed per shared object.
by_object() {
  callgrind_annotate --inclusive=no "$1" 2>/dev/null | sed -n '/file:function/,$p' |
    awk '{ gsub(",", "", $1) } $1 + 0 > 0 && match($0, /\[[^]]*\]$/) {
      o = substr($0, RSTART + 1, RLENGTH - 2); sub(".*/", "", o); s[o] += $1 }
      END { for (o in s) print o, s[o] }'
}

for side in a b; do
  target=${!side}
  echo "== $target: $n and $((2 * n)) requests under callgrind" >&2
  serve "$target" "$n" "$work/$side.1"
  serve "$target" "$((2 * n))" "$work/$side.2"
  join -a1 -a2 -e0 -o 0,1.2,2.2 <(by_object "$work/$side.2" | sort) <(by_object "$work/$side.1" | sort) |
    awk -v n="$n" '{ print $1, ($2 - $3) / n }' >"$work/$side"
done
join -a1 -a2 -e0 -o 0,1.2,2.2 <(sort "$work/a") <(sort "$work/b") |
  awk -v a="$a" -v b="$b" '
    { row[$1] = sprintf("%-28s %10.0f %10.0f %+10.0f", $1, $2, $3, $2 - $3); ta += $2; tb += $3; key[$1] = $2 - $3 }
    END {
      printf "user-space instructions per request in the access server\nA = %s\nB = %s\n", a, b
      printf "%-28s %10s %10s %10s\n", "shared object", "A", "B", "A - B"
      n = 0; for (o in key) order[++n] = o
      for (i = 2; i <= n; i++) for (j = i; j > 1 && key[order[j - 1]] < key[order[j]]; j--) { t = order[j]; order[j] = order[j - 1]; order[j - 1] = t }
      for (i = 1; i <= n; i++) if (row[order[i]] !~ / +0 +0 /) print row[order[i]]
      printf "%-28s %10.0f %10.0f %+10.0f\n", "total", ta, tb, ta - tb
    }'
