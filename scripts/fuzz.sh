#!/usr/bin/env bash
# Builds every fuzz target with clang (libFuzzer, ASan + UBSan, the fuzz preset) and runs each for
# the given time on a working copy of its seed corpus, one after the other.
# Usage: scripts/fuzz.sh [seconds per target, default 60]
# Prints each target's executions and whether it crashed; exits 1 when any did. A crashing input is
# kept as build/fuzz/crash-<target>-*; replay it with build/fuzz/bin/fuzz_<target> <file>.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
targets=(dxmp_frame query_param module_parse cmd_frames analysis_request)

scripts/setup.sh >/dev/null
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)" --target "${targets[@]/#/fuzz_}" >/dev/null

build=build/fuzz
crashed=()
for t in "${targets[@]}"; do
  work="$build/corpus/$t"
  mkdir -p "$work"
  cp tests/fuzz/corpus/"$t"/* "$work"/
  status=ok
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    "$build/bin/fuzz_$t" "$work" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$build/crash-$t-" -print_final_stats=1 >"$build/$t.log" 2>&1 || status=CRASHED
  [ "$status" = ok ] || crashed+=("$t")
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$build/$t.log" | grep -o '[0-9]*$' || echo 0)
  printf '%-18s %-8s %12s executions in %s s (log: %s)\n' "$t" "$status" "$runs" "$seconds" "$build/$t.log"
done
if [ ${#crashed[@]} -gt 0 ]; then
  echo "fuzz: crashed: ${crashed[*]}"
  exit 1
fi
echo "fuzz: ${#targets[@]} targets, no crash"
