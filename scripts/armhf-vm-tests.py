#!/usr/bin/env python3
"""Writes the shell script that runs the armhf suite inside the virtual machine.

Reads `ctest --show-only=json-v1` on stdin. Every test becomes one command run from its working
directory with its environment and a deadline (busybox timeout), without the qemu-user wrapper: the
machine runs ARM binaries itself. A case counts as passed only when it exits 0 and its output says
one test passed (for a gtest case), so a filter that matched nothing is not taken for a pass; any
other test (a corpus replay) passes on exit 0. The budget checks run on
the build machine (scripts/test.sh), not here.
"""
import json
import shlex
import sys

DEFAULT_TIMEOUT = 300


def prop(test, name, default=None):
    for p in test.get("properties", []):
        if p["name"] == name:
            return p["value"]
    return default


def main():
    tests = json.load(sys.stdin)["tests"]
    lines = ["pass=0; fail=0; skip=0", "mkdir -p /tmp/vm-logs"]
    for index, test in enumerate(tests):
        if "budget" in (prop(test, "LABELS") or []):
            continue
        command = test["command"]
        if command and command[0].endswith("qemu-armhf.sh"):
            command = command[1:]
        env = " ".join(shlex.quote(e) for e in prop(test, "ENVIRONMENT") or [])
        deadline = int(float(prop(test, "TIMEOUT", DEFAULT_TIMEOUT)))
        log = f"/tmp/vm-logs/{index}.log"
        name = shlex.quote(test["name"])
        gtest = any(c.startswith("--gtest_filter=") for c in command)
        passed = f'grep -q "PASSED  \\] 1 test" {log}' if gtest else "true"
        lines.append(
            f"(cd {shlex.quote(prop(test, 'WORKING_DIRECTORY', '/'))} && env {env} timeout -s KILL {deadline} "
            f"{' '.join(shlex.quote(c) for c in command)}) >{log} 2>&1; rc=$?")
        lines.append(
            f'if [ $rc -eq 0 ] && grep -q "SKIPPED \\]" {log}; then skip=$((skip+1)); echo skipped {name}; '
            f'elif [ $rc -eq 0 ] && {passed}; then pass=$((pass+1)); '
            f'else fail=$((fail+1)); echo "FAILED (exit $rc)" {name}; cat {log}; fi')
    lines.append('echo "armhf-vm: $pass passed, $fail failed, $skip skipped"')
    print("\n".join(lines))


if __name__ == "__main__":
    main()
