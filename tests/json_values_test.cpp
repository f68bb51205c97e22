#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "talapi_json.h"

namespace {

TEST(JsonValues, ValuesPrintExactly) {
    struct Row {
        json_object *pstItem;
        const char *text;
    } rows[] = {{cJSON_CreateNumber(INT_MIN), "-2147483648"},
                {cJSON_CreateNumber(4294967295U), "4294967295"},
                {cJSON_CreateNumber(LLONG_MIN), "-9223372036854775808"},
                {cJSON_CreateNumber(18446744073709551615ULL), "18446744073709551615"},
                {cJSON_CreateString("a/b \"q\""), "\"a/b \\\"q\\\"\""}};
    for (const Row &row : rows) {
        EXPECT_STREQ(cJSON_Print(row.pstItem), row.text);
        cJSON_Delete(row.pstItem);
    }
    EXPECT_EQ(cJSON_CreateString(nullptr), nullptr);
}

TEST(JsonValues, TreeBuildsPrintsAndParsesBack) {
    json_object *pstRoot = cJSON_CreateObject();
    json_object *pstList = cJSON_CreateArray();
    cJSON_AddItemToArray(pstList, cJSON_CreateNumber(7));
    cJSON_AddItemToArray(pstList, nullptr);
    cJSON_AddItemToObject(pstRoot, "name", cJSON_CreateString("old"));
    cJSON_AddItemToObject(pstRoot, "name", cJSON_CreateString("x/y"));  // replaces
    cJSON_AddItemToObject(pstRoot, "none", nullptr);
    cJSON_AddItemToObject(pstRoot, "list", pstList);
    const char *pcExpected =
        "{\n  \"name\": \"x/y\",\n  \"none\": null,\n  \"list\": [\n    7,\n    null\n  ]\n}";
    EXPECT_STREQ(cJSON_Print(pstRoot), pcExpected);

    json_object *pstBack = cJSON_Parse(cJSON_Print(pstRoot));
    cJSON_Delete(pstRoot);
    ASSERT_NE(pstBack, nullptr);
    EXPECT_STREQ(json_object_get_string(cJSON_GetObjectItem(pstBack, "name")), "x/y");
    json_object *pstBackList = cJSON_GetObjectItem(pstBack, "list");
    EXPECT_EQ(cJSON_GetArraySize(pstBackList), 2);
    EXPECT_EQ(json_object_get_int(cJSON_GetArrayItem(pstBackList, 0)), 7);
    EXPECT_STREQ(cJSON_Print(pstBack), pcExpected);
    cJSON_Delete(pstBack);
}

TEST(JsonValues, LookupsFindNothingWhereThereIsNoValue) {
    json_object *pstRoot = cJSON_Parse("{\"n\": null, \"a\": [1, null], \"s\": \"t\"}");
    ASSERT_NE(pstRoot, nullptr);
    json_object *pstArray = cJSON_GetObjectItem(pstRoot, "a");
    json_object *pstText = cJSON_GetObjectItem(pstRoot, "s");
    ASSERT_NE(pstText, nullptr);
    struct Row {
        json_object *pstContainer;
        const char *pcKey;
        int iIndex;
        int iSize;
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

TEST(JsonValues, AddTakesTheItemEvenWhenItCannotStoreIt) {
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
        json_object *pstItem = json_object_get(cJSON_CreateNumber(1));  // one reference kept here
        if (row.pcKey != nullptr) {
            cJSON_AddItemToObject(row.pstContainer, row.pcKey, pstItem);
        } else {
            cJSON_AddItemToArray(row.pstContainer, pstItem);
        }
        // json_object_put gives 1 when it drops the last reference.
        EXPECT_EQ(json_object_put(pstItem) == 1, !row.stored) << &row - rows;
    }
    cJSON_Delete(pstObject);
    cJSON_Delete(pstArray);
}

std::string Nested(int iDepth, const char *pcInner) {
    return std::string(iDepth, '[') + pcInner + std::string(iDepth, ']');
}

TEST(JsonValues, ParseTakesExactlyOneStrictValue) {
    auto parses = [](const char *pcText) {
        json_object *pstRoot = cJSON_Parse(pcText);
        cJSON_Delete(pstRoot);
        return pstRoot != nullptr;
    };
    const char *accepted[] = {" {\"a\": [1, -2.5e3, true, null]}\n", "\t[]\r\n", "0",
                              "\"\xe4\xb8\xad\\u00e9\""};
    // A top-level JSON null parses to no value, so to no tree either.
    const char *refused[] = {
        "{} x",        "{}{}",     "1 2",          "{\"a\": 1",        "",       "  ",   "NaN",
        "[-Infinity]", "1e400",    "'a'",          "{'a': 1}",         "1.",     "01",   "[1,]",
        "\"a\tb\"",    "\"\xff\"", "\"\xc0\xaf\"", "\"\xed\xa0\x80\"", "/*c*/1", "null", nullptr};
    for (const char *pcText : accepted) {
        EXPECT_TRUE(parses(pcText)) << pcText;
    }
    for (const char *pcText : refused) {
        EXPECT_FALSE(parses(pcText)) << (pcText == nullptr ? "(null)" : pcText);
    }
    // json-c's default depth counts every value, scalars included: 32 levels parse, 33 do not.
    EXPECT_TRUE(parses(Nested(32, "").c_str()));
    EXPECT_TRUE(parses(Nested(31, "1").c_str()));
    EXPECT_FALSE(parses(Nested(33, "").c_str()));
    EXPECT_FALSE(parses(Nested(32, "1").c_str()));
}

}  // namespace
