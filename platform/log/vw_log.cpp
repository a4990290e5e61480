// Host log library: debug lines and the bilingual operation log. Every line goes first to the sinks
// that a host or a test installed, unfiltered, then to the default output (log_output.cpp).
#include "vw_log.h"

#include <stdarg.h>

#include <mutex>
#include <shared_mutex>

#include "log_output.h"
#include "log_text.h"

int g_enDebugFlag = 0;

namespace {

struct LogSinks {
    std::shared_mutex mutex;  // callbacks run under the shared side, replacement under the exclusive side
    VW_LogSinkFn debug = nullptr;
    VW_OpLogSinkFn opLog = nullptr;
    void* ctx = nullptr;
};

// Never destroyed: static destructors of other libraries may still write lines at exit.
LogSinks& Sinks() {
    static LogSinks* sinks = new LogSinks;
    return *sinks;
}

void DeliverDebug(const VW_LOG_LINE_S* line) {
    LogSinks& sinks = Sinks();
    std::shared_lock<std::shared_mutex> lock(sinks.mutex);
    if (sinks.debug != nullptr) {
        sinks.debug(line, sinks.ctx);
    }
}

void DeliverOpLog(const VW_OPLOG_LINE_S* line) {
    LogSinks& sinks = Sinks();
    std::shared_lock<std::shared_mutex> lock(sinks.mutex);
    if (sinks.opLog != nullptr) {
        sinks.opLog(line, sinks.ctx);
    }
}

bool HasDebugSink() {
    LogSinks& sinks = Sinks();
    std::shared_lock<std::shared_mutex> lock(sinks.mutex);
    return sinks.debug != nullptr;
}

bool HasOpLogSink() {
    LogSinks& sinks = Sinks();
    std::shared_lock<std::shared_mutex> lock(sinks.mutex);
    return sinks.opLog != nullptr;
}

}  // namespace

void VW_SetLogSink(VW_LogSinkFn debugSink, VW_OpLogSinkFn opSink, void* ctx) {
    LogSinks& sinks = Sinks();
    std::unique_lock<std::shared_mutex> lock(sinks.mutex);
    sinks.debug = debugSink;
    sinks.opLog = opSink;
    sinks.ctx = ctx;
}

void VW_WriteLog(int module, int level, int debugFlag, int reserved, const char* file, int line, const char* fmt,
                 ...) {
    (void)reserved;
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
