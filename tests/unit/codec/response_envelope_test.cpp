// GET bodies: the module's FormatCommonResponse<T> and the host's status envelope, text instance and
// result mapping, written through a scripted Copy2Buf.
#include <stdlib.h>
#include <string.h>

#include <gtest/gtest.h>

#include <string>

#include "body_recorder.h"
#include "log_capture.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"

namespace {

using codec_test::BodyRecorder;
using codec_test::Envelope;
using codec_test::Header;

const char kUrl[] = "/api/MultiTaskAppHistory?ChannelId=101";

struct Mapping {
    VW_RESULT_TYPE result;
    const char* text;
};
const Mapping kMappings[] = {
    {0, "OK"},
    {1, "Invalid Argument"},
    {-1, "Operation Failed"},
    {4, "Invalid Parameter"},
    {18, "Out Of Memory"},
    {31, "Service Not Exist"},
    {7, "Service Error"},
    {-2147483647 - 1, "Service Error"},
};

class ResponseEnvelope : public testing::Test {
protected:
    void SetUp() override {
        savedFlag_ = g_enDebugFlag;
        g_enDebugFlag = 6;
        header_ = Header(kUrl);
    }
    void TearDown() override { g_enDebugFlag = savedFlag_; }

    // The one captured line with this text, checked for the business header's source and switch.
    void ExpectErrorLine(const std::string& text) {
        std::vector<vks_test::DebugLine> lines = capture_.Find(text);
        ASSERT_EQ(lines.size(), 1u) << text;
        EXPECT_EQ(lines[0].level, 3);
        EXPECT_EQ(lines[0].module, 4);
        EXPECT_EQ(lines[0].debugFlag, 6);
        EXPECT_EQ(lines[0].file, VKS_SRC_BUSINESS_COMMON);
    }

    tagHTTP_HEADER_S header_;
    tagHTTP_CNTENT_INTER_S ctIn_ = {nullptr, nullptr, nullptr};
    vks_test::LogCapture capture_;

private:
    int savedFlag_ = 0;
};

// With nothing in runOut the module writes the envelope of the result, the same text as the host's
// own. A record in runOut is written whatever the result: the failing cases of the golden
// transcript (tests/transcript) show it.
TEST_F(ResponseEnvelope, EmptyRunOutGivesTheEnvelopeOfTheResultAsTheHostDoes) {
    for (const Mapping& m : kMappings) {
        BodyRecorder out(0);
        EXPECT_EQ(FormatCommonResponse<HistoryRecordSwitch>(&header_, m.result, &ctIn_, &out.buf), 0);
        EXPECT_EQ(out.body, Envelope(kUrl, m.result, m.text));
        EXPECT_TRUE(out.lengthMatchesText);
        BodyRecorder host(0);
        EXPECT_EQ(FormatCommonStatus(&header_, m.result, &ctIn_, &host.buf), 0);
        EXPECT_EQ(host.body, out.body);
    }
    BodyRecorder refusing(-1);
    EXPECT_EQ(FormatCommonStatus(&header_, 0, &ctIn_, &refusing.buf), -1);
    EXPECT_EQ(FormatCommonStatus(nullptr, 0, &ctIn_, &refusing.buf), -1);
    EXPECT_EQ(FormatCommonStatus(&header_, 0, &ctIn_, nullptr), -1);
}

TEST_F(ResponseEnvelope, OnlyMinusOneFromCopy2BufIsARefusal) {
    _VW_AvailableList_S record = {4, 2, 1};
    ctIn_.runOut = &record;
    const std::string body = R"({"faceDetection": 4, "vhdDetection": 2, "vhdFaceMode": 1})";
    for (int answer : {1, 0, -2, 1000}) {
        BodyRecorder out(answer);
        EXPECT_EQ(FormatCommonResponse<_VW_AvailableList_S>(&header_, 0, &ctIn_, &out.buf), 0) << answer;
        EXPECT_EQ(out.calls, 1);
    }
    BodyRecorder refusing(-1);
    EXPECT_EQ(FormatCommonResponse<_VW_AvailableList_S>(&header_, 0, &ctIn_, &refusing.buf), -1);
    EXPECT_EQ(refusing.body, body);  // handed over whole, then freed (the sanitizer build checks)
    ExpectErrorLine("[ZKAPI]:FormatCommonResponse: Copy2Buf fail, dataLen[" + std::to_string(body.size()) +
                    "]");
}

TEST_F(ResponseEnvelope, RecordThatCannotBeEncodedWritesNothing) {
    _VW_TasksEnableList_S list;
    memset(&list, 0, sizeof(list));
    list.taskNum = 33;
    ctIn_.runOut = &list;
    BodyRecorder out(0);
    EXPECT_EQ(FormatCommonResponse<_VW_TasksEnableList_S>(&header_, 0, &ctIn_, &out.buf), -1);
    EXPECT_EQ(out.calls, 0);
    ExpectErrorLine("[ZKAPI]:FormatCommonResponse: json_encode fail");
}

TEST_F(ResponseEnvelope, NullArgumentsAreRefused) {
    BodyRecorder out(0);
    tagHTTP_BUF_S noCopy = {nullptr, nullptr, nullptr};
    struct Case {
        tagHTTP_HEADER_S* header;
        tagHTTP_CNTENT_INTER_S* ctIn;
        tagHTTP_BUF_S* buf;
    };
    const Case cases[] = {{nullptr, &ctIn_, &out.buf},
                          {&header_, nullptr, &out.buf},
                          {&header_, &ctIn_, nullptr},
                          {&header_, &ctIn_, &noCopy}};
    for (const Case& c : cases) {
        capture_.Clear();
        EXPECT_EQ(FormatCommonResponse<HistoryRecordSwitch>(c.header, 0, c.ctIn, c.buf), -1);
        ExpectErrorLine("[ZKAPI]:FormatCommonResponse: invalid param, pstHeader[" +
                        vks_test::PointerText(c.header) + "] pstCtInt[" + vks_test::PointerText(c.ctIn) +
                        "] pstBuf[" + vks_test::PointerText(c.buf) + "]");
    }
    EXPECT_EQ(out.calls, 0);
}

TEST_F(ResponseEnvelope, RequestUrlIsCutToFit) {
    std::string longUrl = "/api/" + std::string(1000, 'u');
    tagHTTP_HEADER_S header = Header(longUrl.c_str());
    ZKAPI_RESPONSE response = FillResponseStatusParam(&header, 0);
    EXPECT_EQ(std::string(response.ResponseStatus.RequestURL), longUrl.substr(0, 255));
    response = FillResponseStatusParam(nullptr, 4);
    EXPECT_STREQ(response.ResponseStatus.RequestURL, "");
    EXPECT_EQ(response.ResponseStatus.StatusCode, 4);
}

TEST_F(ResponseEnvelope, HostTextInstanceWritesTheTextOrTheEnvelope) {
    char text[] = "{\"Total\": 2, \"Records\": []}";
    ctIn_.runOut = text;
    BodyRecorder out(0);
    EXPECT_EQ(FormatCommonResponse<char*>(&header_, 1, &ctIn_, &out.buf), 0);
    EXPECT_EQ(out.body, text);

    ctIn_.runOut = nullptr;
    BodyRecorder status(0);
    EXPECT_EQ(FormatCommonResponse<char*>(&header_, 1, &ctIn_, &status.buf), 0);
    EXPECT_EQ(status.body, Envelope(kUrl, 1, "Invalid Argument"));

    ctIn_.runOut = text;
    BodyRecorder refusing(-1);
    EXPECT_EQ(FormatCommonResponse<char*>(&header_, 0, &ctIn_, &refusing.buf), -1);
    EXPECT_EQ(FormatCommonResponse<char*>(&header_, 0, nullptr, &out.buf), -1);
}

}  // namespace
