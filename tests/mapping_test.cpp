// SPDX-License-Identifier: Apache-2.0
// The JSON mapping: member coders and the encode and decode drivers, through json_encode,
// json_decode and the encoders/decoders of mapped records.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "alloc_fault.h"
#include "mapping_records.h"

namespace {

// Distinct values everywhere, so that a member that should keep its value visibly does.
TEST_ALL_S Baseline() {
    TEST_ALL_S r = ZeroRecord<TEST_ALL_S>();
    r.bFlag = true;
    r.ucAlpha = 200;
    r.sLevel = -2;
    r.iCount = 11;
    r.enMode = TEST_MODE_ON;
    r.uiSize = 4000000000u;
    r.llOffset = -5000000000LL;
    r.ullId = 18446744073709551615ULL;
    strcpy(r.szName, "cam");
    r.usStart = 480;
    r.iStamp = 1700000000;
    r.ucSwitch = 2;
    r.stPoint = {-7, 9};
    strcpy(r.stLabel.osdContent, "label");
    r.uiItemNum = 5;
    for (int i = 0; i < kTestCapacity; ++i) {
        r.aenType[i] = static_cast<TEST_MODE_E>(100 + i);
        r.aullSpace[i] = 1000 + i;
        r.astItem[i].prefixEnable = i % 2;
        snprintf(r.astItem[i].prefixContent, sizeof(r.astItem[i].prefixContent), "p%d", i);
    }
    return r;
}

class MappingTest : public ::testing::Test {
  protected:
    // Fixed zone so that the date-time member encodes the same everywhere.
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

TEST_F(MappingTest, EncodesEachMemberKindInItsNaturalFormInSchemaOrder) {
    TEST_ALL_S record = Baseline();
    record.uiItemNum = 2;
    std::string text = EncodeToString(record);
    JsonTree tree = Parse(text);
    ASSERT_TRUE(tree) << text;

    struct Row {
        const char *key;
        const char *json;
    };
    const Row rows[] = {
        {"flag", "true"},
        {"alpha", "200"},
        {"level", "-2"},
        {"count", "11"},
        {"mode", "7"},
        {"size", "4000000000"},
        {"offset", "-5000000000"},
        {"id", "18446744073709551615"},
        {"name", "\"cam\""},
        {"start", "\"08:00\""},
        {"stamp", "\"2023-11-14 22:13:20\""},
        {"switch", "true"},
        {"point", "{\"x\":-7,\"y\":9}"},
        {"label", "{\"osdContent\":\"label\"}"},
        {"types", "[100,101]"},
        {"space", "[1000,1001]"},
        {"items",
         "[{\"prefixEnable\":0,\"prefixContent\":\"p0\"},{\"prefixEnable\":1,\"prefixContent\":"
         "\"p1\"}]"},
        {"itemNum", "2"},
    };
    std::vector<std::string> expectedKeys;
    for (const Row &row : rows) {
        expectedKeys.push_back(row.key);
        EXPECT_EQ(Compact(cJSON_GetObjectItem(tree.get(), row.key)), row.json) << row.key;
    }
    std::vector<std::string> keys;
    json_object_object_foreach(tree.get(), key, value) {
        (void)value;
        keys.push_back(key);
    }
    EXPECT_EQ(keys, expectedKeys);
}

TEST_F(MappingTest, EncodesBoundaryValuesOfEachKind) {
    struct Row {
        const char *name;
        void (*set)(TEST_ALL_S &);
        const char *key;
        const char *json;
    };
    const Row rows[] = {
        {"enum above INT_MAX is written as int",
         [](TEST_ALL_S &r) { r.enMode = TEST_MODE_E(0xFFFFFFFFu); }, "mode", "-1"},
        {"unsigned char keeps 255", [](TEST_ALL_S &r) { r.ucAlpha = 255; }, "alpha", "255"},
        {"short is sign-extended", [](TEST_ALL_S &r) { r.sLevel = -32768; }, "level", "-32768"},
        {"text filling its field has no NUL",
         [](TEST_ALL_S &r) { memcpy(r.szName, "abcdefgh", 8); }, "name", "\"abcdefgh\""},
        {"text stops at the first NUL", [](TEST_ALL_S &r) { memcpy(r.szName, "ab\0cdefg", 8); },
         "name", "\"ab\""},
        {"bool format reads the first byte", [](TEST_ALL_S &r) { r.ucSwitch = 0; }, "switch",
         "false"},
        {"minutes 1440 are 24:00", [](TEST_ALL_S &r) { r.usStart = 1440; }, "start", "\"24:00\""},
        {"minutes past the day keep counting hours", [](TEST_ALL_S &r) { r.usStart = 1500; },
         "start", "\"25:00\""},
        {"count 37 writes all elements", [](TEST_ALL_S &r) { r.uiItemNum = 37; }, "types",
         "[100,101,102,103,104,105,106,107,108,109,110,111,112,113,114,115,116,117,118,119,120,"
         "121,122,123,124,125,126,127,128,129,130,131,132,133,134,135,136]"},
        {"count 0 leaves the arrays out", [](TEST_ALL_S &r) { r.uiItemNum = 0; }, "space",
         "<absent>"},
        {"count 0 is itself written", [](TEST_ALL_S &r) { r.uiItemNum = 0; }, "itemNum", "0"},
    };
    for (const Row &row : rows) {
        TEST_ALL_S record = Baseline();
        row.set(record);
        JsonTree tree = Parse(EncodeToString(record));
        ASSERT_TRUE(tree) << row.name;
        EXPECT_EQ(Compact(cJSON_GetObjectItem(tree.get(), row.key)), row.json) << row.name;
    }
}

TEST_F(MappingTest, CountAboveCapacityFailsTheRecordAndNullsItInItsParent) {
    TEST_OUTER_S outer = ZeroRecord<TEST_OUTER_S>();
    outer.stInner = Baseline();
    outer.iAfter = 42;

    outer.stInner.uiItemNum = 38;
    EXPECT_EQ(EncodeToString(outer.stInner), "<null>");
    JsonTree tree = Parse(EncodeToString(outer));
    ASSERT_TRUE(tree);
    EXPECT_EQ(Compact(tree.get()), "{\"inner\":null,\"after\":42}");

    outer.stInner.uiItemNum = 37;
    tree = Parse(EncodeToString(outer));
    ASSERT_TRUE(tree);
    EXPECT_EQ(json_object_get_type(cJSON_GetObjectItem(tree.get(), "inner")), json_type_object);
}

TEST_F(MappingTest, EveryKindRoundTripsToTheSameBytes) {
    TEST_ALL_S original = Baseline();
    original.uiItemNum = kTestCapacity;
    memset(original.stLabel.osdContent, 'L', 176);
    memset(original.astItem[36].prefixContent, 'P', 96);
    original.ullId = 9223372036854775808ULL;  // above the signed range
    original.enMode = TEST_MODE_E(0xFFFFFFFFu);
    original.ucSwitch = 1;  // the boolean format keeps only zero or not

    std::string text = EncodeToString(original);
    TEST_ALL_S decoded = ZeroRecord<TEST_ALL_S>();
    ASSERT_EQ(json_decode(text.c_str(), nullptr, decoded), 0) << text;
    EXPECT_TRUE(SameBytes(decoded, original)) << text << "\n" << EncodeToString(decoded);
}

// Decoding rows: a body, the expected result, and the change it makes to the baseline record.
// Every row also checks that nothing else changed.
struct DecodeRow {
    const char *body;
    int result;
    void (*change)(TEST_ALL_S &);
};

void ExpectDecodes(const DecodeRow &row) {
    TEST_ALL_S actual = Baseline();
    TEST_ALL_S expected = Baseline();
    if (row.change != nullptr) {
        row.change(expected);
    }
    EXPECT_EQ(json_decode(row.body, nullptr, actual), row.result) << row.body;
    EXPECT_TRUE(SameBytes(actual, expected)) << row.body << "\nactual:   " << EncodeToString(actual)
                                             << "\nexpected: " << EncodeToString(expected);
}

TEST_F(MappingTest, DecodesNumbersBySaturatingDoublesAndNarrowingInts) {
    const DecodeRow rows[] = {
        {"{}", 0, nullptr},
        {"[1, 2]", 0, nullptr},
        {"42", 0, nullptr},
        {"{\"count\": null}", 0, nullptr},
        {"{\"count\": 3.9}", 0, [](TEST_ALL_S &r) { r.iCount = 3; }},
        {"{\"count\": -3.9}", 0, [](TEST_ALL_S &r) { r.iCount = -3; }},
        {"{\"count\": 1e20}", 0, [](TEST_ALL_S &r) { r.iCount = 2147483647; }},
        {"{\"count\": -1e20}", 0, [](TEST_ALL_S &r) { r.iCount = -2147483647 - 1; }},
        {"{\"count\": true}", 0, [](TEST_ALL_S &r) { r.iCount = 1; }},
        {"{\"count\": false}", 0, [](TEST_ALL_S &r) { r.iCount = 0; }},
        {"{\"count\": 4294967298}", 0, [](TEST_ALL_S &r) { r.iCount = 2; }},
        {"{\"count\": -0}", 0, [](TEST_ALL_S &r) { r.iCount = 0; }},
        {"{\"size\": -1.5}", 0, [](TEST_ALL_S &r) { r.uiSize = 0; }},
        {"{\"size\": 1e10}", 0, [](TEST_ALL_S &r) { r.uiSize = 4294967295u; }},
        {"{\"size\": 4294967296}", 0, [](TEST_ALL_S &r) { r.uiSize = 0; }},
        {"{\"size\": -1}", 0, [](TEST_ALL_S &r) { r.uiSize = 4294967295u; }},
        {"{\"alpha\": 300}", 0, [](TEST_ALL_S &r) { r.ucAlpha = 44; }},
        {"{\"alpha\": 300.0}", 0, [](TEST_ALL_S &r) { r.ucAlpha = 44; }},
        {"{\"alpha\": 1e10}", 0, [](TEST_ALL_S &r) { r.ucAlpha = 255; }},
        {"{\"level\": 65535}", 0, [](TEST_ALL_S &r) { r.sLevel = -1; }},
        {"{\"level\": 3.7}", 0, [](TEST_ALL_S &r) { r.sLevel = 3; }},
        {"{\"level\": 1e20}", 0, [](TEST_ALL_S &r) { r.sLevel = -1; }},
        {"{\"mode\": -1.5}", 0, [](TEST_ALL_S &r) { r.enMode = TEST_MODE_OFF; }},
        {"{\"mode\": -1}", 0, [](TEST_ALL_S &r) { r.enMode = TEST_MODE_E(0xFFFFFFFFu); }},
        {"{\"mode\": 5e9}", 0, [](TEST_ALL_S &r) { r.enMode = TEST_MODE_E(0xFFFFFFFFu); }},
        {"{\"offset\": -1e19}", 0, [](TEST_ALL_S &r) { r.llOffset = INT64_MIN; }},
        {"{\"offset\": 1e19}", 0, [](TEST_ALL_S &r) { r.llOffset = INT64_MAX; }},
        {"{\"id\": 18446744073709551615}", 0, [](TEST_ALL_S &r) { r.ullId = UINT64_MAX; }},
        {"{\"id\": 9223372036854775807}", 0, [](TEST_ALL_S &r) { r.ullId = INT64_MAX; }},
        {"{\"id\": 7}", 0, [](TEST_ALL_S &r) { r.ullId = 7; }},
        {"{\"id\": -1}", 0, [](TEST_ALL_S &r) { r.ullId = UINT64_MAX; }},
        {"{\"id\": 1e30}", 0, [](TEST_ALL_S &r) { r.ullId = UINT64_MAX; }},
        {"{\"id\": -5.0}", 0, [](TEST_ALL_S &r) { r.ullId = 0; }},
        {"{\"flag\": false}", 0, [](TEST_ALL_S &r) { r.bFlag = false; }},
        {"{\"flag\": 0.5}", 0, [](TEST_ALL_S &r) { r.bFlag = false; }},
        {"{\"switch\": 0}", 0, [](TEST_ALL_S &r) { r.ucSwitch = 0; }},
    };
    for (const DecodeRow &row : rows) {
        ExpectDecodes(row);
    }
}

TEST_F(MappingTest, NanDecodesAsZero) {
    TEST_ALL_S record = Baseline();
    JsonTree body(cJSON_CreateObject(), &cJSON_Delete);
    cJSON_AddItemToObject(body.get(), "count", json_object_new_double(NAN));
    cJSON_AddItemToObject(body.get(), "id", json_object_new_double(NAN));
    ASSERT_EQ((jsonDecoder<TEST_ALL_S>::decode(body.get(), nullptr, record, NullAlloc{},
                                               NullDealloc{}, JSON_FORMAT_DEFAULT)),
              0);
    EXPECT_EQ(record.iCount, 0);
    EXPECT_EQ(record.ullId, 0u);
}

TEST_F(MappingTest, RefusesValuesOfTheWrongTypeAndStopsAtTheFirstFailure) {
    const DecodeRow rows[] = {
        {"{\"count\": \"3\"}", -1, nullptr},
        {"{\"count\": {}}", -1, nullptr},
        {"{\"count\": [1]}", -1, nullptr},
        {"{\"mode\": \"ON\"}", -1, nullptr},
        {"{\"id\": \"1\"}", -1, nullptr},
        {"{\"point\": {\"y\": \"a\"}}", -1, nullptr},
        {"{\"name\": 5}", -1, nullptr},
        // Members before the failing one keep their new values; those after it are untouched.
        {"{\"count\": 5, \"mode\": \"x\", \"size\": 9}", -1, [](TEST_ALL_S &r) { r.iCount = 5; }},
        {"{\"size\": 9, \"alpha\": \"x\"}", -1, nullptr},
        {"not json", -1, nullptr},
        {"{\"count\": 1e400}", -1, nullptr},
        {"", -1, nullptr},
        {"{\"count\": 1", -1, nullptr},
    };
    for (const DecodeRow &row : rows) {
        ExpectDecodes(row);
    }
}

TEST_F(MappingTest, DecodesTextsWithinTheirBoundsOnly) {
    static const std::string k176(176, 'a'), k177(177, 'b'), k96(96, 'c'), k97(97, 'd');
    struct Row {
        std::string body;
        int result;
        std::string name;
        std::string label;
    };
    const Row rows[] = {
        {"{\"name\": \"1234567\"}", 0, "1234567", "label"},
        {"{\"name\": \"12345678\"}", -1, "cam", "label"},
        {"{\"name\": \"\"}", 0, "", "label"},
        {"{\"name\": \"caf\u00e9\"}", 0, "caf\u00e9", "label"},
        {"{\"label\": {\"osdContent\": \"" + k176 + "\"}}", 0, "cam", k176},
        {"{\"label\": {\"osdContent\": \"" + k177 + "\"}}", -1, "cam", "label"},
        {"{\"label\": {}}", 0, "cam", "label"},
        {"{\"label\": 3}", 0, "cam", "label"},
        {"{\"label\": {\"osdContent\": 1}}", -1, "cam", "label"},
        {"{\"label\": {\"osdContent\": null}}", 0, "cam", "label"},
    };
    for (const Row &row : rows) {
        TEST_ALL_S record = Baseline();
        EXPECT_EQ(json_decode(row.body.c_str(), nullptr, record), row.result) << row.body;
        EXPECT_EQ(record.szName, row.name) << row.body;
        EXPECT_EQ(record.stLabel.osdContent, row.label) << row.body;
    }

    // The element texts of a record array have their own bound.
    TEST_ALL_S record = Baseline();
    std::string body = "{\"items\": [{\"prefixContent\": \"" + k96 + "\"}]}";
    ASSERT_EQ(json_decode(body.c_str(), nullptr, record), 0);
    EXPECT_EQ(record.astItem[0].prefixContent, k96);
    body = "{\"items\": [{\"prefixContent\": \"" + k97 + "\"}]}";
    EXPECT_EQ(json_decode(body.c_str(), nullptr, record), -1);
    EXPECT_EQ(record.astItem[0].prefixContent, k96);
}

TEST_F(MappingTest, DecodesNestedRecordsMemberByMember) {
    const DecodeRow rows[] = {
        {"{\"point\": {\"y\": 3}}", 0, [](TEST_ALL_S &r) { r.stPoint.sY = 3; }},
        {"{\"point\": {}}", 0, nullptr},
        {"{\"point\": 5}", 0, nullptr},
        {"{\"point\": [1, 2]}", 0, nullptr},
        {"{\"point\": {\"x\": 70000, \"y\": -1.9}}", 0,
         [](TEST_ALL_S &r) {
             r.stPoint = {4464, -1};
         }},
    };
    for (const DecodeRow &row : rows) {
        ExpectDecodes(row);
    }
}

TEST_F(MappingTest, ArraysSetTheirSharedCountAndOnlyTheElementsGiven) {
    const DecodeRow rows[] = {
        {"{\"types\": [1, 2, 3]}", 0,
         [](TEST_ALL_S &r) {
             r.uiItemNum = 3;
             r.aenType[0] = TEST_MODE_E(1);
             r.aenType[1] = TEST_MODE_E(2);
             r.aenType[2] = TEST_MODE_E(3);
         }},
        {"{\"types\": [1, 2, 3], \"space\": [9, 8, 7, 6, 5]}", 0,
         [](TEST_ALL_S &r) {
             r.uiItemNum = 5;
             r.aenType[0] = TEST_MODE_E(1);
             r.aenType[1] = TEST_MODE_E(2);
             r.aenType[2] = TEST_MODE_E(3);
             for (int i = 0; i < 5; ++i)
                 r.aullSpace[i] = 9 - i;
         }},
        {"{\"types\": [1, 2], \"itemNum\": 4}", 0,
         [](TEST_ALL_S &r) {
             r.uiItemNum = 4;
             r.aenType[0] = TEST_MODE_E(1);
             r.aenType[1] = TEST_MODE_E(2);
         }},
        {"{\"itemNum\": 1000}", 0, [](TEST_ALL_S &r) { r.uiItemNum = 1000; }},
        {"{\"types\": []}", 0, [](TEST_ALL_S &r) { r.uiItemNum = 0; }},
        {"{\"types\": [true, 2.9, -3, -2.5]}", 0,
         [](TEST_ALL_S &r) {
             r.uiItemNum = 4;
             r.aenType[0] = TEST_MODE_E(1);
             r.aenType[1] = TEST_MODE_E(2);
             r.aenType[2] = TEST_MODE_E(0xFFFFFFFDu);
             r.aenType[3] = TEST_MODE_E(0);
         }},
        {"{\"space\": [1e30, -2.0, true, 18446744073709551615]}", 0,
         [](TEST_ALL_S &r) {
             r.uiItemNum = 4;
             r.aullSpace[0] = UINT64_MAX;
             r.aullSpace[1] = 0;
             r.aullSpace[2] = 1;
             r.aullSpace[3] = UINT64_MAX;
         }},
        {"{\"items\": [{\"prefixContent\": \"x\"}, 5, null, {\"prefixEnable\": 1}]}", 0,
         [](TEST_ALL_S &r) {
             r.uiItemNum = 4;
             strcpy(r.astItem[0].prefixContent, "x");
             r.astItem[3].prefixEnable = 1;
         }},
        // Failures: not an array, an element of a refused type, more than the capacity.
        {"{\"types\": 5}", -1, nullptr},
        {"{\"types\": {}}", -1, nullptr},
        {"{\"types\": [1, \"x\", 3]}", -1,
         [](TEST_ALL_S &r) {
             r.uiItemNum = 3;
             r.aenType[0] = TEST_MODE_E(1);
         }},
        {"{\"space\": [4, null]}", -1,
         [](TEST_ALL_S &r) {
             r.uiItemNum = 2;
             r.aullSpace[0] = 4;
         }},
        {"{\"items\": [{\"prefixEnable\": []}]}", -1, [](TEST_ALL_S &r) { r.uiItemNum = 1; }},
        {"{\"types\": [0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,"
         "7]}",
         -1, [](TEST_ALL_S &r) { r.uiItemNum = 38; }},
    };
    for (const DecodeRow &row : rows) {
        ExpectDecodes(row);
    }

    // 37 elements are the capacity, accepted whole.
    std::string body = "{\"space\": [";
    for (int i = 0; i < kTestCapacity; ++i)
        body += (i ? "," : "") + std::to_string(i);
    body += "]}";
    TEST_ALL_S record = Baseline();
    ASSERT_EQ(json_decode(body.c_str(), nullptr, record), 0);
    EXPECT_EQ(record.uiItemNum, 37u);
    EXPECT_EQ(record.aullSpace[36], 36u);
}

TEST_F(MappingTest, DecodesTimeFormatsFromStringsAndNumbers) {
    const DecodeRow rows[] = {
        {"{\"start\": \"07:05\"}", 0, [](TEST_ALL_S &r) { r.usStart = 425; }},
        {"{\"start\": \"24:00\"}", 0, [](TEST_ALL_S &r) { r.usStart = 1440; }},
        {"{\"start\": 100}", 0, [](TEST_ALL_S &r) { r.usStart = 100; }},
        {"{\"start\": \"24:01\"}", -1, nullptr},
        {"{\"start\": \"8 o'clock\"}", -1, nullptr},
        {"{\"stamp\": \"2023-11-14 22:13:21\"}", 0, [](TEST_ALL_S &r) { r.iStamp = 1700000001; }},
        {"{\"stamp\": \"1969-12-31 23:59:58\"}", 0, [](TEST_ALL_S &r) { r.iStamp = -2; }},
        {"{\"stamp\": \"1969-12-31 23:59:59\"}", -1, nullptr},
        {"{\"stamp\": \"2023-11-14\"}", -1, nullptr},
        {"{\"switch\": \"on\"}", -1, nullptr},
    };
    for (const DecodeRow &row : rows) {
        ExpectDecodes(row);
    }
}

}  // namespace

namespace {

// A text member whose escaped form is longer than a bounded copy may take.
struct TEST_BIG_TEXT_S {
    char szText[6000];
};

}  // namespace

template <>
struct jsonSchema<TEST_BIG_TEXT_S> {
    static constexpr auto members() {
        return std::make_tuple(member(&TEST_BIG_TEXT_S::szText, "t"));
    }
};

namespace {

TEST_F(MappingTest, ATextTooLongToCopyFailsTheEncoding) {
    TEST_BIG_TEXT_S record;
    memset(record.szText, 'a', sizeof(record.szText) - 1);
    record.szText[sizeof(record.szText) - 1] = '\0';
    EXPECT_NE(EncodeToString(record), "<null>");
    memset(record.szText, '\x01', sizeof(record.szText) - 1);  // each one printed as \u0001
    EXPECT_EQ(EncodeToString(record), "<null>");
}

// Runs the call with its 1st, 2nd, ... allocation failing until the call no longer reaches the
// failure, checking each result outside the failing scope; returns the runs that failed one.
template <typename Call, typename Check>
int FailEachAllocation(Call call, Check check) {
    for (int iNth = 1;; ++iNth) {
        bool bTriggered = false;
        auto result = [&] {
            ScopedAllocationFailure failure(iNth);
            auto value = call();
            bTriggered = failure.Triggered();
            return value;
        }();
        check(iNth, result);
        if (!bTriggered) {
            return iNth - 1;
        }
    }
}

TEST_F(MappingTest, RunningOutOfMemoryEndsInNullOrMinusOneAndLeaksNothing) {
    TEST_ALL_S record = Baseline();
    record.uiItemNum = 2;
    const std::string expected = EncodeToString(record);

    int iEncodeRuns = FailEachAllocation([&] { return json_encode(record); },
                                         [](int iNth, char *pcText) {
                                             // A member that could not be made is null; the
                                             // rest is still a JSON object.
                                             if (pcText != nullptr) {
                                                 JsonTree tree = Parse(pcText);
                                                 EXPECT_TRUE(tree) << iNth;
                                             }
                                             free(pcText);
                                         });
    EXPECT_GT(iEncodeRuns, 10);

    JsonTree time(cJSON_CreateString("07:05"), &cJSON_Delete);
    {
        ScopedAllocationFailure failure(1);
        EXPECT_EQ(json_decode_hour_minute(time.get()), -1);
        EXPECT_EQ(json_decode_date_time(time.get()), -1);
        EXPECT_TRUE(failure.Triggered());
    }
}

}  // namespace
