// Captures the debug and operation-log lines written through the log library while it is alive.
// One capture at a time per process.
#ifndef VKS_LOG_CAPTURE_H
#define VKS_LOG_CAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "vw_log.h"

namespace vks_test {

struct DebugLine {
    int module;
    int level;
    int debugFlag;
    std::string file;
    int line;
    std::string text;
};

struct OpLogLine {
    int dest;
    int module;
    std::string english;
    std::string chinese;
};

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<DebugLine> Debug() const;
    std::vector<OpLogLine> OpLog() const;
    // Debug lines whose text equals text exactly.
    std::vector<DebugLine> Find(const std::string& text) const;
    bool Has(int level, const std::string& text) const;
    void Clear();

private:
    static void OnDebug(const VW_LOG_LINE_S* line, void* ctx);
    static void OnOpLog(const VW_OPLOG_LINE_S* line, void* ctx);

    mutable std::mutex mutex_;
    std::vector<DebugLine> debug_;
    std::vector<OpLogLine> oplog_;
};

// A pointer as the module's "%p" log lines print it.
std::string PointerText(const void* p);

}  // namespace vks_test

#endif
