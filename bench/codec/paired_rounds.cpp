#include "paired_rounds.h"

#include <errno.h>
#include <linux/perf_event.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace {

// A round lasts about this long: reading the clocks is then lost in it, and the two rounds of a
// pair are close enough in time to see the same machine.
const double kRoundNs = 2e6;

double ThreadCpuNs() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// The thread's instructions retired in user space, from the hardware counter when the kernel lends
// one (virtual machines often do not).
class InstructionCounter {
public:
    InstructionCounter() {
        perf_event_attr attr;
        memset(&attr, 0, sizeof(attr));
        attr.type = PERF_TYPE_HARDWARE;
        attr.size = sizeof(attr);
        attr.config = PERF_COUNT_HW_INSTRUCTIONS;
        attr.exclude_kernel = 1;
        attr.exclude_hv = 1;
        m_fd = static_cast<int>(syscall(SYS_perf_event_open, &attr, 0, -1, -1, 0));
        m_error = m_fd < 0 ? errno : 0;
    }
    ~InstructionCounter() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    InstructionCounter(const InstructionCounter&) = delete;
    InstructionCounter& operator=(const InstructionCounter&) = delete;

    bool Available() const { return m_fd >= 0; }
    int Error() const { return m_error; }
    double Read() const {
        uint64_t count = 0;
        return m_fd >= 0 && read(m_fd, &count, sizeof(count)) == sizeof(count) ? static_cast<double>(count)
                                                                               : 0.0;
    }

private:
    int m_fd;
    int m_error;
};

struct Cost {
    double ns;
    double instructions;
};

Cost Round(Call call, long calls, const InstructionCounter& counter) {
    double instructions = counter.Read();
    double start = ThreadCpuNs();
    for (long i = 0; i < calls; ++i) {
        call();
    }
    double ns = ThreadCpuNs() - start;
    return {ns, counter.Read() - instructions};
}

// Calls per round, from the baseline's time; the doubling also warms both sides up.
long CallsPerRound(Call codec, Call baseline, const InstructionCounter& counter) {
    for (long calls = 1;; calls *= 2) {
        Round(codec, calls, counter);
        double ns = Round(baseline, calls, counter).ns;
        if (ns >= kRoundNs / 4 || calls >= (1L << 24)) {
            return std::max(1L, static_cast<long>(static_cast<double>(calls) * kRoundNs / std::max(ns, 1.0)));
        }
    }
}

// The value below which the share q of the sorted values lies.
double Quantile(const std::vector<double>& sorted, double q) {
    size_t at = static_cast<size_t>(q * static_cast<double>(sorted.size() - 1) + 0.5);
    return sorted[at];
}

struct Series {
    std::vector<double> ratios;
    std::vector<double> codec;
    std::vector<double> baseline;

    void Add(double codecCost, double baselineCost) {
        ratios.push_back(baselineCost > 0.0 ? codecCost / baselineCost : 0.0);
        codec.push_back(codecCost);
        baseline.push_back(baselineCost);
    }
    void Sort() {
        for (std::vector<double>* v : {&ratios, &codec, &baseline}) {
            std::sort(v->begin(), v->end());
        }
    }
    void Print(const char* label, const char* what, const char* unit, long calls) const {
        printf(
            "metric %s_%scodec/baseline %.3f floor=%.0f%s  (median of %zu pairs of %ld-call rounds; "
            "quartiles "
            "%.3f %.3f; codec %.0f %s per call)\n",
            label, what, Quantile(ratios, 0.5), Quantile(baseline, 0.5) / static_cast<double>(calls), unit,
            ratios.size(), calls, Quantile(ratios, 0.25), Quantile(ratios, 0.75),
            Quantile(codec, 0.5) / static_cast<double>(calls), unit);
    }
};

}  // namespace

void PrintPairedRatio(const char* label, Call codec, Call baseline, int pairs) {
    InstructionCounter counter;
    const long calls = CallsPerRound(codec, baseline, counter);
    Series time;
    Series instructions;
    for (int pair = 0; pair < std::max(pairs, 1); ++pair) {
        // Swapping the order cancels whatever the first round of a pair leaves to the second.
        Cost first = Round(pair % 2 == 0 ? codec : baseline, calls, counter);
        Cost second = Round(pair % 2 == 0 ? baseline : codec, calls, counter);
        const Cost& c = pair % 2 == 0 ? first : second;
        const Cost& b = pair % 2 == 0 ? second : first;
        time.Add(c.ns, b.ns);
        instructions.Add(c.instructions, b.instructions);
    }
    time.Sort();
    time.Print(label, "", "ns", calls);
    if (counter.Available()) {
        instructions.Sort();
        instructions.Print(label, "instructions_", "instructions", calls);
    } else {
        printf(
            "%s: no instruction counter (perf_event_open: %s); count with valgrind --tool=callgrind and "
            "--calls\n",
            label, strerror(counter.Error()));
    }
}
