#include "log_text.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

namespace {

const char kUnformattable[] = "[unformattable log line]";
const char kCut[] = "...[cut]";

void SetFixed(LogText* out, const char* text) {
    snprintf(out->inlineBuf, sizeof(out->inlineBuf), "%s", text);
    out->text = out->inlineBuf;
    out->length = strlen(out->inlineBuf);
}

}  // namespace

void LogTextFormatV(LogText* out, const char* fmt, va_list ap) {
    va_list again;
    va_copy(again, ap);
    int n = vsnprintf(out->inlineBuf, sizeof(out->inlineBuf), fmt != nullptr ? fmt : "", ap);
    out->text = out->inlineBuf;
    if (n < 0) {
        SetFixed(out, kUnformattable);
    } else if (static_cast<size_t>(n) < sizeof(out->inlineBuf)) {
        out->length = static_cast<size_t>(n);
    } else {
        auto* heap = static_cast<char*>(malloc(static_cast<size_t>(n) + 1));
        if (heap != nullptr) {
            vsnprintf(heap, static_cast<size_t>(n) + 1, fmt, again);
            out->text = heap;
            out->length = static_cast<size_t>(n);
        } else {
            out->length = sizeof(out->inlineBuf) - 1;
            memcpy(out->inlineBuf + out->length - (sizeof(kCut) - 1), kCut, sizeof(kCut) - 1);
        }
    }
    va_end(again);
}

void LogTextFormat(LogText* out, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    LogTextFormatV(out, fmt, ap);
    va_end(ap);
}

void LogTextRelease(LogText* text) {
    if (text->text != text->inlineBuf) {
        free(text->text);
    }
    text->text = text->inlineBuf;
    text->inlineBuf[0] = '\0';
    text->length = 0;
}

void LogTimestamp(char* buf, size_t size) {
    struct timeval now;
    gettimeofday(&now, nullptr);
    struct tm local;
    localtime_r(&now.tv_sec, &local);
    char date[32];
    strftime(date, sizeof(date), "%Y-%m-%d %H:%M:%S", &local);
    snprintf(buf, size, "%s.%03ld", date, static_cast<long>(now.tv_usec / 1000));
}
