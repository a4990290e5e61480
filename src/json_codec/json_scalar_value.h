// One JSON value to the bits of an integer member. json-c's getters coerce strings and clamp
// silently, so the value's JSON type is checked before any getter is called.
#ifndef JSON_SCALAR_VALUE_H
#define JSON_SCALAR_VALUE_H

#include <stdint.h>

#include "json_codec_types.h"
#include "json_time_text.h"

namespace json_codec_detail {

// Truncation toward zero into an unsigned member of the given width, saturating: negative values
// and NaN give 0, values beyond the width give its maximum.
inline uint64_t SaturatedUnsigned(double value, unsigned widthBits) {
    const double limit = widthBits == 32 ? 4294967296.0 : 18446744073709551616.0;
    if (!(value > 0.0)) {
        return 0;
    }
    if (value >= limit) {
        return widthBits == 32 ? UINT32_MAX : UINT64_MAX;
    }
    return static_cast<uint64_t>(value);
}

// The two's-complement bits of a JSON integer as json-c's 64-bit signed getter reads it: an integer
// above INT64_MAX arrives clamped to INT64_MAX, and a 32-bit member keeps the low bits of that.
inline uint64_t IntegerBits(json_object* value) {
    return static_cast<uint64_t>(json_object_get_int64(value));
}

// A string is a value only under the two time formats; the 32-bit result is sign-extended.
inline int TimeTextBits(json_object* value, JSON_FORMAT_TYPE_E format, uint64_t* bits) {
    int32_t parsed = 0;
    int ret = -1;
    if (format == JSON_FORMAT_HOUR_MINUTE) {
        ret = ParseHourMinute(value, &parsed);
    } else if (format == JSON_FORMAT_DATE_TIME) {
        ret = ParseDateTime(value, &parsed);
    }
    if (ret == 0) {
        *bits = static_cast<uint64_t>(static_cast<int64_t>(parsed));
    }
    return ret;
}

// 0 with the member's new bits, or -1 for a value of a rejected type or a string that does not
// parse. The caller has already handled an absent key and JSON null.
inline int ScalarBits(json_object* value, JSON_FORMAT_TYPE_E format, unsigned widthBits, uint64_t* bits) {
    switch (json_object_get_type(value)) {
        case json_type_boolean:
            *bits = json_object_get_boolean(value) ? 1 : 0;
            return 0;
        case json_type_double:
            *bits = SaturatedUnsigned(json_object_get_double(value), widthBits);
            return 0;
        case json_type_int:
            *bits = IntegerBits(value);
            return 0;
        case json_type_string:
            return TimeTextBits(value, format, bits);
        default:
            return -1;
    }
}

}  // namespace json_codec_detail

#endif
