// Default output of the log library: debug lines to stderr (filtered), operation-log lines to a file.
#ifndef VKS_LOG_OUTPUT_H
#define VKS_LOG_OUTPUT_H

#include "vw_log.h"

// Whether a debug line with this level and switch value is written to stderr.
bool LogOutputWantsDebug(int level, int debugFlag);
// Whether operation-log lines currently have a destination.
bool LogOutputWantsOpLog();

// Write one line each, as a single write so that lines of concurrent threads never interleave.
void LogOutputDebug(const VW_LOG_LINE_S* line);
void LogOutputOpLog(const VW_OPLOG_LINE_S* line);

#endif
