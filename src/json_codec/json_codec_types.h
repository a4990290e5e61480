// Vocabulary of the member-coder codec: value formats, allocation policies and the three templates
// that a record's binding list drives.
#ifndef JSON_CODEC_TYPES_H
#define JSON_CODEC_TYPES_H

// The module exports the codec's instances for its records (weak), like its other template
// instances; the helpers behind them stay hidden.
#define VKS_CODEC_EXPORT __attribute__((visibility("default")))

// The JSON form of one member's value.
enum JSON_FORMAT_TYPE_E {
    JSON_FORMAT_DEFAULT = 0,      // by member kind: number, text, nested object or array
    JSON_FORMAT_BOOL = 1,         // JSON boolean from the member's first byte
    JSON_FORMAT_HOUR_MINUTE = 2,  // "%H:%M" from minutes of the day (first two bytes)
    JSON_FORMAT_DATE_TIME = 3     // "%Y-%m-%d %H:%M:%S" local time from epoch seconds (first four bytes)
};

// Allocation policies handed to decoding. No record in the system needs one: decoding writes into
// fixed-layout members only.
struct VKS_CODEC_EXPORT NullAlloc {
    void* operator()(unsigned long /*size*/, void* /*ctx*/) const { return nullptr; }
};
struct VKS_CODEC_EXPORT NullDealloc {
    void operator()(void* /*block*/, void* /*ctx*/) const {}
};

// The one declaration per record: specialise with a static template `bind<Alloc, Dealloc>(f)` that
// calls f with the record's MemberCoder bindings in JSON key order (record_bindings.h).
template <typename T>
struct jsonMembers;

// Record to JSON tree: static json_object* encode_nulldata(const T&, void* ctx).
template <typename T>
struct VKS_CODEC_EXPORT jsonEncoder;

// JSON object merged into a record: static int decode(json_object*, void* ctx, T&, Alloc, Dealloc,
// JSON_FORMAT_TYPE_E).
template <typename T, typename Alloc = NullAlloc, typename Dealloc = NullDealloc>
struct VKS_CODEC_EXPORT jsonDecoder;

#endif
