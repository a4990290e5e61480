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
// A callback must not write log lines itself. Once this returns, no callback of the previous sinks
// is still running.
void VW_SetLogSink(VW_LogSinkFn debugSink, VW_OpLogSinkFn opSink, void* ctx);

// ---- Default output for hosts (docs/logging.md) ----
// A debug line goes to stderr when level >= the minimum level and (level >= 3 or its switch value is
// non-zero). The minimum starts at 0, or at the value of the environment variable VW_LOG_LEVEL.
void VW_SetLogLevel(int minLevel);
// Appends every operation-log line (destination, English and Chinese text) to the file at path ("-" is
// stdout); null stops writing. Starts from the environment variable VW_OPLOG_FILE. 0, or -1 with errno
// when the file cannot be opened (the previous destination is then kept).
int VW_SetOpLogFile(const char* path);

#ifdef __cplusplus
}
#endif

#endif
