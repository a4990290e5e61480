// The result file of a history query: the JSON text that the web client receives as the body.
#ifndef CMDCHAN_RESULT_FILE_H
#define CMDCHAN_RESULT_FILE_H

#include <string>
#include <vector>

#include "history_store.h"

namespace cmdchan {

// {"TotalNum": n, "StartIndex": i, "ReturnNum": k, "Records": [ {...}, ... ]}
std::string HistoryResultJson(long long total, uint32_t startIndex, const std::vector<HistoryRow>& rows);

// The path of the serial-th result file of this process in dir.
std::string ResultPath(const std::string& dir, unsigned long serial);

// Writes text to path (created or replaced); false with *error when it cannot be written whole.
bool WriteResultFile(const std::string& path, const std::string& text, std::string* error);

}  // namespace cmdchan

#endif
