// Decoding JSON objects into records: the conversion table, merge semantics and failure order.
#include <math.h>
#include <stddef.h>
#include <string.h>

#include <gtest/gtest.h>

#include <string>

#include "json_codec/record_bindings.h"

namespace {

template <typename T>
int Decode(json_object* tree, T& record) {
    return jsonDecoder<T, NullAlloc, NullDealloc>::decode(tree, nullptr, record, NullAlloc(), NullDealloc(),
                                                          JSON_FORMAT_DEFAULT);
}

// Decodes a body text; the parse itself must succeed.
template <typename T>
int DecodeText(const std::string& text, T& record) {
    json_object* tree = cJSON_Parse(text.c_str());
    EXPECT_NE(tree, nullptr) << text;
    int ret = Decode(tree, record);
    cJSON_Delete(tree);
    return ret;
}

struct ValueCase {
    const char* value;  // JSON text of the value
    int result;
    uint64_t expected;  // member after decoding, as unsigned bits of its width
};

const uint32_t kOld32 = 77;
const uint64_t kOld64 = 0x1122334455667788ULL;

TEST(CodecDecode, ThirtyTwoBitMembersFollowTheConversionTable) {
    const ValueCase cases[] = {
        {"true", 0, 1},
        {"false", 0, 0},
        {"2.9", 0, 2},
        {"-1.5", 0, 0},
        {"5e10", 0, 4294967295u},
        {"1e400", 0, 4294967295u},
        {"NaN", 0, 0},
        {"4294967295.9", 0, 4294967295u},
        {"-1", 0, 4294967295u},
        {"4294967297", 0, 1},
        {"-9223372036854775808", 0, 0},
        {"9223372036854775807", 0, 4294967295u},
        {"9223372036854775808", 0, 4294967295u},  // above INT64_MAX: the getter clamps to INT64_MAX
        {"9223372036854775813", 0, 4294967295u},
        {"18446744073709551615", 0, 4294967295u},
        {"\"1\"", -1, kOld32},
        {"\"24:00\"", -1, kOld32},  // strings only under a time format
        {"[]", -1, kOld32},
        {"[1]", -1, kOld32},
        {"{}", -1, kOld32},
        {"null", 0, kOld32},
    };
    for (const ValueCase& c : cases) {
        _FaceRecPopUpPara record = {101, static_cast<int32_t>(kOld32), 5};
        std::string body = std::string("{\"blackPopUp\": ") + c.value + "}";
        EXPECT_EQ(DecodeText(body, record), c.result) << body;
        EXPECT_EQ(static_cast<uint32_t>(record.blackPopUp), c.expected) << body;
        EXPECT_EQ(record.whitePopUp, 5) << body;
        EXPECT_EQ(record.channelId, 101u) << body;
    }
}

TEST(CodecDecode, UnsignedSixtyFourBitMembersFollowTheConversionTable) {
    const ValueCase cases[] = {
        {"101", 0, 101},
        {"101.0", 0, 101},
        {"-3", 0, 18446744073709551613ULL},
        {"true", 0, 1},
        {"-0.5", 0, 0},
        {"5e10", 0, 50000000000ULL},
        {"1e20", 0, 18446744073709551615ULL},
        {"9223372036854775807", 0, 9223372036854775807ULL},
        {"9223372036854775808", 0, 9223372036854775807ULL},  // the signed getter clamps
        {"18446744073709551615", 0, 9223372036854775807ULL},
        {"\"5\"", -1, kOld64},
        {"[101]", -1, kOld64},
        {"null", 0, kOld64},
    };
    for (const ValueCase& c : cases) {
        HistoryRecordSwitch record = {kOld64, ENABLE_TYPE_ON};
        std::string body = std::string("{\"channelId\": ") + c.value + "}";
        EXPECT_EQ(DecodeText(body, record), c.result) << body;
        EXPECT_EQ(record.channelId, c.expected) << body;
        EXPECT_EQ(record.enableRecord, ENABLE_TYPE_ON) << body;
    }
}

TEST(CodecDecode, NotANumberBuiltInATreeSaturatesToZero) {
    json_object* tree = cJSON_CreateObject();
    cJSON_AddItemToObject(tree, "enableRecord", json_object_new_double(NAN));
    cJSON_AddItemToObject(tree, "channelId", json_object_new_double(-INFINITY));
    HistoryRecordSwitch record = {9, ENABLE_TYPE_ON};
    EXPECT_EQ(Decode(tree, record), 0);
    EXPECT_EQ(record.enableRecord, ENABLE_TYPE_OFF);
    EXPECT_EQ(record.channelId, 0u);
    cJSON_Delete(tree);
}

}  // namespace
