// SPDX-License-Identifier: Apache-2.0
// Value converters: time of day, local date-time (under a zone with daylight saving), numeric
// arrays and the bounded text of a text record.
#include <gtest/gtest.h>

#include <string>

#include "mapping_records.h"

namespace {

class ConvertersTest : public ::testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
    }
    void TearDown() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

std::string TextOf(json_object *value) {
    JsonTree owned(value, &cJSON_Delete);
    return value == nullptr ? "<null>" : json_object_get_string(value);
}

JsonTree String(const char *text) {
    return JsonTree(cJSON_CreateString(text), &cJSON_Delete);
}

TEST_F(ConvertersTest, HourMinuteEncodesMinutesOfTheDay) {
    const std::pair<unsigned short, const char *> rows[] = {
        {0, "00:00"}, {425, "07:05"}, {1439, "23:59"}, {1440, "24:00"}, {1500, "25:00"}};
    for (const auto &row : rows) {
        EXPECT_EQ(TextOf(json_encode_hour_minute(row.first)), row.second) << row.first;
    }
}

TEST_F(ConvertersTest, HourMinuteDecodesOnlyWholeTimesOfTheDay) {
    const std::pair<const char *, int> rows[] = {
        {"00:00", 0},  {"23:59", 1439}, {"24:00", 1440}, {"7:05", 425}, {"24:01", -1},
        {"12:60", -1}, {"12:30 ", -1},  {"", -1},        {"12", -1},    {"ab:cd", -1},
        {"25:00", -1}, {"12:3x", -1},   {"24:00 ", -1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(json_decode_hour_minute(String(row.first).get()), row.second) << row.first;
    }
    JsonTree number(cJSON_CreateNumber(5), &cJSON_Delete);
    EXPECT_EQ(json_decode_hour_minute(number.get()), -1);
    EXPECT_EQ(json_decode_hour_minute(nullptr), -1);
}

TEST_F(ConvertersTest, DateTimeIsLocalAndDecodesAsStandardTime) {
    // Winter (CET, +1): both directions agree.
    const int kWinter = 1673784000;  // 2023-01-15 12:00:00 UTC
    EXPECT_EQ(TextOf(json_encode_date_time(kWinter)), "2023-01-15 13:00:00");
    EXPECT_EQ(json_decode_date_time(String("2023-01-15 13:00:00").get()), kWinter);

    // Summer (CEST, +2): the text is read as standard time, one hour later than the seconds
    // that print as it.
    const int kSummer = 1688220000;  // 2023-07-01 14:00:00 UTC
    EXPECT_EQ(TextOf(json_encode_date_time(kSummer)), "2023-07-01 16:00:00");
    EXPECT_EQ(json_decode_date_time(String("2023-07-01 16:00:00").get()), kSummer + 3600);

    EXPECT_EQ(TextOf(json_encode_date_time(0)), "1970-01-01 01:00:00");
}

TEST_F(ConvertersTest, DateTimeDecodeNormalisesDaysAndRefusesPartialTexts) {
    const std::pair<const char *, long long> rows[] = {
        {"2023-02-30 10:00:00", 1677747600},  // 2023-03-02 10:00:00 CET
        {"2023-03-02 10:00:00", 1677747600}, {"2023-03-02 10:00", -1},    {"2023-03-02", -1},
        {"2023-03-02 10:00:00Z", -1},        {"2023-03-02T10:00:00", -1}, {"", -1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(json_decode_date_time(String(row.first).get()), row.second) << row.first;
    }
    EXPECT_EQ(json_decode_date_time(nullptr), -1);
}

TEST_F(ConvertersTest, DateTimeMemberRoundTripsOutsideDaylightSaving) {
    TEST_ALL_S record = ZeroRecord<TEST_ALL_S>();
    record.iStamp = 1673784000;
    std::string text = EncodeToString(record);
    EXPECT_NE(text.find("\"stamp\": \"2023-01-15 13:00:00\""), std::string::npos) << text;
    TEST_ALL_S decoded = ZeroRecord<TEST_ALL_S>();
    ASSERT_EQ(json_decode(text.c_str(), nullptr, decoded), 0);
    EXPECT_TRUE(SameBytes(decoded, record));
}

TEST_F(ConvertersTest, DecodeArrayReadsNumbersUpToTheCount) {
    struct Row {
        const char *json;
        int count;
        int result;
        std::vector<unsigned long long> elements;  // the four elements afterwards
    };
    const Row rows[] = {
        {"[]", 4, 0, {7, 7, 7, 7}},
        {"[1, 2, 3]", 4, 0, {1, 2, 3, 7}},
        {"[1, 2, 3]", 2, 0, {1, 2, 7, 7}},
        {"[1, 2, 3]", 0, 0, {7, 7, 7, 7}},
        {"[true, false, 2.99, -8.5]", 4, 0, {1, 0, 2, 0}},
        {"[18446744073709551615, -1]", 4, 0, {UINT64_MAX, UINT64_MAX, 7, 7}},
        {"[1, \"2\", 3]", 4, -1, {1, 7, 7, 7}},
        {"[1, null]", 4, -1, {1, 7, 7, 7}},
        {"[[1]]", 4, -1, {7, 7, 7, 7}},
        {"{\"a\": 1}", 4, -1, {7, 7, 7, 7}},
        {"5", 4, -1, {7, 7, 7, 7}},
    };
    for (const Row &row : rows) {
        JsonTree tree = Parse(row.json);
        ASSERT_TRUE(tree) << row.json;
        std::vector<unsigned long long> elements(4, 7);
        EXPECT_EQ(json_decode_array(tree.get(), nullptr, elements.data(), row.count), row.result)
            << row.json;
        EXPECT_EQ(elements, row.elements) << row.json;
    }
    std::vector<unsigned long long> elements(1, 7);
    EXPECT_EQ(json_decode_array(nullptr, nullptr, elements.data(), 1), -1);
}

TEST_F(ConvertersTest, DecodeTextRecordKeepsTheOldTextUnlessANewOneFits) {
    const std::string k176(176, 'x'), k177(177, 'y');
    struct Row {
        std::string json;
        int result;
        std::string text;
    };
    const Row rows[] = {
        {"{\"label\": {\"osdContent\": \"" + k176 + "\"}}", 0, k176},
        {"{\"label\": {\"osdContent\": \"" + k177 + "\"}}", -1, "old"},
        {"{\"label\": {\"osdContent\": \"\"}}", 0, ""},
        {"{\"label\": {\"osdContent\": \"\u8def\u53e3\"}}", 0, "\u8def\u53e3"},
        {"{\"label\": {\"osdContent\": 12}}", -1, "old"},
        {"{\"label\": {\"osdContent\": [\"a\"]}}", -1, "old"},
        {"{\"label\": {\"other\": \"a\"}}", 0, "old"},
        {"{\"label\": \"text\"}", 0, "old"},
        {"{\"other\": {\"osdContent\": \"a\"}}", 0, "old"},
    };
    for (const Row &row : rows) {
        JsonTree tree = Parse(row.json);
        ASSERT_TRUE(tree) << row.json;
        TEST_ALL_S record = ZeroRecord<TEST_ALL_S>();
        strcpy(record.stLabel.osdContent, "old");
        EXPECT_EQ(json_decode_text_record(&TEST_ALL_S::stLabel, "label", tree.get(), record),
                  row.result)
            << row.json;
        EXPECT_EQ(record.stLabel.osdContent, row.text) << row.json;
    }
}

}  // namespace
