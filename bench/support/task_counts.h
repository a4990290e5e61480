// What an exchange costs the kernel, counted rather than timed: the system calls and the context
// switches of the processes and threads that serve it. Counts do not depend on how fast a machine
// is, so a table from any machine can be read beside them. Context switches come from the kernel's
// own counters (/proc/.../status), read between timed rounds; system calls from strace (-c),
// attached only for a counting pass of their own, because tracing slows every call it sees.
#ifndef VKS_TASK_COUNTS_H
#define VKS_TASK_COUNTS_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace vks_bench {

// A process with every thread it has (tid 0), or one thread of it.
struct Task {
    pid_t pid = 0;
    pid_t tid = 0;
};

// The calling thread.
Task ThisThread();

// Context switches of the task so far, voluntary and not.
uint64_t ContextSwitches(const Task& task);

// Per unit of work: the system calls and the context switches it costs one task.
struct Costs {
    double calls = 0;
    double switches = 0;
};

// Runs a block of n units of work, true when every unit was right.
using Work = std::function<bool(int n)>;

// The system calls one unit of work makes each task do, one strace per task: each counts n units,
// then 2n, and the difference divided by n is what remains (attaching and detaching cost the same
// both times). False, with the reason on stderr, when strace is missing or cannot attach, or the
// work failed.
bool CallsPerUnit(const std::vector<Task>& tasks, const Work& work, int n, std::vector<double>* calls);

}  // namespace vks_bench

#endif
