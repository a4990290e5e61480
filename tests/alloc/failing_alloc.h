// Allocation-failure sweep: an interposed malloc family that can fail the N-th allocation made by
// one thread, and a driver that runs a call chain once per allocation it makes, failing each in turn.
#ifndef VKS_FAILING_ALLOC_H
#define VKS_FAILING_ALLOC_H

#include <functional>

namespace alloc_sweep {

// Runs chain() once to count the allocations it makes on this thread, then again with allocation
// 1, 2, ... failing until a run completes without reaching the failing one. After every run the
// blocks the chain allocated must all be freed and no more descriptors be open than after the first
// run plus keptDescriptors (connections a run may open and keep for the next; gtest failures name the
// step); the first run must return 0 and every
// failing run 0 (a tolerated failure) or a code for which allowed() is true. Returns the number of injected
// failures.
long Sweep(const char* name, const std::function<int()>& chain, const std::function<bool(int)>& allowed,
           int keptDescriptors = 0);

}  // namespace alloc_sweep

#endif
