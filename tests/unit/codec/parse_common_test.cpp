// PUT bodies: ParseCommon<T> merges the body into the record that PreProc left in preProcOut and
// moves it to parseOut, or leaves the slots as they were.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <gtest/gtest.h>

#include <string>

#include "body_recorder.h"
#include "log_capture.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"

namespace {

using Filter = VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA;

Filter StoredFilter() {
    Filter record;
    record.channelId = 101;
    ENABLE_TYPE* flags = &record.matchRate;
    for (int i = 0; i < 13; ++i) {
        flags[i] = (i % 2 == 0) ? ENABLE_TYPE_ON : ENABLE_TYPE_OFF;
    }
    return record;
}

class ParseCommonBody : public testing::Test {
protected:
    void SetUp() override {
        header_ = codec_test::Header("/api/MultiTaskAppDisplayRecogInfos");
        header_.method[0] = 'P';
        stored_ = StoredFilter();
        record_ = static_cast<Filter*>(malloc(sizeof(Filter)));
        *record_ = stored_;
        ctIn_.preProcOut = record_;
    }
    void TearDown() override { free(record_); }

    VW_RESULT_TYPE Parse(const char* body) {
        content_.pContent = body;
        return ParseCommon<Filter>(&header_, &content_, &ctIn_);
    }

    void ExpectSlotsUnchanged() {
        EXPECT_EQ(ctIn_.preProcOut, record_);
        EXPECT_EQ(ctIn_.parseOut, nullptr);
        EXPECT_EQ(ctIn_.runOut, nullptr);
    }

    // The decode failure line carries its own source line as its value.
    void ExpectDecodeFailLine() {
        std::vector<vks_test::DebugLine> lines = capture_.Debug();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].text,
                  "[ZKAPI]:ParseCommon[" + std::to_string(lines[0].line) + "] json decode fail\n");
        EXPECT_GT(lines[0].line, 0);
        EXPECT_EQ(lines[0].level, 3);
        EXPECT_EQ(lines[0].file, VKS_SRC_BUSINESS_COMMON);
    }

    tagHTTP_HEADER_S header_;
    tagHTTP_BUF_S content_ = {nullptr, nullptr, nullptr};
    tagHTTP_CNTENT_INTER_S ctIn_ = {nullptr, nullptr, nullptr};
    Filter stored_;
    Filter* record_ = nullptr;
    vks_test::LogCapture capture_;
};

// json-c parses a JSON null to no value at all, so "null" is refused like a text that is not JSON.
TEST_F(ParseCommonBody, BodiesThatAreNotJsonGiveFour) {
    const char* bodies[] = {"", "   ", "not json", "{\"name\": 1", "null", nullptr};
    for (const char* body : bodies) {
        capture_.Clear();
        EXPECT_EQ(Parse(body), VW_PARAM_ERROR) << (body ? body : "(null)");
        ExpectSlotsUnchanged();
        EXPECT_EQ(memcmp(record_, &stored_, sizeof(Filter)), 0);
        ExpectDecodeFailLine();
    }
}

TEST_F(ParseCommonBody, EmptyObjectMovesTheUnchangedRecord) {
    EXPECT_EQ(Parse("{}"), VW_SUCCESS);
    EXPECT_EQ(ctIn_.preProcOut, nullptr);
    EXPECT_EQ(ctIn_.parseOut, record_);
    EXPECT_EQ(memcmp(record_, &stored_, sizeof(Filter)), 0);
    EXPECT_TRUE(capture_.Debug().empty());
}

// JSON that is not an object has no keys: nothing is decoded and the record moves on unchanged.
TEST_F(ParseCommonBody, JsonOtherThanAnObjectMovesTheUnchangedRecord) {
    const char* bodies[] = {"[1, 2]", "[{\"name\": 0}]", "5", "\"name\"", "true"};
    for (const char* body : bodies) {
        ctIn_ = {record_, nullptr, nullptr};
        EXPECT_EQ(Parse(body), VW_SUCCESS) << body;
        EXPECT_EQ(ctIn_.preProcOut, nullptr) << body;
        EXPECT_EQ(ctIn_.parseOut, record_) << body;
        EXPECT_EQ(memcmp(record_, &stored_, sizeof(Filter)), 0) << body;
    }
    EXPECT_TRUE(capture_.Debug().empty());
}

TEST_F(ParseCommonBody, RejectedThirdMemberKeepsTheFirstTwoChanges) {
    EXPECT_EQ(Parse(R"({"matchRate": 0, "snapTime": true, "deviceName": [1], "faceLibName": 1})"),
              VW_PARAM_ERROR);
    ExpectSlotsUnchanged();
    Filter expected = stored_;
    expected.matchRate = ENABLE_TYPE_OFF;
    expected.snapTime = ENABLE_TYPE_ON;
    EXPECT_EQ(memcmp(record_, &expected, sizeof(Filter)), 0);
    ExpectDecodeFailLine();
}

TEST_F(ParseCommonBody, BodyMergesIntoTheFetchedRecord) {
    EXPECT_EQ(Parse(R"({"channelId": 5, "name": false, "gender": 1.7, "city": null})"), VW_SUCCESS);
    Filter expected = stored_;
    expected.name = ENABLE_TYPE_OFF;
    expected.gender = ENABLE_TYPE_ON;
    EXPECT_EQ(ctIn_.parseOut, record_);
    EXPECT_EQ(memcmp(record_, &expected, sizeof(Filter)), 0);

    HistoryRecordSwitch* history = static_cast<HistoryRecordSwitch*>(malloc(sizeof(HistoryRecordSwitch)));
    *history = HistoryRecordSwitch{101, ENABLE_TYPE_OFF};
    tagHTTP_CNTENT_INTER_S ctIn = {history, nullptr, nullptr};
    content_.pContent = R"({"enableRecord": true})";
    EXPECT_EQ(ParseCommon<HistoryRecordSwitch>(&header_, &content_, &ctIn), VW_SUCCESS);
    EXPECT_EQ(ctIn.parseOut, history);
    EXPECT_EQ(history->channelId, 101u);
    EXPECT_EQ(history->enableRecord, ENABLE_TYPE_ON);
    free(history);
}

std::string Pointer(const void* p) {
    char text[32];
    snprintf(text, sizeof(text), "%p", p);
    return text;
}

TEST_F(ParseCommonBody, NullArgumentsAndAMissingRecordGiveMinusOne) {
    content_.pContent = "{}";
    struct Case {
        tagHTTP_HEADER_S* header;
        tagHTTP_BUF_S* content;
        tagHTTP_CNTENT_INTER_S* ctIn;
    };
    const Case cases[] = {
        {nullptr, &content_, &ctIn_}, {&header_, nullptr, &ctIn_}, {&header_, &content_, nullptr}};
    for (const Case& c : cases) {
        capture_.Clear();
        EXPECT_EQ(ParseCommon<Filter>(c.header, c.content, c.ctIn), VW_FAILED);
        std::string line = "[ZKAPI]:ParseCommon: invalid param, pstHeader[" + Pointer(c.header) +
                           "] pstHttpContent[" + Pointer(c.content) + "] pstCtIn[" + Pointer(c.ctIn) + "]";
        EXPECT_TRUE(capture_.Has(3, line)) << line;
        ExpectSlotsUnchanged();
    }
    tagHTTP_CNTENT_INTER_S empty = {nullptr, nullptr, nullptr};
    EXPECT_EQ(ParseCommon<Filter>(&header_, &content_, &empty), VW_FAILED);
    EXPECT_EQ(empty.parseOut, nullptr);
}

}  // namespace
