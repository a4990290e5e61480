#!/usr/bin/env python3
"""Checks the module's budgets.

stack OBJDIR: worst-case stack of every exported handler, from the call graphs GCC writes with
  -fcallgraph-info=su (one .ci file per object under OBJDIR). A handler's need is its own frame plus
  the deepest chain of the module's functions it calls; calls that leave the module (host, C and
  JSON libraries) and indirect calls count 0, so the host's thread stack must leave room for them.
  Fails when the history query's Run phase needs more than 48 KiB or any other handler more than
  24 KiB, when a frame has no bound (alloca, variable-length arrays), when calls recurse, or when not all 29 handlers are found.
size MODULE STRIP: size of the module after STRIP, which must stay under 72 KiB.
"""
import os
import re
import subprocess
import sys
import tempfile

HANDLER = re.compile(r"^(PreProc|Parse|Run|Recv|Format)(Get|Put|Delete)MultiTaskApp\w+$")
BUDGETS = {"RunGetMultiTaskAppHistoryRecords": 48 * 1024}
DEFAULT_BUDGET = 24 * 1024
HANDLER_COUNT = 29
SIZE_BUDGET = 72 * 1024

NODE = re.compile(r'^node: \{ title: "([^"]+)" label: "([^"]*)"')
EDGE = re.compile(r'^edge: \{ sourcename: "([^"]+)" targetname: "([^"]+)"')
FRAME = re.compile(r"\\n(\d+) bytes \(([a-z,]+)\)")


def read_graphs(objdir):
    frames, calls, names = {}, {}, {}
    for folder, _, files in os.walk(objdir):
        for name in files:
            if not name.endswith(".ci"):
                continue
            with open(os.path.join(folder, name), encoding="utf-8") as graph:
                for line in graph:
                    node, edge = NODE.match(line), EDGE.match(line)
                    if node and FRAME.search(node.group(2)):
                        size, kind = FRAME.search(node.group(2)).groups()
                        if kind not in ("static", "dynamic,bounded"):  # bounded: the size is a bound
                            sys.exit(f"unbounded stack frame ({kind}) in {node.group(2).split(chr(92))[0]}")
                        frames[node.group(1)] = max(frames.get(node.group(1), 0), int(size))
                        names[node.group(1)] = node.group(2).split("\\n")[0]
                    elif edge:
                        calls.setdefault(edge.group(1), set()).add(edge.group(2))
    return frames, calls, names


def deepest(function, frames, calls, active, memo):
    """(bytes, chain) of the deepest call chain from function within the module."""
    if function in memo:
        return memo[function]
    if function in active:
        sys.exit(f"recursive calls through {function}: no static bound")
    active.add(function)
    best = (0, [])
    for callee in calls.get(function, ()):
        if callee in frames:
            best = max(best, deepest(callee, frames, calls, active, memo), key=lambda b: b[0])
    active.discard(function)
    memo[function] = (frames[function] + best[0], [function] + best[1])
    return memo[function]


def check_stack(objdir):
    frames, calls, names = read_graphs(objdir)
    handlers = sorted(f for f in frames if HANDLER.match(f))
    memo, failures = {}, []
    for handler in handlers:
        need, chain = deepest(handler, frames, calls, set(), memo)
        budget = BUDGETS.get(handler, DEFAULT_BUDGET)
        verdict = "ok" if need <= budget else "OVER"
        print(f"{verdict:4} {need:6} of {budget:6} bytes  {handler}")
        if len(chain) > 1:
            print("       via " + " -> ".join(names[f][:90] for f in chain[1:]))
        if need > budget:
            failures.append(handler)
    if len(handlers) != HANDLER_COUNT:
        sys.exit(f"found {len(handlers)} handlers in the call graphs under {objdir}, expected {HANDLER_COUNT}")
    if failures:
        sys.exit("over the stack budget: " + ", ".join(failures))


def check_size(module, strip):
    with tempfile.TemporaryDirectory() as scratch:
        stripped = os.path.join(scratch, os.path.basename(module))
        subprocess.run([strip, "-o", stripped, module], check=True)
        size = os.path.getsize(stripped)
    print(f"stripped {os.path.basename(module)}: {size} bytes of {SIZE_BUDGET}")
    if size >= SIZE_BUDGET:
        sys.exit("over the size budget")


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[1] == "stack":
        check_stack(sys.argv[2])
    elif len(sys.argv) == 4 and sys.argv[1] == "size":
        check_size(sys.argv[2], sys.argv[3])
    else:
        sys.exit(__doc__)
