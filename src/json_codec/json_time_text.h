// Times of day and dates as JSON text: the conversions behind JSON_FORMAT_HOUR_MINUTE and
// JSON_FORMAT_DATE_TIME. Formatted times use 64-byte stack buffers; parsing copies the JSON string
// once into a malloc block that is freed on every path.
#ifndef JSON_TIME_TEXT_H
#define JSON_TIME_TEXT_H

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <safe_mem_lib.h>
#include <safe_str_lib.h>

#include "cjson.h"

namespace json_codec_detail {

const char kHourMinuteFormat[] = "%H:%M";
const char kDateTimeFormat[] = "%Y-%m-%d %H:%M:%S";
const char kEndOfDayText[] = "24:00";
const int32_t kEndOfDayMinutes = 1440;
const size_t kTimeTextSize = 64;

inline json_object* TimeTextValue(const struct tm& brokenDown, const char* format) {
    char text[kTimeTextSize] = {0};
    strftime(text, sizeof(text), format, &brokenDown);
    return cJSON_CreateString(text);
}

// "%H:%M" of a count of minutes; 1440 prints as "24:00". Null when the time cannot be cleared.
inline json_object* HourMinuteValue(uint16_t minutes) {
    struct tm brokenDown;
    if (memset_s(&brokenDown, sizeof(brokenDown), 0, sizeof(brokenDown)) != 0) {
        return nullptr;
    }
    brokenDown.tm_hour = minutes / 60;
    brokenDown.tm_min = minutes % 60;
    return TimeTextValue(brokenDown, kHourMinuteFormat);
}

// Local time of epoch seconds; null when localtime_r rejects them.
inline json_object* DateTimeValue(int32_t seconds) {
    time_t when = seconds;
    struct tm brokenDown;
    if (localtime_r(&when, &brokenDown) == nullptr) {
        return nullptr;
    }
    return TimeTextValue(brokenDown, kDateTimeFormat);
}

// A NUL-terminated malloc copy of a JSON string, and its length; null when it cannot be made.
inline char* CopyJsonText(json_object* value, size_t* length) {
    int textLength = json_object_get_string_len(value);
    const char* source = json_object_get_string(value);
    if (textLength < 0 || source == nullptr) {
        return nullptr;
    }
    size_t size = static_cast<size_t>(textLength) + 1;
    char* copy = static_cast<char*>(malloc(size));
    if (copy == nullptr) {
        return nullptr;
    }
    if (textLength > 0 && strncpy_s(copy, size, source, static_cast<size_t>(textLength)) != 0) {
        free(copy);
        return nullptr;
    }
    copy[textLength] = '\0';
    *length = static_cast<size_t>(textLength);
    return copy;
}

// strptime over the whole text: a stray character anywhere (or an embedded NUL) rejects it.
inline bool ParsesWhole(const char* text, size_t length, const char* format, struct tm* brokenDown) {
    const char* end = strptime(text, format, brokenDown);
    return end != nullptr && end == text + length;
}

// Runs parse(text, length, brokenDown) over a NUL-terminated copy of the JSON string and a cleared
// broken-down time; the copy is freed on every path. -1 when the copy or the clearing fails.
template <typename Parse>
int WithTimeText(json_object* value, Parse parse) {
    size_t length = 0;
    char* text = CopyJsonText(value, &length);
    if (text == nullptr) {
        return -1;
    }
    int ret = -1;
    struct tm brokenDown;
    if (memset_s(&brokenDown, sizeof(brokenDown), 0, sizeof(brokenDown)) == 0) {
        ret = parse(text, length, &brokenDown);
    }
    free(text);
    return ret;
}

// Minutes of the day from "%H:%M" or the exact "24:00"; 0, or -1 when the text does not parse.
inline int ParseHourMinute(json_object* value, int32_t* minutes) {
    return WithTimeText(value, [minutes](const char* text, size_t length, struct tm* brokenDown) {
        if (strcmp(text, kEndOfDayText) == 0) {
            *minutes = kEndOfDayMinutes;
            return 0;
        }
        if (!ParsesWhole(text, length, kHourMinuteFormat, brokenDown)) {
            return -1;
        }
        *minutes = brokenDown->tm_hour * 60 + brokenDown->tm_min;
        return 0;
    });
}

// Epoch seconds of "%Y-%m-%d %H:%M:%S" read as local standard time (the cleared time keeps
// tm_isdst 0); 0, or -1 when the text does not parse, mktime rejects it, or the count does not fit
// 32 signed bits (1901-12-13 20:45:52 to 2038-01-19 03:14:07 UTC). The range check makes a 64-bit
// time_t reject what a 32-bit one does, instead of wrapping a date after 2038 into 1901.
inline int ParseDateTime(json_object* value, int32_t* seconds) {
    return WithTimeText(value, [seconds](const char* text, size_t length, struct tm* brokenDown) {
        if (!ParsesWhole(text, length, kDateTimeFormat, brokenDown)) {
            return -1;
        }
        const int64_t when = mktime(brokenDown);
        if (when == -1 || when != static_cast<int32_t>(when)) {
            return -1;
        }
        *seconds = static_cast<int32_t>(when);
        return 0;
    });
}

}  // namespace json_codec_detail

#endif
