// Formatted log text of any length: short lines stay on the stack, long ones move to the heap so
// that nothing is cut silently.
#ifndef VKS_LOG_TEXT_H
#define VKS_LOG_TEXT_H

#include <stdarg.h>
#include <stddef.h>

#define LOG_TEXT_INLINE_LEN 512

typedef struct LogText {
    char inlineBuf[LOG_TEXT_INLINE_LEN];
    char* text;     // inlineBuf or a malloc block; always NUL-terminated after formatting
    size_t length;  // strlen(text)
} LogText;

// Formats into out. Never fails: a format error gives a fixed marker text, and a line that cannot be
// moved to the heap keeps its first bytes followed by an explicit "[cut]" marker.
void LogTextFormatV(LogText* out, const char* fmt, va_list ap);
void LogTextFormat(LogText* out, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void LogTextRelease(LogText* text);

// The text with its control characters and backslashes escaped ("\t", "\n", "\r", "\\", "\xHH"),
// so that it cannot end a field or a line of a file. Returns text itself when nothing needs escaping,
// else scratch's text (release scratch afterwards). Like formatting, it never fails: without memory
// for a long text, the escaped start is kept and ends in the "[cut]" marker.
const char* LogTextEscape(const char* text, LogText* scratch);

// "YYYY-MM-DD HH:MM:SS.mmm", local time.
void LogTimestamp(char* buf, size_t size);

#endif
