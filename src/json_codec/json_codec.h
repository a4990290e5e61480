// The member-coder codec: records to JSON trees and texts, JSON objects merged into records. Every
// operation is a compile-time recursion over the record's binding list (record_bindings.h); the
// codec keeps no state and writes no log, its callers report its failures.
#ifndef JSON_CODEC_H
#define JSON_CODEC_H

#include <stdlib.h>
#include <string.h>

#include <safe_mem_lib.h>
#include <safe_str_lib.h>

#include "cjson.h"
#include "json_codec_types.h"
#include "member_coder.h"

// Encodes the first binding, then the others in list order; 0, or -1 at the first binding that
// fails (the caller then drops the whole tree).
template <typename T, typename First>
int json_encode_member(const T& record, json_object* object, const First& first) {
    return first.encode(record, object);
}

template <typename T, typename First, typename Second, typename... Rest>
int json_encode_member(const T& record, json_object* object, const First& first, Second second,
                       Rest... rest) {
    if (first.encode(record, object) != 0) {
        return -1;
    }
    return json_encode_member(record, object, second, rest...);
}

// A new object holding the given bindings of the record; null on failure.
template <typename T, typename... Coders>
json_object* json_encode_obj(const T& record, Coders... coders) {
    json_object* object = cJSON_CreateObject();
    if (object == nullptr) {
        return nullptr;
    }
    if (json_encode_member(record, object, coders...) != 0) {
        cJSON_Delete(object);
        return nullptr;
    }
    return object;
}

// Decodes the first binding, then the others in order, stopping at the first failure: bindings
// before it keep what they wrote. 0 or -1.
template <typename T, typename First>
int json_decode_member(json_object* object, void* ctx, T& record, const First& first) {
    return first.decode(object, ctx, record);
}

template <typename T, typename First, typename Second, typename... Rest>
int json_decode_member(json_object* object, void* ctx, T& record, const First& first, Second second,
                       Rest... rest) {
    if (first.decode(object, ctx, record) != 0) {
        return -1;
    }
    return json_decode_member(object, ctx, record, second, rest...);
}

template <typename T>
struct VKS_CODEC_EXPORT jsonEncoder {
    // A new tree for the record, released by the caller with cJSON_Delete; null on failure.
    static json_object* encode_nulldata(const T& record, void* /*ctx*/) {
        return jsonMembers<T>::template bind<NullAlloc, NullDealloc>(
            [&record](auto... coders) { return json_encode_obj(record, coders...); });
    }
};

template <typename T, typename Alloc, typename Dealloc>
struct VKS_CODEC_EXPORT jsonDecoder {
    // Merges the object into the record; each binding's own format governs, not the argument.
    // A JSON value that is not an object has no keys: every binding finds its key absent.
    static int decode(json_object* object, void* ctx, T& record, Alloc /*alloc*/, Dealloc /*dealloc*/,
                      JSON_FORMAT_TYPE_E /*format*/) {
        if (object == nullptr) {
            return -1;
        }
        return jsonMembers<T>::template bind<Alloc, Dealloc>([object, ctx, &record](auto... coders) {
            return json_decode_member(object, ctx, record, coders...);
        });
    }
};

namespace json_codec_detail {

// The printed text of the tree in a new malloc block; null when it cannot be made.
inline char* PrintedCopy(json_object* tree) {
    const char* printed = cJSON_Print(tree);
    if (printed == nullptr) {
        return nullptr;
    }
    size_t length = strlen(printed);
    char* copy = static_cast<char*>(malloc(length + 1));
    if (copy == nullptr) {
        return nullptr;
    }
    if (memset_s(copy, length + 1, 0, length + 1) != 0 ||
        (length > 0 && strncpy_s(copy, length + 1, printed, length) != 0)) {
        free(copy);
        return nullptr;
    }
    return copy;
}

}  // namespace json_codec_detail

// The record's JSON text in a new malloc block that the caller frees; null on any failure.
template <typename T>
VKS_CODEC_EXPORT char* json_encode(const T& record) {
    json_object* tree = jsonEncoder<T>::encode_nulldata(record, nullptr);
    if (tree == nullptr) {
        return nullptr;
    }
    char* text = json_codec_detail::PrintedCopy(tree);
    cJSON_Delete(tree);  // also releases the printed text
    return text;
}

#endif
