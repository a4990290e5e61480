// Query parameters by key: the lookup rules of every type are checked against a reference reader by
// the fuzz target and its seed corpus (tests/fuzz); here, what no URL can express.
#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include "zkapi_common.h"

namespace {

TEST(QueryParam, NullArgumentsFail) {
    tagHTTP_HEADER_S header = {};
    strcpy(header.szReqUrl, "?k=1");
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
