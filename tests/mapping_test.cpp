// SPDX-License-Identifier: Apache-2.0
// The business header's JSON mapping (json_encode, json_decode, the converters) and shared Format
// and Parse stages, over test records holding a member of every supported kind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <optional>

#include "alloc_fault.h"
#include "log_capture.h"
#include "stage_request.h"
#include "talapi_business_common.h"

enum TEST_MODE_E : unsigned int { TEST_MODE_OFF = 0, TEST_MODE_ON = 7 };
struct TEST_POINT_S {
    short sX, sY;
};
struct TEST_TEXT_S {
    char osdContent[177];
};
struct TEST_ITEM_S {
    int prefixEnable;
    char prefixContent[97];
};
constexpr int kCapacity = 37;
struct TEST_ALL_S {
    bool bFlag;
    unsigned char ucAlpha, ucSwitch;
    short sLevel;
    unsigned short usStart;
    int iCount, iStamp;
    TEST_MODE_E enMode, aenType[kCapacity];
    unsigned int uiSize, uiItemNum;
    long long llOffset;
    unsigned long long ullId, aullSpace[kCapacity];
    char szName[8];
    TEST_POINT_S stPoint;
    TEST_TEXT_S stLabel;
    TEST_ITEM_S astItem[kCapacity];
};
struct TEST_OUTER_S {  // a nested record that fails becomes null
    TEST_ALL_S stInner;
    int iAfter;
    char szBig[6000];  // escaped, it can be longer than a bounded copy may take
};

template <>
struct jsonTextRecord<TEST_TEXT_S> : std::true_type {};
#define TEST_SCHEMA(R, ...)                                                      \
    template <>                                                                  \
    struct jsonSchema<R> {                                                       \
        using T = R;                                                             \
        static constexpr auto members() { return std::make_tuple(__VA_ARGS__); } \
    }
TEST_SCHEMA(TEST_POINT_S, member(&T::sX, "x"), member(&T::sY, "y"));
TEST_SCHEMA(TEST_TEXT_S, member(&T::osdContent, "osdContent"));
TEST_SCHEMA(TEST_ITEM_S, member(&T::prefixEnable, "enable"), member(&T::prefixContent, "prefix"));
TEST_SCHEMA(TEST_ALL_S, member(&T::bFlag, "flag"), member(&T::ucAlpha, "alpha"),
            member(&T::sLevel, "level"), member(&T::iCount, "count"), member(&T::enMode, "mode"),
            member(&T::uiSize, "size"), member(&T::llOffset, "offset"), member(&T::ullId, "id"),
            member(&T::szName, "name"), member(&T::usStart, "start", JSON_FORMAT_HOUR_MINUTE),
            member(&T::iStamp, "stamp", JSON_FORMAT_DATE_TIME),
            member(&T::ucSwitch, "switch", JSON_FORMAT_BOOL), member(&T::stPoint, "point"),
            member(&T::stLabel, "label"), array_member(&T::uiItemNum, &T::aenType, "types"),
            array_member(&T::uiItemNum, &T::aullSpace, "space"),
            array_member(&T::uiItemNum, &T::astItem, "items"), member(&T::uiItemNum, "itemNum"));
TEST_SCHEMA(TEST_OUTER_S, member(&T::stInner, "inner"), member(&T::iAfter, "after"),
            member(&T::szBig, "big"));

namespace {

using JsonTree = std::unique_ptr<json_object, decltype(&cJSON_Delete)>;
#define SET(...) [](TEST_ALL_S &r) { __VA_ARGS__; }
using DecodeRow = std::tuple<std::string, int, void (*)(TEST_ALL_S &)>;  // body, result, change

// Records are value-initialised (T()), which zeroes their padding, and so compare with memcmp.
class MappingTest : public ::testing::Test {
  protected:
    void SetUp() override {  // local date-times, in a zone with daylight saving time
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
    }
    // Distinct values everywhere, so that a member that should keep its value visibly does.
    static TEST_ALL_S Baseline() {
        TEST_ALL_S r = TEST_ALL_S();
        r.bFlag = true, r.ucAlpha = 200, r.sLevel = -2, r.iCount = 11, r.enMode = TEST_MODE_ON;
        r.uiSize = 4000000000u, r.llOffset = -5000000000LL, r.ullId = UINT64_MAX;
        r.usStart = 480, r.iStamp = 1700000000, r.ucSwitch = 2, r.stPoint = {-7, 9};
        r.uiItemNum = 2;
        strcpy(r.szName, "n");
        strcpy(r.stLabel.osdContent, "t");
        for (int i = 0; i < kCapacity; ++i) {
            r.aenType[i] = TEST_MODE_E(100 + i);
            r.aullSpace[i] = 1000 + i;
            r.astItem[i].prefixEnable = i % 2;
            snprintf(r.astItem[i].prefixContent, sizeof(TEST_ITEM_S::prefixContent), "p%d", i);
        }
        return r;
    }
    template <typename E, std::size_t N>
    static void Fill(E (&elements)[N], std::vector<unsigned long long> values) {
        std::transform(values.begin(), values.end(), elements, [](auto v) { return E(v); });
    }
    template <typename T>  // the record's JSON text, or "<null>" when it does not encode
    static std::string Encode(const T &record) {
        std::unique_ptr<char, decltype(&free)> text(json_encode(record), &free);
        return text ? text.get() : "<null>";
    }
    template <typename T>  // the compact JSON of the record or of one key, or "<absent>"
    static std::string Json(const T &record, const char *pcKey = nullptr) {
        JsonTree tree = Parse(Encode(record));
        json_object *value = pcKey ? cJSON_GetObjectItem(tree.get(), pcKey) : tree.get();
        return value ? json_object_to_json_string_ext(value, JSON_C_TO_STRING_PLAIN) : "<absent>";
    }
    static JsonTree Parse(const std::string &t) { return {cJSON_Parse(t.c_str()), &cJSON_Delete}; }
    static JsonTree String(const char *pc) { return {cJSON_CreateString(pc), &cJSON_Delete}; }
    static std::string TextOf(json_object *value) {  // and frees the value
        return value ? json_object_get_string(JsonTree(value, &cJSON_Delete).get()) : "<null>";
    }
    // Decodes each body into the baseline: the result and the whole record must be as expected.
    static void ExpectDecodes(std::initializer_list<DecodeRow> rows) {
        for (const auto &[body, iResult, change] : rows) {
            TEST_ALL_S actual = Baseline(), expected = Baseline();
            change(expected);
            EXPECT_EQ(json_decode(body.c_str(), nullptr, actual), iResult) << body;
            EXPECT_EQ(memcmp(&actual, &expected, sizeof(actual)), 0)
                << body << "\nactual:   " << Encode(actual) << "\nexpected: " << Encode(expected);
        }
    }
    static void ExpectUnchanged(int iResult, std::initializer_list<std::string> bodies) {
        for (const std::string &body : bodies)
            ExpectDecodes({{body, iResult, [](TEST_ALL_S &) {}}});
    }
};

// Each kind encodes in its natural form, keys in schema order, and decodes back to the same bytes;
// a count above the capacity or a text too long to copy fails the record (null in a parent).
TEST_F(MappingTest, EncodesEachKindRoundTripsAndFailsWhatCannotBeWritten) {
    TEST_ALL_S record = Baseline();
    record.enMode = TEST_MODE_E(0xFFFFFFFFu);  // above INT_MAX, as int
    memcpy(record.szName, "abcdefgh", 8);      // a text that fills its field has no NUL
    EXPECT_EQ(Json(record),
              R"({"flag":true,"alpha":200,"level":-2,"count":11,"mode":-1,"size":4000000000,)"
              R"("offset":-5000000000,"id":18446744073709551615,"name":"abcdefgh","start":"08:00",)"
              R"("stamp":"2023-11-14 23:13:20","switch":true,"point":{"x":-7,"y":9},)"
              R"("label":{"osdContent":"t"},"types":[100,101],"space":[1000,1001],)"
              R"("items":[{"enable":0,"prefix":"p0"},{"enable":1,"prefix":"p1"}],"itemNum":2})");
    record.ucSwitch = 0;
    record.uiItemNum = 0;  // no elements: the arrays are left out
    memcpy(record.szName, "ab\0cdefg", 8);
    EXPECT_EQ(Json(record, "switch") + Json(record, "name") + Json(record, "itemNum") +
                  Json(record, "types") + Json(record, "space") + Json(record, "items"),
              R"(false"ab"0<absent><absent><absent>)");
    record.uiItemNum = kCapacity + 1;
    EXPECT_EQ(Encode(record), "<null>");
    TEST_OUTER_S outer = TEST_OUTER_S();
    outer.stInner = record;  // the members after it are still written
    EXPECT_EQ(Json(outer), R"({"inner":null,"after":0,"big":""})");
    outer.stInner.uiItemNum = kCapacity;
    memset(outer.szBig, '\x01', sizeof(outer.szBig) - 1);  // each one printed as \u0001
    EXPECT_EQ(Encode(outer), "<null>");
    TEST_ALL_S original = Baseline(), decoded = TEST_ALL_S();  // full texts and arrays
    original.uiItemNum = kCapacity;
    original.ucSwitch = 1;  // the boolean format keeps 0 or 1
    memset(original.stLabel.osdContent, 'L', 176);
    memset(original.astItem[36].prefixContent, 'P', 96);
    EXPECT_EQ(json_decode(Encode(original).c_str(), nullptr, decoded), 0);
    EXPECT_EQ(memcmp(&decoded, &original, sizeof(original)), 0) << Encode(decoded);
}

// Doubles truncate toward zero and saturate to the member's range (NaN gives 0), ints and
// booleans keep their low bits, null is no value; a time member also takes its local text, whole.
TEST_F(MappingTest, DecodesScalarsByNarrowingSaturatingOrReadingTheirTimeText) {
    ExpectDecodes({
        {R"({"count": 3.9, "level": 3.7})", 0, SET(r.iCount = 3; r.sLevel = 3)},
        {R"({"count": -3.9, "alpha": 300.0})", 0, SET(r.iCount = -3; r.ucAlpha = 44)},
        {R"({"count": 1e20, "level": 1e20})", 0, SET(r.iCount = INT32_MAX; r.sLevel = -1)},
        {R"({"count": -1e20, "alpha": 1e10})", 0, SET(r.iCount = INT32_MIN; r.ucAlpha = 255)},
        {R"({"count": true, "flag": 0.5})", 0, SET(r.iCount = 1; r.bFlag = false)},
        {R"({"count": 4294967298, "alpha": 300})", 0, SET(r.iCount = 2; r.ucAlpha = 44)},
        {R"({"count": false, "level": 65535})", 0, SET(r.iCount = 0; r.sLevel = -1)},
        {R"({"size": -1.5, "mode": -1.5})", 0, SET(r.uiSize = 0; r.enMode = TEST_MODE_OFF)},
        {R"({"size": 1e10, "mode": 5e9})", 0, SET(r.uiSize = ~0u; r.enMode = TEST_MODE_E(~0u))},
        {R"({"size": -1, "mode": -1})", 0, SET(r.uiSize = ~0u; r.enMode = TEST_MODE_E(~0u))},
        {R"({"size": 4294967296, "flag": false})", 0, SET(r.uiSize = 0; r.bFlag = false)},
        {R"({"offset": -1e19, "id": -5.0})", 0, SET(r.llOffset = INT64_MIN; r.ullId = 0)},
        {R"({"offset": 1e19, "id": 1e30})", 0, SET(r.llOffset = INT64_MAX; r.ullId = ~0ull)},
        {R"({"id": 9223372036854775807, "start": 9})", 0, SET(r.ullId = INT64_MAX; r.usStart = 9)},
        {R"({"id": -1, "switch": 0})", 0, SET(r.ullId = ~0ull; r.ucSwitch = 0)},
        {R"({"start": "07:05", "stamp": "2023-11-14 23:13:21"})", 0,
         SET(r.usStart = 425; r.iStamp = 1700000001)},
        {R"({"stamp": "1970-01-01 00:59:58"})", 0, SET(r.iStamp = -2)},  // -1 is the failure
    });
    ExpectUnchanged(-1, {R"({"start": "24:01"})", R"({"stamp": "1970-01-01 00:59:59"})",
                         R"({"switch": "on"})", R"({"count": "3"})", R"({"id": "1"})"});
    TEST_ALL_S record = Baseline();  // NaN, which JSON text cannot carry
    JsonTree nan(cJSON_CreateObject(), &cJSON_Delete);
    cJSON_AddItemToObject(nan.get(), "count", json_object_new_double(NAN));
    EXPECT_EQ((jsonDecoder<TEST_ALL_S>::decode(nan.get(), nullptr, record, {}, {}, {})), 0);
    EXPECT_EQ(record.iCount, 0);
}

// Members decode in order, nested ones member by member, a text only when it fits with its NUL,
// an array setting the shared count and the elements given, up to its capacity; a refusal stops.
TEST_F(MappingTest, DecodesMemberByMemberArraysIncludedAndStopsAtTheFirstRefusal) {
    const std::string label = R"({"label": {"osdContent": ")", item = R"({"items": [{"prefix": ")";
    ExpectDecodes({
        {R"({"point": {"y": 3}})", 0, SET(r.stPoint.sY = 3)},
        {R"({"point": {"x": 70000, "y": -1.9}})", 0, SET(r.stPoint = {4464, -1})},
        {R"({"count": 5, "mode": "x", "size": 9})", -1, SET(r.iCount = 5)},
        {R"({"name": "1234567"})", 0, SET(strcpy(r.szName, "1234567"))},
        {R"({"name": "", "label": {"osdContent": ""}})", 0,
         SET(r.szName[0] = 0; r.stLabel.osdContent[0] = 0)},
        {"{\"name\": \"caf\u00e9\"}", 0, SET(strcpy(r.szName, "caf\u00e9"))},
        {label + std::string(176, 'a') + "\"}}", 0, SET(memset(r.stLabel.osdContent, 'a', 176))},
        {item + std::string(96, 'c') + "\"}]}", 0,
         SET(r.uiItemNum = 1; memset(r.astItem[0].prefixContent, 'c', 96))},
        {item + std::string(97, 'd') + "\"}]}", -1, SET(r.uiItemNum = 1)},
        {R"({"types": [1, 2, 3], "space": [9, 8, 7, 6, 5]})", 0,
         SET(r.uiItemNum = 5; Fill(r.aenType, {1, 2, 3}); Fill(r.aullSpace, {9, 8, 7, 6, 5}))},
        {R"({"types": [1, 2], "itemNum": 4})", 0, SET(r.uiItemNum = 4; Fill(r.aenType, {1, 2}))},
        {R"({"types": []})", 0, SET(r.uiItemNum = 0)},
        {R"({"types": [true, 2.9, -3, -2.5, false]})", 0,
         SET(r.uiItemNum = 5; Fill(r.aenType, {1, 2, 0xFFFFFFFDu, 0, 0}))},
        {R"({"space": [1e30, -2.0, true, false, 18446744073709551615, -1]})", 0,
         SET(r.uiItemNum = 6; Fill(r.aullSpace, {~0ull, 0, 1, 0, ~0ull, ~0ull}))},
        {R"({"items": [{"prefix": "x"}, 5, null, {"enable": 1}]})", 0,
         SET(r.uiItemNum = 4; strcpy(r.astItem[0].prefixContent, "x");
             r.astItem[3].prefixEnable = 1)},
        {R"({"types": [1, "x", 3]})", -1, SET(r.uiItemNum = 3; Fill(r.aenType, {1}))},
        {R"({"space": [4, 5, null]})", -1, SET(r.uiItemNum = 3; Fill(r.aullSpace, {4, 5}))},
        {R"({"items": [{"enable": []}]})", -1, SET(r.uiItemNum = 1)},
        {R"({"types": [0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,8,9,)"
         R"(0,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7]})",
         -1, SET(r.uiItemNum = 38)},  // 37: round trip
    });
    ExpectUnchanged(0, {"42", R"({"count": null})", R"({"point": 5})", R"({"label": {}})",
                        R"({"label": {"osdContent": null}})"});
    ExpectUnchanged(-1, {R"({"count": [1]})", R"({"point": {"y": "a"}})", R"({"name": 5})",
                         R"({"name": "12345678"})", label + std::string(177, 'b') + "\"}}",
                         R"({"label": {"osdContent": 1}})", "not json", R"({"types": 5})",
                         R"({"size": 9, "alpha": "x"})"});  // alpha comes first
    const std::pair<int, std::vector<unsigned long long>> counts[] = {
        {4, {1, 2, 3, 7}}, {2, {1, 2, 7, 7}}};  // read directly: min(array size, count)
    for (const auto &[iCount, elements] : counts) {
        std::vector<unsigned long long> actual(4, 7);
        EXPECT_EQ(json_decode_array(Parse("[1, 2, 3]").get(), nullptr, actual.data(), iCount), 0);
        EXPECT_EQ(actual, elements) << iCount;
    }
    EXPECT_EQ(json_decode_array<unsigned long long>(nullptr, nullptr, nullptr, 1), -1);
}

// Times of the day are "%H:%M" (1440 minutes: "24:00"), date-times local, both decoded from whole
// texts only; in summer a date-time is read as standard time, an hour after the one it prints.
TEST_F(MappingTest, ConvertsTimesOfTheDayAndLocalDateTimes) {
    const std::pair<unsigned short, const char *> minutes[] = {
        {0, "00:00"}, {425, "07:05"}, {1439, "23:59"}, {1440, "24:00"}, {1500, "25:00"}};
    for (const auto &[usMinutes, pcText] : minutes)
        EXPECT_EQ(TextOf(json_encode_hour_minute(usMinutes)), pcText);
    const std::pair<const char *, int> hourMinute[] = {
        {"00:00", 0},  {"23:59", 1439}, {"24:00", 1440}, {"7:05", 425}, {"24:01", -1},
        {"12:60", -1}, {"12:30 ", -1},  {"", -1},        {"12", -1},    {"ab:cd", -1},
        {"25:00", -1}, {"12:3x", -1},   {"24:00 ", -1}};
    for (const auto &[pcText, iMinutes] : hourMinute)
        EXPECT_EQ(json_decode_hour_minute(String(pcText).get()), iMinutes) << pcText;
    EXPECT_EQ(json_decode_hour_minute(JsonTree(cJSON_CreateNumber(5), &cJSON_Delete).get()), -1);
    EXPECT_EQ(json_decode_date_time(nullptr), -1);
    const int kWinter = 1673784000, kSummer = 1688220000;  // 2023-01-15 12:00, 07-01 14:00 UTC
    EXPECT_EQ(TextOf(json_encode_date_time(kWinter)), "2023-01-15 13:00:00");
    EXPECT_EQ(TextOf(json_encode_date_time(kSummer)), "2023-07-01 16:00:00");
    EXPECT_EQ(json_decode_date_time(String("2023-01-15 13:00:00").get()), kWinter);
    EXPECT_EQ(json_decode_date_time(String("2023-07-01 16:00:00").get()), kSummer + 3600);
    EXPECT_EQ(json_decode_date_time(String("2023-02-30 10:00:00").get()), 1677747600);  // 03-02
    for (const char *pcText :
         {"2023-03-02 10:00", "2023-03-02", "2023-03-02 10:00:00Z", "2023-03-02T10:00:00", ""})
        EXPECT_EQ(json_decode_date_time(String(pcText).get()), -1) << pcText;
}

// Format answers the record whatever the result, else the envelope, and fails on Copy2Buf's -1;
// Parse moves the decoded PreProc record to pParseOut or (4) leaves it, logging its own line.
TEST_F(MappingTest, SharedStagesFormatOrParseTheRecordAndReportEachFailure) {
    StageRequest q("PUT", "/api/v1/itgt/x", "");
    auto [h, i, b] = std::make_tuple(&q.stHeader, &q.stCtInt, &q.response.stBuf);
    q.response.iAnswer = -2;  // any answer but -1 is taken
    LogCapture logs;
    EXPECT_EQ(FormatCommonResponse<TEST_ALL_S>(h, VW_RESULT_PARAM_ERR, i, b), 0);
    EXPECT_EQ(q.response.text, Encode(FillResponseStatusParam(h, VW_RESULT_PARAM_ERR)));
    TEST_ALL_S record = Baseline();
    i->pRunOut = &record;
    EXPECT_EQ(FormatCommonResponse<TEST_ALL_S>(h, VW_RESULT_SEND_FAIL, i, b), 0);
    EXPECT_EQ(q.response.text, Encode(record));
    record.uiItemNum = kCapacity + 1;  // does not encode: nothing is written
    EXPECT_EQ(FormatCommonResponse<TEST_ALL_S>(h, VW_RESULT_OK, i, b), -1);
    i->pRunOut = nullptr;

    const std::tuple<const char *, int, short, short> parses[] = {
        {R"({"y": 8})", 0, 3, 8}, {R"({"x": 5, "y": "8"})", 4, 5, 4}, {R"({"x": 5)", 4, 3, 4}};
    for (const auto &[pcBody, iResult, sX, sY] : parses) {  // sX, sY: the point afterwards
        TEST_POINT_S before{3, 4};
        tagHTTP_CNTENT_INTER_S stCtIn{&before, nullptr, nullptr};  // PreProc, Parse, Run
        EXPECT_EQ(ParseCommon<TEST_POINT_S>(h, q.Body(pcBody), &stCtIn), iResult) << pcBody;
        EXPECT_EQ(stCtIn.pParseOut, iResult == 0 ? &before : nullptr) << pcBody;
        EXPECT_EQ(stCtIn.pPreProcOut, iResult == 0 ? nullptr : &before) << pcBody;
        EXPECT_EQ(std::make_pair(before.sX, before.sY), std::make_pair(sX, sY)) << pcBody;
    }
    const int iLine = logs.DebugEntries().empty() ? 0 : logs.DebugEntries().back().line;
    const std::string kDecode = Printf("[TALAPI]:ParseCommon[%d] json decode fail\n", iLine);
    std::vector<LogLine> expected(3, {VW_LOG_ERROR, "talapi_business_common", kDecode});
    expected[0].message = "[TALAPI]:FormatCommonResponse: json_encode fail";
    EXPECT_EQ(BusinessLines(logs), expected);

    // Refused, writing nothing: a missing argument, PreProc record or Copy2Buf.
    EXPECT_EQ(ParseCommon<TEST_POINT_S>(nullptr, q.Body("{}"), i), -1);
    EXPECT_EQ(ParseCommon<TEST_POINT_S>(h, nullptr, i), -1);
    EXPECT_EQ(ParseCommon<TEST_POINT_S>(h, q.Body("{}"), nullptr), -1);
    EXPECT_EQ(ParseCommon<TEST_POINT_S>(h, q.Body("{}"), i), -1);
    b->Copy2Buf = nullptr;
    EXPECT_EQ(FormatCommonResponse<TEST_ALL_S>(h, VW_RESULT_OK, i, b), -1);
    EXPECT_EQ(q.response.iCalls, 2);  // only the record and the envelope were written
}

// With its 1st, 2nd, ... allocation failing, json_encode ends in null or JSON (what could not be
// made is null) and a time decode in -1; the sanitizers and valgrind see that nothing leaks.
TEST_F(MappingTest, RunningOutOfMemoryEndsInNullOrMinusOne) {
    const TEST_ALL_S all = Baseline();
    int iNth = 0;
    for (bool bTriggered = true; bTriggered;) {
        std::optional<ScopedAllocationFailure> failure(std::in_place, ++iNth);
        std::unique_ptr<char, decltype(&free)> text(json_encode(all), &free);
        bTriggered = failure->Triggered();
        failure.reset();  // the check below allocates
        EXPECT_TRUE(!text || Parse(text.get())) << iNth;
    }
    EXPECT_GT(iNth, 11);
    JsonTree time = String("07:05");
    ScopedAllocationFailure failure(1);
    EXPECT_EQ(json_decode_hour_minute(time.get()), -1);
    EXPECT_EQ(json_decode_date_time(time.get()), -1);
    EXPECT_TRUE(failure.Triggered());
}

// Every path releases the JSON trees and text copies it makes: after a first run (the logs'
// one-time set-up), each operation leaves the thread holding as many blocks as before.
TEST_F(MappingTest, ReleasesWhatItAllocatesOnEveryPath) {
    VW_SetDebugLogFile("/dev/null");  // the failure paths log
    TEST_ALL_S all = Baseline(), tooMany = Baseline(), scratch;
    tooMany.uiItemNum = kCapacity + 1;
    TEST_OUTER_S outer = TEST_OUTER_S();  // a nested record that fails, a text too long to copy
    outer.stInner = tooMany;
    memset(outer.szBig, '\x01', sizeof(outer.szBig) - 1);
    const std::string text = Encode(all);
    JsonTree number(cJSON_CreateNumber(5), &cJSON_Delete);
    StageRequest q("PUT", "/api/v1/itgt/x", "");
    TEST_POINT_S point;  // the body does not decode, so it stays the PreProc record
    tagHTTP_CNTENT_INTER_S stCtIn{&point, nullptr, nullptr};
    const std::pair<const char *, std::function<void()>> rows[] = {
        {"encode", [&] { free(json_encode(all)); }},
        {"encode failures", [&] { free(json_encode(outer)); }},
        {"decode", [&] { json_decode(text.c_str(), nullptr, scratch = all); }},
        {"decode refused", [&] { json_decode(R"({"start": "24:01"})", nullptr, scratch = all); }},
        {"time from a number", [&] { json_decode_hour_minute(number.get()); }},
        {"parse refused",
         [&] { ParseCommon<TEST_POINT_S>(&q.stHeader, q.Body(R"({"y": "a"})"), &stCtIn); }},
    };
    for (const auto &[pcName, fnRun] : rows) {
        fnRun();
        const long long llBefore = AllocationBalance();
        fnRun();
        EXPECT_EQ(AllocationBalance(), llBefore) << pcName;
    }
    VW_SetDebugLogFile(nullptr);
}

}  // namespace
