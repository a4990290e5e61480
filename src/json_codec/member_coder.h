// MemberCoder: one binding of a record member to a JSON key and value format. Built where a
// record's list is used and passed by value; it holds nothing but the member, the key and the
// format (an element array also names its count member, the only thing that bounds it).
#ifndef MEMBER_CODER_H
#define MEMBER_CODER_H

#include <stdint.h>

#include <type_traits>

#include "json_codec_types.h"
#include "member_kind.h"

template <typename R, typename M, typename Alloc, typename Dealloc, typename Enable = void>
class MemberCoder {
public:
    MemberCoder(M R::*member, const char* key, JSON_FORMAT_TYPE_E format = JSON_FORMAT_DEFAULT)
        : m_member(member), m_key(key), m_format(format) {}

    // Adds the member under its key; -1 only when a nested record cannot be encoded.
    int encode(const R& record, json_object* object) const {
        const M& value = record.*m_member;
        if (m_format != JSON_FORMAT_DEFAULT) {
            cJSON_AddItemToObject(object, m_key,
                                  json_codec_detail::FormattedValue(&value, sizeof(M), m_format));
            return 0;
        }
        return json_codec_detail::MemberKind<M>::encode(value, object, m_key);
    }

    // Merges the key's value into the member: 0 (also for an absent key or JSON null, which leave
    // the member as it was), or -1 for a rejected value.
    int decode(json_object* object, void* /*ctx*/, R& record) const {
        using Kind = json_codec_detail::MemberKind<M>;
        json_object* value = cJSON_GetObjectItem(object, m_key);
        if (value == nullptr) {
            return 0;
        }
        uint64_t bits = 0;
        if (json_codec_detail::ScalarBits(value, m_format, Kind::kWidthBits, &bits) != 0) {
            return -1;
        }
        Kind::store(record.*m_member, bits);
        return 0;
    }

private:
    M R::*m_member;
    const char* m_key;
    JSON_FORMAT_TYPE_E m_format;
};

// A fixed-capacity array of element records with its unsigned 64-bit count: count 0 leaves the key
// out, a count beyond capacity fails the record, otherwise one element object per valid element.
template <typename R, typename E, size_t N, typename Alloc, typename Dealloc>
class MemberCoder<R, E[N], Alloc, Dealloc, std::enable_if_t<std::is_class<E>::value>> {
public:
    MemberCoder(E (R::*member)[N], const char* key, uint64_t R::*count,
                JSON_FORMAT_TYPE_E format = JSON_FORMAT_DEFAULT)
        : m_member(member), m_key(key), m_count(count), m_format(format) {}

    int encode(const R& record, json_object* object) const {
        const E(&elements)[N] = record.*m_member;
        if (m_format != JSON_FORMAT_DEFAULT) {
            cJSON_AddItemToObject(object, m_key,
                                  json_codec_detail::FormattedValue(&elements, sizeof(elements), m_format));
            return 0;
        }
        uint64_t count = record.*m_count;
        if (count == 0) {
            return 0;
        }
        if (count > N) {
            return -1;
        }
        cJSON_AddItemToObject(object, m_key, ElementArray(elements, count));
        return 0;
    }

private:
    // The array, or null when it or one of its elements cannot be made (nothing partial is kept).
    static json_object* ElementArray(const E (&elements)[N], uint64_t count) {
        json_object* array = cJSON_CreateArray();
        for (uint64_t i = 0; array != nullptr && i < count; ++i) {
            json_object* element = jsonEncoder<E>::encode_nulldata(elements[i], nullptr);
            if (element == nullptr) {
                cJSON_Delete(array);
                array = nullptr;
            } else {
                cJSON_AddItemToArray(array, element);
            }
        }
        return array;
    }

    E (R::*m_member)[N];
    const char* m_key;
    uint64_t R::*m_count;
    JSON_FORMAT_TYPE_E m_format;
};

// Bindings with their record and member types deduced from the member pointer.
template <typename Alloc, typename Dealloc, typename R, typename M>
MemberCoder<R, M, Alloc, Dealloc> json_member(M R::*member, const char* key,
                                              JSON_FORMAT_TYPE_E format = JSON_FORMAT_DEFAULT) {
    return MemberCoder<R, M, Alloc, Dealloc>(member, key, format);
}

template <typename Alloc, typename Dealloc, typename R, typename E, size_t N>
MemberCoder<R, E[N], Alloc, Dealloc> json_array_member(E (R::*member)[N], const char* key,
                                                       uint64_t R::*count) {
    return MemberCoder<R, E[N], Alloc, Dealloc>(member, key, count);
}

#endif
