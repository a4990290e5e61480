// How each kind of member is written under JSON_FORMAT_DEFAULT, and how the integer kinds are read.
// A member type without a kind here does not compile into a binding.
#ifndef MEMBER_KIND_H
#define MEMBER_KIND_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <type_traits>

#include "json_codec_types.h"
#include "json_scalar_value.h"

namespace json_codec_detail {

template <typename M, typename Enable = void>
struct MemberKind;

template <typename M>
using EnableIf32Bit =
    std::enable_if_t<(std::is_integral<M>::value || std::is_enum<M>::value) && sizeof(M) == 4>;

// 32-bit integers and on/off enumerations: a signed JSON number; decoded at 32-bit width.
template <typename M>
struct MemberKind<M, EnableIf32Bit<M>> {
    static constexpr unsigned kWidthBits = 32;
    static int encode(const M& value, json_object* object, const char* key) {
        cJSON_AddItemToObject(object, key, cJSON_CreateNumber(static_cast<int>(value)));
        return 0;
    }
    static void store(M& member, uint64_t bits) {
        member = static_cast<M>(static_cast<int32_t>(static_cast<uint32_t>(bits)));
    }
};

// Unsigned 64-bit counts and channel ids: printed whole; decoded at 64-bit width.
template <typename M>
struct MemberKind<
    M, std::enable_if_t<std::is_integral<M>::value && std::is_unsigned<M>::value && sizeof(M) == 8>> {
    static constexpr unsigned kWidthBits = 64;
    static int encode(const M& value, json_object* object, const char* key) {
        cJSON_AddItemToObject(object, key, cJSON_CreateNumber(static_cast<unsigned long long>(value)));
        return 0;
    }
    static void store(M& member, uint64_t bits) { member = static_cast<M>(bits); }
};

// Signed 64-bit status codes: written only.
template <typename M>
struct MemberKind<
    M, std::enable_if_t<std::is_integral<M>::value && std::is_signed<M>::value && sizeof(M) == 8>> {
    static int encode(const M& value, json_object* object, const char* key) {
        cJSON_AddItemToObject(object, key, cJSON_CreateNumber(static_cast<long long>(value)));
        return 0;
    }
};

// Fixed-length text: the characters up to the NUL, or all of them when the array has none.
template <size_t N>
struct MemberKind<char[N]> {
    static int encode(const char (&text)[N], json_object* object, const char* key) {
        if (memchr(text, '\0', N) != nullptr) {
            cJSON_AddItemToObject(object, key, cJSON_CreateString(text));
            return 0;
        }
        char terminated[N + 1];
        memcpy(terminated, text, N);
        terminated[N] = '\0';
        cJSON_AddItemToObject(object, key, cJSON_CreateString(terminated));
        return 0;
    }
};

// A nested record: an object built from its own list. Its failure (an array beyond capacity) fails
// the enclosing record.
template <typename M>
struct MemberKind<M, std::enable_if_t<std::is_class<M>::value>> {
    static int encode(const M& value, json_object* object, const char* key) {
        json_object* nested = jsonEncoder<M>::encode_nulldata(value, nullptr);
        if (nested == nullptr) {
            return -1;
        }
        cJSON_AddItemToObject(object, key, nested);
        return 0;
    }
};

// Members under a time or boolean format are read from their first bytes in memory, whatever their
// kind; a value that cannot be made is added as a null item.
inline json_object* FormattedValue(const void* member, size_t size, JSON_FORMAT_TYPE_E format) {
    if (format == JSON_FORMAT_BOOL && size >= 1) {
        return json_object_new_boolean(*static_cast<const unsigned char*>(member) != 0);
    }
    if (format == JSON_FORMAT_HOUR_MINUTE && size >= sizeof(uint16_t)) {
        uint16_t minutes = 0;
        memcpy(&minutes, member, sizeof(minutes));
        return HourMinuteValue(minutes);
    }
    if (format == JSON_FORMAT_DATE_TIME && size >= sizeof(int32_t)) {
        int32_t seconds = 0;
        memcpy(&seconds, member, sizeof(seconds));
        return DateTimeValue(seconds);
    }
    return nullptr;
}

}  // namespace json_codec_detail

#endif
