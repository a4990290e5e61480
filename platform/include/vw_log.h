// Host log library: debug lines and the bilingual operation log.
#ifndef VW_LOG_H
#define VW_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

// Host debug switch: passed by the host's own code (and "[ZKAPI]:" lines of modules) to VW_WriteLog.
extern int g_enDebugFlag;

// Debug line: module code, level (0 info, 1 trace, 3 error), the caller's debug-switch value, a
// reserved 0, source file, source line, printf format and values.
void VW_WriteLog(int module, int level, int debugFlag, int reserved, const char* file, int line,
                 const char* fmt, ...) __attribute__((format(printf, 7, 8)));

// Operation-log line: destination (2, then 1 for the same line), module code, the English and the
// Chinese format; both formats take the same values.
void VW_WriteLanguageLog(int dest, int module, const char* englishFmt, const char* chineseFmt, ...);

// ---- Sink for hosts and tests: every call is delivered, formatted, before any filtering. ----
typedef struct VW_LOG_LINE_S {
    int module;
    int level;
    int debugFlag;
    const char* file;
    int line;
    const char* text;  // formatted, valid for the duration of the callback
} VW_LOG_LINE_S;

typedef struct VW_OPLOG_LINE_S {
    int dest;
    int module;
    const char* english;  // formatted
    const char* chinese;  // formatted
} VW_OPLOG_LINE_S;

typedef void (*VW_LogSinkFn)(const VW_LOG_LINE_S* line, void* ctx);
typedef void (*VW_OpLogSinkFn)(const VW_OPLOG_LINE_S* line, void* ctx);

// Installs (or, with nulls, removes) the sinks. Thread-safe; callbacks may run on any thread.
void VW_SetLogSink(VW_LogSinkFn debugSink, VW_OpLogSinkFn opSink, void* ctx);

#ifdef __cplusplus
}
#endif

#endif
