#include "log_capture.h"

#include <stdio.h>

namespace vks_test {

LogCapture::LogCapture() {
    VW_SetLogSink(&LogCapture::OnDebug, &LogCapture::OnOpLog, this);
}

LogCapture::~LogCapture() {
    VW_SetLogSink(nullptr, nullptr, nullptr);
}

void LogCapture::OnDebug(const VW_LOG_LINE_S* line, void* ctx) {
    auto* self = static_cast<LogCapture*>(ctx);
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->debug_.push_back(
        {line->module, line->level, line->debugFlag, line->file ? line->file : "", line->line, line->text});
}

void LogCapture::OnOpLog(const VW_OPLOG_LINE_S* line, void* ctx) {
    auto* self = static_cast<LogCapture*>(ctx);
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->oplog_.push_back({line->dest, line->module, line->english, line->chinese});
}

std::vector<DebugLine> LogCapture::Debug() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return debug_;
}

std::vector<OpLogLine> LogCapture::OpLog() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return oplog_;
}

std::vector<DebugLine> LogCapture::Find(const std::string& text) const {
    std::vector<DebugLine> found;
    for (const auto& line : Debug()) {
        if (line.text == text) {
            found.push_back(line);
        }
    }
    return found;
}

bool LogCapture::Has(int level, const std::string& text) const {
    for (const auto& line : Find(text)) {
        if (line.level == level) {
            return true;
        }
    }
    return false;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    debug_.clear();
    oplog_.clear();
}

std::string PointerText(const void* p) {
    char text[32];
    snprintf(text, sizeof(text), "%p", p);
    return text;
}

}  // namespace vks_test
