// The result file of a history query: the JSON text that the web client receives as the body.
#ifndef CMDCHAN_RESULT_FILE_H
#define CMDCHAN_RESULT_FILE_H

#include <string>
#include <vector>

#include "history_store.h"

namespace cmdchan {

// {"TotalNum": n, "StartIndex": i, "ReturnNum": k, "Records": [ {...}, ... ]}
std::string HistoryResultJson(long long total, uint32_t startIndex, const std::vector<HistoryRow>& rows);

// A result file name nobody can guess: "history-<32 random hex digits>.json"; empty when the system
// gives no randomness.
std::string ResultName();

// Writes text to a new file in the folder open as dirFd (named dir), mode 0600, never through a link
// and never over a file that is there; its path in *path. False with *error when it cannot be
// written whole (nothing is left behind then).
bool WriteResultFile(int dirFd, const std::string& dir, const std::string& text, std::string* path,
                     std::string* error);

}  // namespace cmdchan

#endif
