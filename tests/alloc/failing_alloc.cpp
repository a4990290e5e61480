#include "failing_alloc.h"

#include <dirent.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include <gtest/gtest.h>
#include <json-c/json.h>

namespace {

using MallocFn = void* (*)(size_t);
using CallocFn = void* (*)(size_t, size_t);
using ReallocFn = void* (*)(void*, size_t);
using FreeFn = void (*)(void*);

MallocFn g_malloc;
CallocFn g_calloc;
ReallocFn g_realloc;
FreeFn g_free;

// dlsym allocates before the real functions are known: those few blocks come from here, never freed.
alignas(std::max_align_t) unsigned char g_boot[4096];
size_t g_bootUsed;

bool InBoot(const void* p) {
    return p >= static_cast<const void*>(g_boot) && p < static_cast<const void*>(g_boot + sizeof(g_boot));
}

void* BootAlloc(size_t size) {
    size = (size + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
    if (g_bootUsed + size > sizeof(g_boot)) {
        return nullptr;
    }
    void* p = g_boot + g_bootUsed;
    g_bootUsed += size;
    return p;
}

void Resolve() {
    static bool resolving = false;  // before main: one thread, and thread-locals may not work yet
    if (g_free != nullptr || resolving) {
        return;
    }
    resolving = true;
    g_malloc = reinterpret_cast<MallocFn>(dlsym(RTLD_NEXT, "malloc"));
    g_calloc = reinterpret_cast<CallocFn>(dlsym(RTLD_NEXT, "calloc"));
    g_realloc = reinterpret_cast<ReallocFn>(dlsym(RTLD_NEXT, "realloc"));
    g_free = reinterpret_cast<FreeFn>(dlsym(RTLD_NEXT, "free"));
    resolving = false;
}

// The armed thread's counters and the blocks it allocated while armed (open addressing; the table
// itself never allocates, so the hooks cannot recurse).
constexpr size_t kSlots = 1 << 16;
void* g_live[kSlots];
bool g_trace;  // VKS_ALLOC_TRACE set: the stack of every failed allocation goes to stderr
// The sanitizer runtime allocates before thread-local storage works: thread-locals are read only
// once this unit's static initialisation has run.
bool g_tlsReady;
thread_local bool t_armed;
thread_local long t_count;
thread_local long t_failAt;
thread_local bool t_injected;
long g_liveCount;

size_t SlotOf(const void* p) {
    return (reinterpret_cast<uintptr_t>(p) >> 4) & (kSlots - 1);
}

void Track(void* p) {
    if (p == nullptr) {
        return;
    }
    for (size_t i = SlotOf(p);; i = (i + 1) & (kSlots - 1)) {
        if (g_live[i] == nullptr || g_live[i] == reinterpret_cast<void*>(1)) {
            g_live[i] = p;
            ++g_liveCount;
            return;
        }
    }
}

void Untrack(void* p) {
    if (p == nullptr) {
        return;
    }
    for (size_t i = SlotOf(p); g_live[i] != nullptr; i = (i + 1) & (kSlots - 1)) {
        if (g_live[i] == p) {
            g_live[i] = reinterpret_cast<void*>(1);  // tombstone keeps later probes reachable
            --g_liveCount;
            return;
        }
    }
}

thread_local bool t_exempt;
const bool g_tlsReadySet = (g_tlsReady = true);

bool Armed() {
    return g_tlsReady && t_armed;
}

// Calls the next definition of name with no allocation failed while it runs.
template <typename Fn, typename... Args>
auto Exempt(const char* name, Args... args) {
    static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
    t_exempt = true;
    auto result = real(args...);
    t_exempt = false;
    return result;
}

// True when this allocation is the one to fail.
bool FailNow() {
    if (!Armed() || t_exempt) {
        return false;
    }
    if (++t_count == t_failAt) {
        t_injected = true;
        if (g_trace) {  // where the failing allocation is made: the stack, without allocating
            void* frames[32];
            backtrace_symbols_fd(frames, backtrace(frames, 32), STDERR_FILENO);
        }
        return true;
    }
    return false;
}

int OpenDescriptors() {
    DIR* dir = opendir("/proc/self/fd");
    int count = 0;
    while (dir != nullptr && readdir(dir) != nullptr) {
        ++count;
    }
    if (dir != nullptr) {
        closedir(dir);
    }
    return count;
}

constexpr int kEscaped = 0x7fff;

struct Run {
    int result;
    long allocations;
    bool injected;
    long live;
    int descriptorsAfter;
};

Run Once(const std::function<int()>& chain, long failAt) {
    Run run{};
    memset(g_live, 0, sizeof(g_live));
    g_liveCount = 0;
    t_count = 0;
    t_failAt = failAt;
    t_injected = false;
    t_armed = true;
    try {
        run.result = chain();
    } catch (const std::bad_alloc&) {  // escaped the chain: no result code at all
        run.result = kEscaped;
    }
    t_armed = false;
    run.allocations = t_count;
    run.injected = t_injected;
    run.live = g_liveCount;
    run.descriptorsAfter = OpenDescriptors();
    return run;
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
    Resolve();
    if (g_malloc == nullptr) {
        return BootAlloc(size);
    }
    if (FailNow()) {
        return nullptr;
    }
    void* p = g_malloc(size);
    if (Armed()) {
        Track(p);
    }
    return p;
}

void* calloc(size_t count, size_t size) {
    Resolve();
    if (g_calloc == nullptr) {
        void* p = BootAlloc(count * size);
        return p != nullptr ? memset(p, 0, count * size) : nullptr;
    }
    if (FailNow()) {
        return nullptr;
    }
    void* p = g_calloc(count, size);
    if (Armed()) {
        Track(p);
    }
    return p;
}

void* realloc(void* old, size_t size) {
    Resolve();
    if (InBoot(old) || g_realloc == nullptr) {
        void* p = malloc(size);
        if (p != nullptr && old != nullptr) {
            memcpy(p, old, size);  // boot blocks are tiny and the copy stays inside g_boot
        }
        return p;
    }
    if (FailNow()) {
        return nullptr;
    }
    void* p = g_realloc(old, size);
    if (Armed() && p != nullptr) {
        Untrack(old);
        Track(p);
    }
    return p;
}

// Allocations inside json-c's tokenizer and member insertion are never failed: json-c mishandles its own
// failures there, which is its defect and not ours. Its tokenizer crashes on a field name it cannot copy and
// drops (and leaks) a member it cannot insert while the parse still succeeds; inserting a member
// leaks the key's copy when the table cannot grow. Everything else json-c allocates (objects, the
// tokenizer, print buffers) is failed in turn like any other allocation.
json_object* json_tokener_parse_ex(json_tokener* tok, const char* str, int len) {
    return Exempt<json_object* (*)(json_tokener*, const char*, int)>("json_tokener_parse_ex", tok, str, len);
}

int json_object_object_add(json_object* obj, const char* key, json_object* val) {
    return Exempt<int (*)(json_object*, const char*, json_object*)>("json_object_object_add", obj, key, val);
}

int json_object_object_add_ex(json_object* obj, const char* key, json_object* val, unsigned opts) {
    return Exempt<int (*)(json_object*, const char*, json_object*, unsigned)>("json_object_object_add_ex",
                                                                              obj, key, val, opts);
}

void free(void* p) {
    if (p == nullptr || InBoot(p)) {
        return;
    }
    Resolve();
    if (Armed()) {
        Untrack(p);
    }
    g_free(p);
}

}  // extern "C"

namespace alloc_sweep {

long Sweep(const char* name, const std::function<int()>& chain, const std::function<bool(int)>& allowed,
           int keptDescriptors) {
    g_trace = getenv("VKS_ALLOC_TRACE") != nullptr;
    if (g_trace) {
        void* frames[1];
        backtrace(frames, 1);  // loads the unwinder now: it allocates on first use
    }
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);  // libc keeps the time zone it loads on first use
    Once(chain, 0);             // warm-up: first-use caches of the libraries are not the chain's leaks
    const int descriptors = OpenDescriptors() + keptDescriptors;
    long injected = 0;
    for (long n = 0; n < 100000; ++n) {
        Run run = Once(chain, n);
        std::string step =
            std::string(name) + ": " +
            (n == 0 ? std::string("no failure") : "allocation " + std::to_string(n) + " failed");
        if (n > 0 && !run.injected) {
            EXPECT_EQ(0, run.result) << name << ": a run past the last allocation fails";
            break;
        }
        injected += n > 0 ? 1 : 0;
        bool ok = (run.result == 0 || (n > 0 && allowed(run.result))) && run.live == 0 &&
                  run.descriptorsAfter <= descriptors && run.allocations > 0;
        if (!ok) {  // one report per chain: the later steps would mostly repeat it
            ADD_FAILURE() << step << " of " << run.allocations << ": result "
                          << (run.result == kEscaped ? "std::bad_alloc thrown" : std::to_string(run.result))
                          << ", " << run.live << " blocks left, " << run.descriptorsAfter - descriptors
                          << " descriptors more than allowed";
            break;
        }
    }
    std::printf("[ alloc    ] %s: %ld injected failures\n", name, injected);
    return injected;
}

}  // namespace alloc_sweep
