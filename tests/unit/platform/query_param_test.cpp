// Query parameters by key: one table per destination type. A failing read must leave the destination
// exactly as it was, which the sentinel values check.
#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include "zkapi_common.h"

namespace {

tagHTTP_HEADER_S Header(const std::string& url) {
    tagHTTP_HEADER_S header = {};
    strncpy(header.szReqUrl, url.c_str(), sizeof(header.szReqUrl) - 1);
    return header;
}

struct NumberCase {
    const char* url;
    const char* key;
    bool ok;
    long long expected;
};

template <typename T>
void CheckNumbers(const NumberCase* cases, size_t count, T sentinel) {
    for (size_t i = 0; i < count; ++i) {
        const NumberCase& c = cases[i];
        SCOPED_TRACE(std::string(c.url) + " key " + c.key);
        tagHTTP_HEADER_S header = Header(c.url);
        T value = sentinel;
        int rc = GetURIQueryParamByKey<T>(&header, c.key, &value);
        if (c.ok) {
            EXPECT_EQ(0, rc);
            EXPECT_EQ(static_cast<T>(c.expected), value);
        } else {
            EXPECT_EQ(-1, rc);
            EXPECT_EQ(sentinel, value);
        }
    }
}

// The same lookups whatever the number type.
const NumberCase kLookups[] = {
    {"/api/MultiTaskAppHistory?ChannelId=101", "ChannelId", true, 101},
    {"/api/X?a=1&ChannelId=7&b=2", "ChannelId", true, 7},
    {"/api/X?&&ChannelId=5&", "ChannelId", true, 5},
    {"/api/X?ChannelId=007", "ChannelId", true, 7},
    {"/api/X?ChannelId=%31%32", "ChannelId", true, 12},
    {"/api/X?Channel%49d=3", "ChannelId", true, 3},
    {"/api/X?ChannelId=1&ChannelId=2", "ChannelId", true, 1},
    {"/api/X?x=%ZZ&ChannelId=5", "ChannelId", true, 5},
    {"/api/X?ChannelId=5#ChannelId=6", "ChannelId", true, 5},
    {"/api/X?ChannelId=&ChannelId=2", "ChannelId", false, 0},
    {"/api/X?a=1#ChannelId=6", "ChannelId", false, 0},
    {"/api/X#frag?ChannelId=6", "ChannelId", false, 0},
    {"/api/X", "ChannelId", false, 0},
    {"/api/X?", "ChannelId", false, 0},
    {"/api/X?ChannelId", "ChannelId", false, 0},
    {"/api/X?ChannelId=", "ChannelId", false, 0},
    {"/api/X?channelid=5", "ChannelId", false, 0},
    {"/api/X?ChannelIdX=5", "ChannelId", false, 0},
    {"/api/X?XChannelId=5", "ChannelId", false, 0},
    {"/api/X?ChannelId=5", "", false, 0},
    {"/api/X?ChannelId=+5", "ChannelId", false, 0},
    {"/api/X?ChannelId=%2B5", "ChannelId", false, 0},
    {"/api/X?ChannelId=5%20", "ChannelId", false, 0},
    {"/api/X?ChannelId=%205", "ChannelId", false, 0},
    {"/api/X?ChannelId=0x10", "ChannelId", false, 0},
    {"/api/X?ChannelId=1e3", "ChannelId", false, 0},
    {"/api/X?ChannelId=1.0", "ChannelId", false, 0},
    {"/api/X?ChannelId=12a", "ChannelId", false, 0},
    {"/api/X?ChannelId=%3", "ChannelId", false, 0},
    {"/api/X?ChannelId=%G1", "ChannelId", false, 0},
    {"/api/X?ChannelId=1%", "ChannelId", false, 0},
    {"/api/X?ChannelId=1%001", "ChannelId", false, 0},
};

TEST(QueryParam, LookupIsTheSameForEveryNumberType) {
    CheckNumbers<int>(kLookups, sizeof(kLookups) / sizeof(kLookups[0]), -999);
    CheckNumbers<unsigned int>(kLookups, sizeof(kLookups) / sizeof(kLookups[0]), 999u);
    CheckNumbers<unsigned long long>(kLookups, sizeof(kLookups) / sizeof(kLookups[0]), 999ull);
}

TEST(QueryParam, IntTakesAMinusAndItsFullRange) {
    const NumberCase cases[] = {
        {"?v=-5", "v", true, -5},
        {"?v=-0", "v", true, 0},
        {"?v=2147483647", "v", true, 2147483647LL},
        {"?v=-2147483648", "v", true, -2147483648LL},
        {"?v=2147483648", "v", false, 0},
        {"?v=-2147483649", "v", false, 0},
        {"?v=99999999999999999999", "v", false, 0},
        {"?v=-", "v", false, 0},
        {"?v=--1", "v", false, 0},
        {"?v=%2D7", "v", true, -7},
    };
    CheckNumbers<int>(cases, sizeof(cases) / sizeof(cases[0]), 12345);
}

TEST(QueryParam, UnsignedIntRefusesSignsAndOverflow) {
    const NumberCase cases[] = {
        {"?v=4294967295", "v", true, 4294967295LL},
        {"?v=4294967296", "v", false, 0},
        {"?v=-1", "v", false, 0},
        {"?v=0", "v", true, 0},
    };
    CheckNumbers<unsigned int>(cases, sizeof(cases) / sizeof(cases[0]), 12345u);
}

TEST(QueryParam, UnsignedLongLongCoversSixtyFourBits) {
    tagHTTP_HEADER_S header = Header("?v=18446744073709551615&w=18446744073709551616&x=-1");
    unsigned long long value = 3;
    EXPECT_EQ(0, GetURIQueryParamByKey<unsigned long long>(&header, "v", &value));
    EXPECT_EQ(18446744073709551615ull, value);
    value = 3;
    EXPECT_EQ(-1, GetURIQueryParamByKey<unsigned long long>(&header, "w", &value));
    EXPECT_EQ(-1, GetURIQueryParamByKey<unsigned long long>(&header, "x", &value));
    EXPECT_EQ(3ull, value);
}

struct TextCase {
    const char* url;
    unsigned int size;
    bool ok;
    const char* expected;
};

TEST(QueryParam, TextIsDecodedAndMustFitWithItsNul) {
    const TextCase cases[] = {
        {"?StartTime=2024-01-01+10%3A00%3A00", 32, true, "2024-01-01 10:00:00"},
        {"?StartTime=2024-01-01%2010:00:00", 20, true, "2024-01-01 10:00:00"},  // 19 bytes and the NUL
        {"?StartTime=2024-01-01%2010:00:00Z", 20, false, nullptr},              // 20 bytes: no room
        {"?StartTime=a=b", 20, true, "a=b"},
        {"?StartTime=%2b%2F", 20, true, "+/"},
        {"?StartTime=%E4%BA%BA", 20, true, "\xE4\xBA\xBA"},
        {"?StartTime=x", 2, true, "x"},
        {"?StartTime=x", 1, false, nullptr},
        {"?StartTime=x", 0, false, nullptr},
        {"?StartTime=", 20, false, nullptr},
        {"?StartTime=%zz", 20, false, nullptr},
        {"?EndTime=x", 20, false, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.url) + " size " + std::to_string(c.size));
        tagHTTP_HEADER_S header = Header(c.url);
        char value[40];
        memset(value, '#', sizeof(value));
        int rc = GetURIQueryParamByKey(&header, "StartTime", value, c.size);
        if (c.ok) {
            EXPECT_EQ(0, rc);
            EXPECT_STREQ(c.expected, value);
            EXPECT_EQ('#', value[strlen(c.expected) + 1]) << "nothing written after the NUL";
        } else {
            EXPECT_EQ(-1, rc);
            EXPECT_EQ(std::string(sizeof(value), '#'), std::string(value, sizeof(value)));
        }
    }
}

TEST(QueryParam, NullArgumentsFail) {
    tagHTTP_HEADER_S header = Header("?k=1");
    int number = 8;
    char text[4] = "abc";
    EXPECT_EQ(-1, GetURIQueryParamByKey<int>(nullptr, "k", &number));
    EXPECT_EQ(-1, GetURIQueryParamByKey<int>(&header, "k", static_cast<int*>(nullptr)));
    EXPECT_EQ(-1, GetURIQueryParamByKey(nullptr, "k", text, sizeof(text)));
    EXPECT_EQ(-1, GetURIQueryParamByKey(&header, "k", nullptr, sizeof(text)));
    EXPECT_EQ(8, number);
    EXPECT_STREQ("abc", text);
}

// A URL that fills its field without a NUL ends at the field: the next field is not part of it.
TEST(QueryParam, UrlWithoutNulEndsAtItsField) {
    tagHTTP_HEADER_S header = {};
    const std::string prefix = "/api/X?k=";
    memcpy(header.szReqUrl, prefix.data(), prefix.size());
    memset(header.szReqUrl + prefix.size(), 'v', sizeof(header.szReqUrl) - prefix.size());
    strcpy(header.szUserName, "USER");
    std::string value(2048, '\0');
    ASSERT_EQ(0, GetURIQueryParamByKey(&header, "k", &value[0], static_cast<unsigned int>(value.size())));
    EXPECT_EQ(std::string(sizeof(header.szReqUrl) - prefix.size(), 'v'), std::string(value.c_str()));
}

}  // namespace
