// SPDX-License-Identifier: Apache-2.0
#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "talapi_json.h"

namespace {

// Number extremes, escapes, a null item and a replaced key, all printed exactly.
TEST(JsonValues, TreePrintsExactly) {
    json_object *pstList = cJSON_CreateArray();
    for (json_object *pstItem :
         {cJSON_CreateNumber(INT_MIN), cJSON_CreateNumber(4294967295U),
          cJSON_CreateNumber(LLONG_MIN), cJSON_CreateNumber(18446744073709551615ULL),
          cJSON_CreateString("a/b \"q\""), cJSON_CreateString(nullptr)}) {
        cJSON_AddItemToArray(pstList, pstItem);
    }
    json_object *pstRoot = cJSON_CreateObject();
    cJSON_AddItemToObject(pstRoot, "k", cJSON_CreateString("old"));
    cJSON_AddItemToObject(pstRoot, "k", pstList);
    cJSON_AddItemToObject(pstRoot, "none", nullptr);
    EXPECT_STREQ(
        cJSON_Print(pstRoot),
        "{\n  \"k\": [\n    -2147483648,\n    4294967295,\n    -9223372036854775808,\n"
        "    18446744073709551615,\n    \"a/b \\\"q\\\"\",\n    null\n  ],\n  \"none\": null\n}");
    cJSON_Delete(pstRoot);
}

// A second reference kept here tells whether the container took the item (it outlives our
// release) or released it at once.
TEST(JsonValues, AddStoresTheItemOrReleasesIt) {
    json_object *pstObject = cJSON_CreateObject();
    json_object *pstArray = cJSON_CreateArray();
    struct Row {
        json_object *pstContainer;
        const char *pcKey;  // null: add to an array
        bool stored;
    } rows[] = {{pstObject, "k", true},     {nullptr, "k", false},     {pstArray, "k", false},
                {pstObject, "", true},      {pstArray, nullptr, true}, {nullptr, nullptr, false},
                {pstObject, nullptr, false}};
    for (const Row &row : rows) {
        json_object *pstItem = json_object_get(cJSON_CreateNumber(1));
        if (row.pcKey != nullptr) {
            cJSON_AddItemToObject(row.pstContainer, row.pcKey, pstItem);
        } else {
            cJSON_AddItemToArray(row.pstContainer, pstItem);
        }
        EXPECT_EQ(json_object_put(pstItem) == 1, !row.stored) << &row - rows;  // 1: freed
    }
    cJSON_Delete(pstObject);
    cJSON_Delete(pstArray);
}

TEST(JsonValues, LookupsFindNothingWhereThereIsNoValue) {
    json_object *pstRoot = cJSON_Parse("{\"n\": null, \"a\": [1, null], \"s\": \"t\"}");
    json_object *pstArray = cJSON_GetObjectItem(pstRoot, "a");
    json_object *pstText = cJSON_GetObjectItem(pstRoot, "s");
    ASSERT_STREQ(json_object_get_string(pstText), "t");
    EXPECT_EQ(json_object_get_int(cJSON_GetArrayItem(pstArray, 0)), 1);
    struct Row {
        json_object *pstContainer;
        const char *pcKey;
        int iIndex, iSize;
    } rows[] = {{nullptr, "n", 0, 0},  {pstRoot, "n", 0, 0},      {pstRoot, "absent", -1, 0},
                {pstArray, "a", 2, 2}, {pstArray, nullptr, 1, 2}, {pstArray, "s", -1, 2},
                {pstText, "s", 0, 0},  {pstRoot, nullptr, 0, 0}};
    for (const Row &row : rows) {
        EXPECT_EQ(cJSON_GetObjectItem(row.pstContainer, row.pcKey), nullptr) << row.pcKey;
        EXPECT_EQ(cJSON_GetArrayItem(row.pstContainer, row.iIndex), nullptr) << row.iIndex;
        EXPECT_EQ(cJSON_GetArraySize(row.pstContainer), row.iSize);
    }
    cJSON_Delete(pstRoot);
}

TEST(JsonValues, ParseTakesExactlyOneStrictValue) {
    auto parses = [](const std::string &text) {
        json_object *pstRoot = cJSON_Parse(text.c_str());
        cJSON_Delete(pstRoot);
        return pstRoot != nullptr;
    };
    const char *accepted[] = {" {\"a\": [1, -2.5e3, true, null]}\n", "\t[]\r\n", "0",
                              "\"\xe4\xb8\xad\\u00e9\""};
    // A top-level JSON null parses to no value, so to no tree either.
    const char *refused[] = {
        "{} x",        "{}{}",     "1 2",          "{\"a\": 1",        "",       "  ",  "NaN",
        "[-Infinity]", "1e400",    "'a'",          "{'a': 1}",         "1.",     "01",  "[1,]",
        "\"a\tb\"",    "\"\xff\"", "\"\xc0\xaf\"", "\"\xed\xa0\x80\"", "/*c*/1", "null"};
    for (const char *pcText : accepted) {
        EXPECT_TRUE(parses(pcText)) << pcText;
    }
    for (const char *pcText : refused) {
        EXPECT_FALSE(parses(pcText)) << pcText;
    }
    EXPECT_EQ(cJSON_Parse(nullptr), nullptr);
    // json-c's default depth counts every value, scalars included: 32 levels parse, 33 do not.
    EXPECT_TRUE(parses(std::string(32, '[') + std::string(32, ']')));
    EXPECT_TRUE(parses(std::string(31, '[') + "1" + std::string(31, ']')));
    EXPECT_FALSE(parses(std::string(33, '[') + std::string(33, ']')));
    EXPECT_FALSE(parses(std::string(32, '[') + "1" + std::string(32, ']')));
}

}  // namespace
