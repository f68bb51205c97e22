// SPDX-License-Identifier: Apache-2.0
// The JSON mapping: any text decoded into a record with one member of every kind, that record
// encoded and decoded again (the round trip must be exact), and the value converters fed with
// the text's values.
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_records.h"

namespace {

void Check(bool bHolds, const char *pcWhat) {
    if (!bHolds) {
        fprintf(stderr, "broken invariant: %s\n", pcWhat);
        abort();
    }
}

using Text = std::unique_ptr<char, decltype(&free)>;

// The record's members as a decode of its own encoding gives them back: the bool-format member
// as 0 or 1 and no array elements past the count.
TEST_ALL_S Normalised(TEST_ALL_S record) {
    record.ucSwitch = record.ucSwitch != 0;
    for (unsigned int i = record.uiItemNum; i < kTestCapacity; ++i) {
        record.aenType[i] = TEST_MODE_E{};
        record.aullSpace[i] = 0;
        memset(&record.astItem[i], 0, sizeof(record.astItem[i]));
    }
    return record;
}

void CheckRoundTrip(TEST_ALL_S record) {
    Text first(json_encode(record), &free);
    Check((first != nullptr) == (record.uiItemNum <= kTestCapacity), "encodes unless count > 37");
    if (first == nullptr) {
        return;
    }
    // Minutes past the day are written as hours past 24, which no decode accepts; and the
    // date-time decoder's failure value -1 is also the second before the epoch.
    if (record.usStart > 1440 || record.iStamp == -1) {
        record.usStart %= 1441;
        record.iStamp = record.iStamp == -1 ? 0 : record.iStamp;
        first.reset(json_encode(record));
    }
    TEST_ALL_S decoded = ZeroRecord<TEST_ALL_S>();
    Check(json_decode(first.get(), nullptr, decoded) == 0, "an encoding decodes");
    TEST_ALL_S expected = Normalised(record);
    Check(SameBytes(decoded, expected), "a round trip keeps every member");
    Text second(json_encode(decoded), &free);
    Check(second != nullptr && strcmp(first.get(), second.get()) == 0, "re-encoding is stable");
}

// The converters on one value; the record's decode calls them only for strings and arrays.
void CheckConverters(json_object *value, size_t count) {
    bool bString = json_object_get_type(value) == json_type_string;
    int minutes = json_decode_hour_minute(value);
    Check(minutes == -1 || (bString && minutes >= 0 && minutes <= 1440), "minutes of a day");
    if (minutes >= 0) {
        JsonTree text(json_encode_hour_minute(static_cast<unsigned short>(minutes)), &cJSON_Delete);
        Check(json_decode_hour_minute(text.get()) == minutes, "a time of day round-trips");
    }
    long long seconds = json_decode_date_time(value);
    Check(seconds == -1 || bString, "only a string is a date-time");
    if (seconds != -1 && seconds >= INT_MIN && seconds <= INT_MAX) {
        JsonTree text(json_encode_date_time(static_cast<int>(seconds)), &cJSON_Delete);
        Check(json_decode_date_time(text.get()) == seconds, "a date-time round-trips");
    }

    constexpr unsigned long long kUnset = 0xA5A5A5A5A5A5A5A5ULL;
    std::vector<unsigned long long> elements(41, kUnset);
    int result = json_decode_array(value, nullptr, elements.data(), static_cast<int>(count));
    bool bArray = json_object_get_type(value) == json_type_array;
    Check(result == 0 || result == -1, "an array decodes to 0 or -1");
    Check(bArray || result == -1, "only an array decodes as one");
    size_t size = static_cast<size_t>(cJSON_GetArraySize(value));
    for (size_t i = 0; i < elements.size(); ++i) {
        json_object *item = cJSON_GetArrayItem(value, static_cast<int>(i));
        if (i >= count || i >= size || !bArray) {
            Check(elements[i] == kUnset, "elements past the count keep their values");
        } else if (result == 0 && json_object_get_type(item) == json_type_int &&
                   json_object_get_int64(item) >= 0 && json_object_get_int64(item) < INT64_MAX) {
            Check(elements[i] == static_cast<unsigned long long>(json_object_get_int64(item)),
                  "an integer element keeps its value");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    setenv("TZ", "UTC", 1);  // date-times then round-trip exactly
    tzset();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pucData, size_t size) {
    std::string text(reinterpret_cast<const char *>(pucData), size);
    TEST_ALL_S record = ZeroRecord<TEST_ALL_S>();
    int result = json_decode(text.c_str(), nullptr, record);
    Check(result == 0 || result == -1, "a decode gives 0 or -1");
    CheckRoundTrip(record);

    JsonTree root = Parse(text);
    if (!root) {
        Check(result == -1, "text that is not JSON does not decode");
        return 0;
    }
    size_t count = size % 41;
    CheckConverters(root.get(), count);
    int index = 0;
    if (json_object_get_type(root.get()) == json_type_object) {
        json_object_object_foreach(root.get(), key, value) {
            (void)key;
            if (index++ < 16) {
                CheckConverters(value, count);
            }
        }
    }
    for (int i = 0; i < cJSON_GetArraySize(root.get()) && i < 16; ++i) {
        CheckConverters(cJSON_GetArrayItem(root.get(), i), count);
    }
    return 0;
}
