// Encoding records to JSON text: golden texts for every bound record, element arrays, nested records
// and the ownership of the returned text.
#include <stdlib.h>
#include <string.h>

#include <gtest/gtest.h>

#include <string>

#include "json_codec/record_bindings.h"

namespace {

template <typename T>
std::string Encoded(const T& record) {
    char* text = json_encode(record);
    std::string result = text == nullptr ? "<null>" : text;
    free(text);
    return result;
}

_VW_TaskEnable_S Task(uint64_t channelId, int32_t first) {
    return _VW_TaskEnable_S{channelId, first, 0, 0, 1, 0, 0, -1};
}

std::string TaskText(uint64_t channelId, int32_t first) {
    return "{\"channelId\": " + std::to_string(channelId) + ", \"faceDetection\": " + std::to_string(first) +
           ", \"faceAttribute\": 0, \"humanAttribute\": 0, \"faceRecognition\": 1, \"vhdDetection\": 0,"
           " \"nmvAttribute\": 0, \"vehAttribute\": -1}";
}

_VW_TasksEnableList_S TaskList(uint64_t count) {
    _VW_TasksEnableList_S list;
    memset(&list, 0xA5, sizeof(list));  // reserved bytes and unused elements must never show
    list.taskNum = count;
    for (uint64_t i = 0; i < VW_MAX_TASK_NUM; ++i) {
        list.taskEnable[i] = Task(100 + i, static_cast<int32_t>(i));
    }
    return list;
}

// Every bound record's keys, order and omitted channelId are in the bodies of the golden transcript
// (tests/transcript); here the extremes its counting records never reach.
TEST(CodecEncode, SignedAndWidestValuesArePrintedWhole) {
    _FaceRecPopUpPara popUp = {101, 1, -2};
    EXPECT_EQ(Encoded(popUp), R"({"blackPopUp": 1, "whitePopUp": -2})");
    HistoryRecordSwitch history = {18446744073709551615ULL, ENABLE_TYPE_ON};
    EXPECT_EQ(Encoded(history), R"({"channelId": 18446744073709551615, "enableRecord": 1})");
    _VW_CapacityList_S capacity = {4294967296ULL, 0, 9223372036854775809ULL};
    EXPECT_EQ(Encoded(capacity),
              R"({"faceDetect": 4294967296, "vhdDetect": 0, "vhdFaceDetect": 9223372036854775809})");
}

TEST(CodecEncode, ElementArrayFollowsItsCount) {
    EXPECT_EQ(Encoded(TaskList(0)), R"({"taskNum": 0})");
    EXPECT_EQ(Encoded(TaskList(1)), "{\"taskNum\": 1, \"taskEnable\": [" + TaskText(100, 0) + "]}");

    std::string full = "{\"taskNum\": 32, \"taskEnable\": [";
    for (int i = 0; i < VW_MAX_TASK_NUM; ++i) {
        full += (i == 0 ? "" : ", ") + TaskText(100 + i, i);
    }
    full += "]}";
    EXPECT_EQ(Encoded(TaskList(32)), full);

    EXPECT_EQ(json_encode(TaskList(33)), nullptr);
    EXPECT_EQ(jsonEncoder<_VW_TasksEnableList_S>::encode_nulldata(TaskList(33), nullptr), nullptr);
    EXPECT_EQ(json_encode(TaskList(UINT64_MAX)), nullptr);
}

TEST(CodecEncode, CallSiteListsEncodeOnlyTheirBindings) {
    HistoryRecordSwitch history = {5, ENABLE_TYPE_ON};
    json_object* tree = json_encode_obj(
        history, json_member<NullAlloc, NullDealloc>(&HistoryRecordSwitch::enableRecord, "on"),
        json_member<NullAlloc, NullDealloc>(&HistoryRecordSwitch::channelId, "id"));
    ASSERT_NE(tree, nullptr);
    EXPECT_STREQ(cJSON_Print(tree), R"({"on": 1, "id": 5})");
    cJSON_Delete(tree);
}

TEST(CodecEncode, TextIsAnIndependentMallocCopy) {
    _VW_AvailableList_S available = {4, 2, 1};
    json_object* tree = jsonEncoder<_VW_AvailableList_S>::encode_nulldata(available, nullptr);
    ASSERT_NE(tree, nullptr);
    const char* printed = cJSON_Print(tree);
    char* text = json_encode(available);
    ASSERT_NE(text, nullptr);
    EXPECT_NE(static_cast<const void*>(text), static_cast<const void*>(printed));
    EXPECT_STREQ(text, printed);
    cJSON_Delete(tree);  // the copy outlives every tree
    EXPECT_STREQ(text, R"({"faceDetection": 4, "vhdDetection": 2, "vhdFaceMode": 1})");
    free(text);  // a malloc block: the sanitizer build reports a mismatched release
}

}  // namespace
