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

namespace {

bool NeedsEscape(unsigned char c) {
    return c < 0x20 || c == 0x7F || c == '\\';
}

// Writes the escape of c at out (room for 4 bytes); returns its length.
size_t EscapeChar(unsigned char c, char* out) {
    static const char kHex[] = "0123456789abcdef";
    char named = c == '\t' ? 't' : c == '\n' ? 'n' : c == '\r' ? 'r' : c == '\\' ? '\\' : '\0';
    out[0] = '\\';
    if (named != '\0') {
        out[1] = named;
        return 2;
    }
    out[1] = 'x';
    out[2] = kHex[c >> 4];
    out[3] = kHex[c & 0xF];
    return 4;
}

}  // namespace

const char* LogTextEscape(const char* text, LogText* scratch) {
    if (text == nullptr) {
        return "";
    }
    size_t length = 0;
    size_t escaped = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != '\0'; ++p, ++length) {
        escaped += NeedsEscape(*p) ? 4 : 1;
    }
    if (escaped == length) {
        return text;
    }
    char* out = scratch->inlineBuf;
    size_t room = sizeof(scratch->inlineBuf) - 1;
    if (escaped > room) {
        auto* heap = static_cast<char*>(malloc(escaped + 1));
        if (heap != nullptr) {
            out = heap;
            room = escaped;
        } else {
            room -= sizeof(kCut) - 1;
        }
    }
    size_t n = 0;
    char one[4];
    for (size_t i = 0; i < length; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        size_t len = NeedsEscape(c) ? EscapeChar(c, one) : (one[0] = static_cast<char>(c), 1);
        if (n + len > room) {
            memcpy(out + n, kCut, sizeof(kCut) - 1);
            n += sizeof(kCut) - 1;
            break;
        }
        memcpy(out + n, one, len);
        n += len;
    }
    out[n] = '\0';
    scratch->text = out;
    scratch->length = n;
    return out;
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
