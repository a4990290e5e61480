// The time and boolean formats, on a record bound only here: minutes of the day, local date-time and
// booleans, both directions.
#include <stdlib.h>
#include <time.h>

#include <gtest/gtest.h>

#include <string>

#include "json_codec/record_bindings.h"

namespace {

struct ScheduleRecord {
    int32_t start;    // minutes of the day
    int32_t at;       // epoch seconds
    int32_t enabled;  // on/off, written as a boolean
    uint64_t wideAt;  // epoch seconds in a 64-bit member
};

}  // namespace

template <>
struct jsonMembers<ScheduleRecord> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = ScheduleRecord;
        return f(json_member<A, D>(&R::start, "start", JSON_FORMAT_HOUR_MINUTE),
                 json_member<A, D>(&R::at, "at", JSON_FORMAT_DATE_TIME),
                 json_member<A, D>(&R::enabled, "enabled", JSON_FORMAT_BOOL),
                 json_member<A, D>(&R::wideAt, "wideAt", JSON_FORMAT_DATE_TIME));
    }
};

namespace {

// Central European time: standard UTC+1, daylight saving UTC+2 from the last Sunday of March to the
// last Sunday of October. A POSIX rule, so no zone database is needed.
const char kZoneWithDaylightSaving[] = "CET-1CEST,M3.5.0,M10.5.0/3";
const int32_t kWinterNoon = 1705316400;  // 2024-01-15 11:00:00 UTC
const int32_t kSummerNoon = 1721041200;  // 2024-07-15 11:00:00 UTC

class CodecTime : public testing::Test {
protected:
    void SetUp() override {
        const char* zone = getenv("TZ");
        hadZone_ = zone != nullptr;
        savedZone_ = hadZone_ ? zone : "";
        setenv("TZ", kZoneWithDaylightSaving, 1);
        tzset();
    }
    void TearDown() override {
        if (hadZone_) {
            setenv("TZ", savedZone_.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

    static std::string Encoded(const ScheduleRecord& record) {
        char* text = json_encode(record);
        std::string result = text == nullptr ? "<null>" : text;
        free(text);
        return result;
    }

    // Decodes {"<key>": <value>} into record.
    static int DecodeOne(const std::string& key, const std::string& value, ScheduleRecord& record) {
        std::string body = "{\"" + key + "\": " + value + "}";
        json_object* tree = cJSON_Parse(body.c_str());
        EXPECT_NE(tree, nullptr) << body;
        int ret = jsonDecoder<ScheduleRecord>::decode(tree, nullptr, record, NullAlloc(), NullDealloc(),
                                                      JSON_FORMAT_DEFAULT);
        cJSON_Delete(tree);
        return ret;
    }

private:
    bool hadZone_ = false;
    std::string savedZone_;
};

TEST_F(CodecTime, MinutesOfTheDayDecode) {
    struct Case {
        const char* value;
        int result;
        int32_t minutes;
    };
    const Case cases[] = {
        {"\"24:00\"", 0, 1440}, {"\"00:00\"", 0, 0}, {"\"23:59\"", 0, 1439}, {"\"12:30\"", 0, 750},
        {"90", 0, 90},          {"true", 0, 1},      {"\"24:01\"", -1, -5},  {"\"12:30x\"", -1, -5},
        {"\"12:60\"", -1, -5},  {"\"\"", -1, -5},    {"\"24:00 \"", -1, -5}, {"\"noon\"", -1, -5},
    };
    for (const Case& c : cases) {
        ScheduleRecord record = {-5, 0, 0, 0};
        EXPECT_EQ(DecodeOne("start", c.value, record), c.result) << c.value;
        EXPECT_EQ(record.start, c.minutes) << c.value;
    }
}

TEST_F(CodecTime, MinutesOfTheDayEncode) {
    struct Case {
        int32_t minutes;
        const char* text;
    };
    const Case cases[] = {{1440, "24:00"}, {90, "01:30"}, {0, "00:00"}, {1439, "23:59"}};
    for (const Case& c : cases) {
        ScheduleRecord record = {c.minutes, kWinterNoon, 1, 0};
        std::string expected =
            std::string(R"({"start": ")") + c.text +
            R"(", "at": "2024-01-15 12:00:00", "enabled": true, "wideAt": "1970-01-01 01:00:00"})";
        EXPECT_EQ(Encoded(record), expected);
    }
}

TEST_F(CodecTime, DateTimeDecodesAsLocalStandardTime) {
    ScheduleRecord record = {0, 0, 0, 0};
    ASSERT_EQ(DecodeOne("at", "\"2024-01-15 12:00:00\"", record), 0);
    EXPECT_EQ(record.at, kWinterNoon);

    // In summer the printed local time is daylight-saving time, one hour ahead of standard time:
    // reading it back as standard time lands one hour later.
    ScheduleRecord summer = {0, kSummerNoon, 0, 0};
    std::string printed = Encoded(summer);
    ASSERT_EQ(
        printed,
        R"({"start": "00:00", "at": "2024-07-15 13:00:00", "enabled": false, "wideAt": "1970-01-01 01:00:00"})");
    ASSERT_EQ(DecodeOne("at", "\"2024-07-15 13:00:00\"", record), 0);
    EXPECT_EQ(record.at, kSummerNoon + 3600);
}

TEST_F(CodecTime, DateTimeIntoSixtyFourBitsIsSignExtended) {
    ScheduleRecord record = {0, 0, 0, 0};
    ASSERT_EQ(DecodeOne("wideAt", "\"1969-12-31 23:00:00\"", record), 0);
    EXPECT_EQ(record.wideAt, static_cast<uint64_t>(-7200));
    ASSERT_EQ(DecodeOne("at", "\"1969-12-31 23:00:00\"", record), 0);
    EXPECT_EQ(record.at, -7200);
}

TEST_F(CodecTime, DateTimeRejectsTextThatDoesNotParseWhole) {
    const char* values[] = {"\"2024-13-01 00:00:00\"",
                            "\"2024-01-15 12:00\"",
                            "\"2024-01-15 12:00:00 \"",
                            "\"2024-01-15T12:00:00\"",
                            "\"\"",
                            "[]"};
    for (const char* value : values) {
        ScheduleRecord record = {0, 42, 0, 0};
        EXPECT_EQ(DecodeOne("at", value, record), -1) << value;
        EXPECT_EQ(record.at, 42) << value;
    }
}

// The same on 32-bit and 64-bit targets: exactly the texts whose count fits 32 signed bits decode.
TEST_F(CodecTime, DateTimeHoldsTheSigned32BitRangeOnEveryTarget) {
    const struct {
        const char* key;
        const char* text;
        int ret;
        int64_t value;
    } cases[] = {
        {"at", "\"2038-01-19 04:14:07\"", 0, INT32_MAX}, {"at", "\"2038-01-19 04:14:08\"", -1, 42},
        {"at", "\"1901-12-13 21:45:52\"", 0, INT32_MIN}, {"at", "\"1901-12-13 21:45:51\"", -1, 42},
        {"wideAt", "\"2106-02-07 07:28:16\"", -1, 42},   {"wideAt", "\"1901-12-13 21:45:52\"", 0, INT32_MIN},
    };
    for (const auto& c : cases) {
        ScheduleRecord record = {0, 42, 0, 42};
        EXPECT_EQ(DecodeOne(c.key, c.text, record), c.ret) << c.text;
        EXPECT_EQ(std::string(c.key) == "at" ? record.at : static_cast<int64_t>(record.wideAt), c.value)
            << c.text;
    }
}

TEST_F(CodecTime, BooleanFormatReadsTheFirstByte) {
    struct Case {
        int32_t value;
        const char* text;
    };
    // 256 has a zero first byte on the little-endian target.
    const Case cases[] = {{1, "true"}, {0, "false"}, {255, "true"}, {256, "false"}, {-1, "true"}};
    for (const Case& c : cases) {
        ScheduleRecord record = {0, kWinterNoon, c.value, 0};
        std::string expected = std::string(R"({"start": "00:00", "at": "2024-01-15 12:00:00", "enabled": )") +
                               c.text + R"(, "wideAt": "1970-01-01 01:00:00"})";
        EXPECT_EQ(Encoded(record), expected) << c.value;
    }
    ScheduleRecord record = {0, 0, 9, 0};
    EXPECT_EQ(DecodeOne("enabled", "false", record), 0);
    EXPECT_EQ(record.enabled, 0);
    EXPECT_EQ(DecodeOne("enabled", "\"true\"", record), -1);
    EXPECT_EQ(record.enabled, 0);
}

}  // namespace
