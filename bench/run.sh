#!/usr/bin/env bash
# Runs every benchmark REPS times (default 3) and prints one table: each figure's min, median and
# max over the runs, with its goal. Each benchmark starts the daemons it needs in a mount namespace
# of its own (a user namespace too when not run by root), checks every answer's bytes and fails
# loudly when one is wrong.
# Usage: bench/run.sh [REPS]     (build dir: $VKS_BUILD_DIR, default build/default)
set -euo pipefail
cd "$(dirname "$0")/.."
reps=${1:-3}
build=${VKS_BUILD_DIR:-build/default}
if [ -w "$build" ]; then
  cmake --build "$build" --target exchange_bench http_bench codec_bench async_bench >/dev/null
else
  echo "bench: $build is not writable by $(id -un): the benchmarks built there run as they are" >&2
fi
# As many parked requests as the descriptor limit allows, up to 10,000: two descriptors each in the
# access server (see docs/running.md).
# Root may raise the hard limit where it is lower than 10,000 requests need.
hard=$(ulimit -Hn)
if [ "$hard" != unlimited ] && (( hard < 20256 )) && ulimit -Hn 20256 2>/dev/null; then hard=20256; fi
parked=10000
if [ "$hard" != unlimited ] && (( (hard - 256) / 2 < parked )); then parked=$(( (hard - 256) / 2 )); fi
source scripts/fuse-io-uring.sh
fuse_io_uring_on
out=$(mktemp)
trap 'rm -f "$out"; fuse_io_uring_restore' EXIT
for ((i = 1; i <= reps; i++)); do
  echo "== run $i of $reps" >&2
  "$build/bin/exchange_bench" | tee -a "$out" >&2
  "$build/bin/http_bench" | tee -a "$out" >&2
  "$build/bin/http_bench" --same-tasks | tee -a "$out" >&2
  "$build/bin/async_bench" --scale --requests "$parked" | tee -a "$out" >&2
  "$build/bin/codec_bench" --benchmark_repetitions=5 | grep -o 'metric .*' | tee -a "$out" >&2
done
# Goals: "<= x" or ">= x" per figure; figures without one are context.
awk -v reps="$reps" '
BEGIN {
  goal["srvfs_exchange/fuse_floor"] = "<= 1.2"; goal["cmd_exchange/socket_floor"] = "<= 1.2"
  goal["srvfs_calls_over_floor"] = "<= 0"; goal["srvfs_switches_over_floor"] = "<= 0"
  goal["cmd_calls_over_floor"] = "<= 0"; goal["cmd_switches_over_floor"] = "<= 0"
  goal["capacity/404"] = ">= 0.25"; goal["history/404"] = ">= 0.4"
  goal["capacity_p99_ms"] = "<= 2"; goal["history_p99_ms"] = "<= 2"
  goal["history_records_p99_ms"] = "<= 5"
  goal["Encode_codec/baseline"] = "<= 1.2"; goal["Decode_codec/baseline"] = "<= 1.1"
  goal["scale_answered_right"] = ">= 1"; goal["scale_kb_per_parked_request"] = "<= 16"
  goal["scale_wall/bound"] = "<= 1.3"
  ncounts = split("calls switches client_calls client_switches", counts, " ")
}
# "metric NAME VALUE [floor=NUMBERunit] [calls=OURS:FLOOR switches=... client_calls=... client_switches=...]":
# the floor the ratio was taken against in that run, and per exchange or request the system calls
# and context switches of the server and of the client, ours beside those of the floor.
$1 == "metric" {
  if (!($2 in n)) order[++names] = $2
  v[$2, ++n[$2]] = $3
  for (i = 4; i <= NF; i++) {
    if ($i ~ /^floor=/) { f = substr($i, 7); unit[$2] = f; sub(/^[0-9.]+/, "", unit[$2]); fl[$2, ++nf[$2]] = f + 0 }
    split($i, kv, "=")
    if (kv[2] ~ /^[0-9.]+:[0-9.]+$/) {
      split(kv[2], pair, ":"); k = $2 SUBSEP kv[1]
      ours[k, ++nc[k]] = pair[1]; theirs[k, nc[k]] = pair[2]
    }
  }
}
function median(arr, name, m,    i, j, t, s) {
  for (i = 1; i <= m; i++) s[i] = arr[name, i]
  for (i = 2; i <= m; i++) for (j = i; j > 1 && s[j - 1] > s[j]; j--) { t = s[j]; s[j] = s[j - 1]; s[j - 1] = t }
  lo = s[1]; hi = s[m]
  return m % 2 ? s[(m + 1) / 2] : (s[m / 2] + s[m / 2 + 1]) / 2
}
END {
  printf "%-30s %9s %9s %9s  %-8s %-4s %-12s %-12s %-12s %-12s %s\n", "figure (" reps " runs)", "min", "median", "max",
         "goal", "met", "calls", "switches", "cl.calls", "cl.switches", "floor (median; min-max)"
  for (k = 1; k <= names; k++) {
    name = order[k]; m = n[name]
    med = median(v, name, m); mn = lo; mx = hi
    floor = ""
    if (nf[name] > 0) {
      fm = median(fl, name, nf[name])
      floor = sprintf("%g %s (%g-%g)", fm, unit[name], lo, hi)
    }
    verdict = ""
    if (name in goal) {
      split(goal[name], g, " ")
      verdict = ((g[1] == "<=" && med <= g[2]) || (g[1] == ">=" && med >= g[2])) ? "yes" : "NO"
    }
    line = sprintf("%-30s %9.3f %9.3f %9.3f  %-8s %-4s", name, mn, med, mx, goal[name], verdict)
    for (c = 1; c <= ncounts; c++) {
      key = name SUBSEP counts[c]; cell = ""
      if (nc[key] > 0) cell = sprintf("%.2f:%.2f", median(ours, key, nc[key]), median(theirs, key, nc[key]))
      line = line sprintf(" %-12s", cell)
    }
    print line " " floor
  }
  print "calls, switches: system calls and context switches of the server per exchange or request, ours:the floor (medians);"
  print "cl.: the same of the client. Exchanges: emulator:floor server; HTTP: access server per request:per request of the floor."
}' "$out"
