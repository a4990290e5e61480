// Console output of Google Benchmark plus the ratio of each codec run to its baseline run.
#ifndef RATIO_REPORTER_H
#define RATIO_REPORTER_H

#include <benchmark/benchmark.h>

#include <map>
#include <set>
#include <string>

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& reports) override;
    // Prints "metric <label>_codec/baseline" with the ratio of CPU times (real as context) for the pair
    // "<label>/Codec",
    // "<label>/Baseline"; 1 when both ran, else 0.
    int PrintRatios(const std::string& label) const;

private:
    struct Times {
        double realNs;
        double cpuNs;
    };
    std::map<std::string, Times> m_times;
    std::set<std::string> m_medians;
};

#endif
