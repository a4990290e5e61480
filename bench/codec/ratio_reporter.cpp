#include "ratio_reporter.h"

#include <stdio.h>

namespace {
double Nanoseconds(double value, benchmark::TimeUnit unit) {
    return value * benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
           benchmark::GetTimeUnitMultiplier(unit);
}
}  // namespace

void RatioReporter::ReportRuns(const std::vector<Run>& reports) {
    ConsoleReporter::ReportRuns(reports);
    // With repetitions the median stands for the benchmark; a single run stands for itself.
    for (const Run& run : reports) {
        bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (run.error_occurred || !(median || run.run_type == Run::RT_Iteration)) {
            continue;
        }
        std::string name = run.run_name.str();
        if (median || m_medians.count(name) == 0) {
            m_times[name] = {Nanoseconds(run.GetAdjustedRealTime(), run.time_unit),
                             Nanoseconds(run.GetAdjustedCPUTime(), run.time_unit)};
        }
        if (median) {
            m_medians.insert(name);
        }
    }
}

int RatioReporter::PrintRatios(const std::string& label) const {
    auto codec = m_times.find(label + "/Codec");
    auto baseline = m_times.find(label + "/Baseline");
    if (codec == m_times.end() || baseline == m_times.end() || baseline->second.realNs <= 0.0 ||
        baseline->second.cpuNs <= 0.0) {
        return 0;
    }
    const Times& c = codec->second;
    const Times& b = baseline->second;
    // CPU time: a preemption on the shared machine stretches the real time of whichever side it hits.
    printf("metric %s_codec/baseline %.3f  (cpu; real %.3f; codec %.0f ns, baseline %.0f ns real)\n",
           label.c_str(), c.cpuNs / b.cpuNs, c.realNs / b.realNs, c.realNs, b.realNs);
    return 1;
}
