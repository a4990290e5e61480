// PUT bodies: ParseCommon<T> merges the body into the record that PreProc left in preProcOut and
// moves it to parseOut, or leaves the slots as they were.
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

// What a body of every kind does to the fetched record (not JSON, not an object, a member refused
// after two accepted, a merge) is in the RecogInfos and History PUT cases of the golden transcript.
TEST_F(ParseCommonBody, NoBodyGivesFourAndLeavesTheSlots) {
    EXPECT_EQ(Parse(nullptr), VW_PARAM_ERROR);
    ExpectSlotsUnchanged();
    EXPECT_EQ(memcmp(record_, &stored_, sizeof(Filter)), 0);
    ExpectDecodeFailLine();
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
        std::string line = "[ZKAPI]:ParseCommon: invalid param, pstHeader[" +
                           vks_test::PointerText(c.header) + "] pstHttpContent[" +
                           vks_test::PointerText(c.content) + "] pstCtIn[" + vks_test::PointerText(c.ctIn) +
                           "]";
        EXPECT_TRUE(capture_.Has(3, line)) << line;
        ExpectSlotsUnchanged();
    }
    tagHTTP_CNTENT_INTER_S empty = {nullptr, nullptr, nullptr};
    EXPECT_EQ(ParseCommon<Filter>(&header_, &content_, &empty), VW_FAILED);
    EXPECT_EQ(empty.parseOut, nullptr);
}

}  // namespace
