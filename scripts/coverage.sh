#!/usr/bin/env bash
# Builds the coverage preset, runs every test once and prints line and branch coverage per folder.
# Usage: scripts/coverage.sh [--no-build]   (--no-build: report on the counters of the last run)
# Branches that only gcc's exception landing pads or unreachable code create are left out.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/coverage
if [ "${1:-}" != "--no-build" ]; then
  scripts/setup.sh >/dev/null
  cmake --preset coverage >/dev/null
  cmake --build --preset coverage -j "$(nproc)" >/dev/null
  find "$build" -name '*.gcda' -delete
  # As in scripts/test.sh: the service file system serves through io_uring where the kernel has it,
  # so its queue code is counted as the suite runs it.
  source scripts/fuse-io-uring.sh
  fuse_io_uring_on
  trap fuse_io_uring_restore EXIT
  ctest --preset coverage -j "$(nproc)" --timeout 300 >"$build/ctest.log" ||
    { tail -30 "$build/ctest.log"; exit 1; }
  grep -E 'tests passed' "$build/ctest.log"
fi

# Bounded: gcovr 5.2's parallel workers can hang after a parse error instead of exiting.
timeout 600 gcovr -r . --object-directory "$build" -j "$(nproc)" \
  --filter 'src/' --filter 'platform/' --filter 'emulator/' --filter 'host/' \
  --exclude-throw-branches --exclude-unreachable-branches \
  --json-summary "$build/summary.json" >/dev/null

python3 - "$build/summary.json" <<'PY'
import json, sys
rows = {}
for f in json.load(open(sys.argv[1]))["files"]:
    r = rows.setdefault(f["filename"].split("/")[0] + "/", [0, 0, 0, 0])
    for i, k in enumerate(("line_covered", "line_total", "branch_covered", "branch_total")):
        r[i] += f[k]
def pct(a, b): return f"{100.0 * a / b:5.1f} %" if b else "    - "
print(f"{'folder':<10} {'lines':>20} {'branches':>20}")
total = [0, 0, 0, 0]
for name in ("src/", "platform/", "emulator/", "host/"):
    r = rows.get(name, [0, 0, 0, 0])
    total = [t + x for t, x in zip(total, r)]
    print(f"{name:<10} {pct(r[0], r[1])} {r[0]:>5}/{r[1]:<5} {pct(r[2], r[3])} {r[2]:>5}/{r[3]:<5}")
print(f"{'all':<10} {pct(total[0], total[1])} {total[0]:>5}/{total[1]:<5} {pct(total[2], total[3])} {total[2]:>5}/{total[3]:<5}")
PY
