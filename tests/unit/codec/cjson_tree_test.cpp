// The host's JSON tree functions: print style, key order, lookups, parsing and ownership.
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <string>

#include "cjson.h"

namespace {

std::string Printed(json_object* tree) {
    const char* text = cJSON_Print(tree);
    return text == nullptr ? std::string("<null>") : std::string(text);
}

TEST(CJsonTree, PrintsKeysInInsertionOrderWithTheHostSpacing) {
    json_object* root = cJSON_CreateObject();
    cJSON_AddItemToObject(root, "zeta", cJSON_CreateNumber(1));
    cJSON_AddItemToObject(root, "alpha", cJSON_CreateString("a/b \"q\" { ]"));
    json_object* array = cJSON_CreateArray();
    cJSON_AddItemToArray(array, cJSON_CreateNumber(-2));
    cJSON_AddItemToArray(array, cJSON_CreateObject());
    cJSON_AddItemToArray(array, cJSON_CreateArray());
    cJSON_AddItemToObject(root, "mid", array);
    cJSON_AddItemToObject(root, "none", nullptr);
    EXPECT_EQ(Printed(root), R"({"zeta": 1, "alpha": "a/b \"q\" { ]", "mid": [-2, {}, []], "none": null})");
    cJSON_Delete(root);
}

TEST(CJsonTree, NumbersKeepTheirFullWidth) {
    json_object* root = cJSON_CreateObject();
    cJSON_AddItemToObject(root, "u64", cJSON_CreateNumber(18446744073709551615ULL));
    cJSON_AddItemToObject(root, "i64", cJSON_CreateNumber(-9223372036854775807LL - 1));
    cJSON_AddItemToObject(root, "i32", cJSON_CreateNumber(-2147483647 - 1));
    EXPECT_EQ(Printed(root),
              R"({"u64": 18446744073709551615, "i64": -9223372036854775808, "i32": -2147483648})");
    cJSON_Delete(root);
}

// json-c's own print of a lone string or number is the reference for how the host writes values.
std::string JsonC(json_object* value) {
    std::string text = json_object_to_json_string_ext(value, JSON_C_TO_STRING_NOSLASHESCAPE);
    json_object_put(value);
    return text;
}

TEST(CJsonTree, WritesStringsAndNumbersAsJsonCDoes) {
    std::string everyByte;
    for (int c = 1; c < 256; ++c) {
        everyByte += static_cast<char>(c);
    }
    for (const std::string& text :
         {everyByte, std::string(), std::string("/api/x?a=1"), std::string(300, 'k')}) {
        json_object* root = cJSON_CreateObject();
        cJSON_AddItemToObject(root, text.c_str(), cJSON_CreateString(text.c_str()));
        std::string quoted = JsonC(json_object_new_string(text.c_str()));
        EXPECT_EQ(Printed(root), "{" + quoted + ": " + quoted + "}");
        cJSON_Delete(root);
    }
    json_object* array = cJSON_CreateArray();
    std::string expected;
    for (long long value : {-9223372036854775807LL - 1, -1LL, 0LL, 9223372036854775807LL}) {
        cJSON_AddItemToArray(array, cJSON_CreateNumber(value));
        expected += JsonC(json_object_new_int64(value)) + ", ";
    }
    for (unsigned long long value : {9223372036854775808ULL, 18446744073709551615ULL}) {
        cJSON_AddItemToArray(array, cJSON_CreateNumber(value));
        expected += JsonC(json_object_new_uint64(value)) + ", ";
    }
    cJSON_AddItemToArray(array, json_object_new_boolean(1));
    cJSON_AddItemToArray(array, json_object_new_boolean(0));
    EXPECT_EQ(Printed(array), "[" + expected + "true, false]");
    cJSON_Delete(array);
    json_object* parsed = cJSON_Parse(R"([1.50, 2e3, -0.0, {"a": [{}]}])");  // doubles keep their text
    EXPECT_EQ(Printed(parsed), R"([1.50, 2e3, -0.0, {"a": [{}]}])");
    cJSON_Delete(parsed);
}

TEST(CJsonTree, ObjectsKeepCopiesOfTheirKeys) {
    // Past the first block of key copies, and with the caller's key text overwritten after each add.
    json_object* root = cJSON_Parse(R"({"parsed": 1})");
    std::string expected = R"({"parsed": 1)";
    char key[64];
    for (int i = 0; i < 40; ++i) {
        snprintf(key, sizeof(key), "a_rather_long_member_name_%02d", i);
        cJSON_AddItemToObject(root, key, cJSON_CreateNumber(i));
        expected += std::string(", \"") + key + "\": " + std::to_string(i);
        memset(key, 'x', sizeof(key) - 1);
    }
    EXPECT_EQ(Printed(root), expected + "}");
    cJSON_Delete(root);
}

TEST(CJsonTree, PrintedTextIsRebuiltAfterTheTreeChanges) {
    json_object* root = cJSON_CreateObject();
    EXPECT_EQ(Printed(root), "{}");
    cJSON_AddItemToObject(root, "a", cJSON_CreateNumber(1));
    EXPECT_EQ(Printed(root), R"({"a": 1})");
    cJSON_Delete(root);
    EXPECT_EQ(Printed(nullptr), "<null>");
}

TEST(CJsonTree, LookupGivesNullForAbsentKeysAndJsonNull) {
    json_object* root = cJSON_Parse(R"({"a": 5, "n": null, "o": {"x": 1}})");
    ASSERT_NE(root, nullptr);
    json_object* a = cJSON_GetObjectItem(root, "a");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(json_object_get_int(a), 5);
    EXPECT_EQ(cJSON_GetObjectItem(root, "n"), nullptr);
    EXPECT_EQ(cJSON_GetObjectItem(root, "missing"), nullptr);
    EXPECT_EQ(cJSON_GetObjectItem(a, "x"), nullptr);  // not an object
    EXPECT_EQ(cJSON_GetObjectItem(nullptr, "a"), nullptr);
    cJSON_Delete(root);
    // Past 16 members the lookup hashes instead of walking: the same answers.
    root = cJSON_Parse(
        R"({"k0": 0, "k1": 1, "k2": 2, "k3": 3, "k4": 4, "k5": 5, "k6": 6, "k7": 7, "k8": 8,)"
        R"( "k9": 9, "k10": 10, "k11": 11, "k12": 12, "k13": 13, "k14": 14, "n": null, "k": 16})");
    EXPECT_EQ(json_object_get_int(cJSON_GetObjectItem(root, "k")), 16);
    EXPECT_EQ(cJSON_GetObjectItem(root, "n"), nullptr);
    EXPECT_EQ(cJSON_GetObjectItem(root, "k15"), nullptr);
    cJSON_Delete(root);
}

TEST(CJsonTree, ParseAcceptsJsonValuesOnly) {
    struct Case {
        const char* text;
        bool accepted;
    };
    const Case cases[] = {
        {"{}", true},
        {" {\"a\": [1, 2.5, true]} \n", true},
        {"[1]", true},
        {"5", true},
        {"", false},
        {"   ", false},
        {"{} x", false},
        {"{\"a\": 1}{}", false},
        {"[1,]", false},
        {"{\"a\": }", false},
        {"{\"a\": 01}", false},
        {"not json", false},
        {"[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[1]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]", true},  // 31 deep, json-c's limit
        {"[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[1]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]", false},
        {"{\"a\": [[[[[[[[[[[[1]]]]]]]]]]]]} x", false},
    };
    for (const Case& c : cases) {
        json_object* tree = cJSON_Parse(c.text);
        EXPECT_EQ(tree != nullptr, c.accepted) << "text: [" << c.text << "]";
        cJSON_Delete(tree);
    }
    EXPECT_EQ(cJSON_Parse(nullptr), nullptr);
}

TEST(CJsonTree, ContainersTakeOwnershipOnEveryPath) {
    // Under the sanitizer build a lost item is a reported leak.
    json_object* number = cJSON_CreateNumber(1);
    cJSON_AddItemToObject(nullptr, "a", number);
    cJSON_AddItemToArray(nullptr, cJSON_CreateNumber(2));
    json_object* array = cJSON_CreateArray();
    cJSON_AddItemToObject(array, "a", cJSON_CreateNumber(3));  // an array has no keys
    cJSON_AddItemToArray(array, cJSON_CreateNumber(4));
    EXPECT_EQ(Printed(array), "[4]");
    json_object* object = cJSON_CreateObject();
    cJSON_AddItemToArray(object, cJSON_CreateNumber(5));  // an object has no positions
    cJSON_AddItemToObject(object, nullptr, cJSON_CreateNumber(6));
    EXPECT_EQ(Printed(object), "{}");
    cJSON_Delete(array);
    cJSON_Delete(object);
    EXPECT_EQ(cJSON_CreateString(nullptr), nullptr);
}

TEST(CJsonTree, ReplacingAKeyKeepsItsPlace) {
    json_object* root = cJSON_CreateObject();
    cJSON_AddItemToObject(root, "a", cJSON_CreateNumber(1));
    cJSON_AddItemToObject(root, "b", cJSON_CreateNumber(2));
    cJSON_AddItemToObject(root, "a", cJSON_CreateNumber(3));
    EXPECT_EQ(Printed(root), R"({"a": 3, "b": 2})");
    cJSON_Delete(root);
}

}  // namespace
