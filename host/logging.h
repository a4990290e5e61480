// Where the server's log lines go, through the log library's default output: debug lines to stderr
// from a chosen level up, operation-log lines (both languages) to a file or stdout.
#ifndef VKS_HOST_LOGGING_H
#define VKS_HOST_LOGGING_H

#include <string>

#include "module_table.h"

namespace vks_host {

// Level filter and operation-log file ("" keeps the library's default, "-" stdout). 0, or -1 with the reason
// in *err.
int ConfigureLogging(int debugLevel, const std::string& oplogPath, std::string* err);

// Trace lines (below level 3) are written only while their debug switch is on: below level 3 the
// host's switch and the module's own are turned on so that the chosen level shows.
void ApplyDebugSwitches(const ModuleTable& module, int debugLevel);

}  // namespace vks_host

#endif
