// Host log library: debug lines and the bilingual operation log. Every line goes first to the sinks
// that a host or a test installed, unfiltered, then to the default output (log_output.cpp).
#include "vw_log.h"

#include <errno.h>
#include <stdarg.h>

#include "guarded_hooks.h"
#include "log_output.h"
#include "log_text.h"

int g_enDebugFlag = 0;

namespace {

struct LogSinks {
    VW_LogSinkFn debug;
    VW_OpLogSinkFn opLog;
    void* ctx;
};

using Sinks = GuardedHooks<LogSinks>;

void DeliverDebug(const VW_LOG_LINE_S* line) {
    Sinks::Instance().With([line](const LogSinks& sinks) {
        if (sinks.debug != nullptr) {
            sinks.debug(line, sinks.ctx);
        }
    });
}

void DeliverOpLog(const VW_OPLOG_LINE_S* line) {
    Sinks::Instance().With([line](const LogSinks& sinks) {
        if (sinks.opLog != nullptr) {
            sinks.opLog(line, sinks.ctx);
        }
    });
}

bool HasDebugSink() {
    return Sinks::Instance().With([](const LogSinks& sinks) { return sinks.debug != nullptr; });
}

bool HasOpLogSink() {
    return Sinks::Instance().With([](const LogSinks& sinks) { return sinks.opLog != nullptr; });
}

// Logging never disturbs the caller's errno: the time stamp alone may set it (the C library
// looks for a time-zone file that a small system may not have).
class KeepErrno {
public:
    KeepErrno() : saved_(errno) {}
    ~KeepErrno() { errno = saved_; }
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;

private:
    int saved_;
};

}  // namespace

void VW_SetLogSink(VW_LogSinkFn debugSink, VW_OpLogSinkFn opSink, void* ctx) {
    Sinks::Instance().Set(LogSinks{debugSink, opSink, ctx});
}

void VW_WriteLog(int module, int level, int debugFlag, int reserved, const char* file, int line,
                 const char* fmt, ...) {
    (void)reserved;
    KeepErrno keep;
    const bool toStderr = LogOutputWantsDebug(level, debugFlag);
    if (!toStderr && !HasDebugSink()) {
        return;  // nobody reads it: skip the formatting
    }
    LogText text;
    va_list ap;
    va_start(ap, fmt);
    LogTextFormatV(&text, fmt, ap);
    va_end(ap);
    VW_LOG_LINE_S record = {module, level, debugFlag, file, line, text.text};
    DeliverDebug(&record);
    if (toStderr) {
        LogOutputDebug(&record);
    }
    LogTextRelease(&text);
}

void VW_WriteLanguageLog(int dest, int module, const char* englishFmt, const char* chineseFmt, ...) {
    KeepErrno keep;
    const bool toFile = LogOutputWantsOpLog();
    if (!toFile && !HasOpLogSink()) {
        return;
    }
    // Both formats consume the same values, so the second one walks a copy of the list.
    LogText english;
    LogText chinese;
    va_list ap;
    va_start(ap, chineseFmt);
    va_list again;
    va_copy(again, ap);
    LogTextFormatV(&english, englishFmt, ap);
    LogTextFormatV(&chinese, chineseFmt, again);
    va_end(again);
    va_end(ap);
    VW_OPLOG_LINE_S record = {dest, module, english.text, chinese.text};
    DeliverOpLog(&record);
    if (toFile) {
        LogOutputOpLog(&record);
    }
    LogTextRelease(&english);
    LogTextRelease(&chinese);
}
