// SPDX-License-Identifier: Apache-2.0
// Records with one member of every kind the mapping supports, and helpers to compare them.
#ifndef FUZZ_FUZZ_RECORDS_H
#define FUZZ_FUZZ_RECORDS_H

#include <cstring>
#include <memory>
#include <string>

#include "talapi_business_common.h"

enum TEST_MODE_E : unsigned int { TEST_MODE_OFF = 0, TEST_MODE_ON = 7 };

struct TEST_POINT_S {
    short sX;
    short sY;
};

struct TEST_TEXT_S {
    char osdContent[177];
};
template <>
struct jsonTextRecord<TEST_TEXT_S> : std::true_type {};

struct TEST_ITEM_S {
    int prefixEnable;
    char prefixContent[97];
};

constexpr int kTestCapacity = 37;

struct TEST_ALL_S {
    bool bFlag;
    unsigned char ucAlpha;
    short sLevel;
    int iCount;
    TEST_MODE_E enMode;
    unsigned int uiSize;
    long long llOffset;
    unsigned long long ullId;
    char szName[8];
    unsigned short usStart;
    int iStamp;
    unsigned char ucSwitch;
    TEST_POINT_S stPoint;
    TEST_TEXT_S stLabel;
    unsigned int uiItemNum;
    TEST_MODE_E aenType[kTestCapacity];
    unsigned long long aullSpace[kTestCapacity];
    TEST_ITEM_S astItem[kTestCapacity];
};

template <>
struct jsonSchema<TEST_POINT_S> {
    static constexpr auto members() {
        return std::make_tuple(member(&TEST_POINT_S::sX, "x"), member(&TEST_POINT_S::sY, "y"));
    }
};

template <>
struct jsonSchema<TEST_TEXT_S> {
    static constexpr auto members() {
        return std::make_tuple(member(&TEST_TEXT_S::osdContent, "osdContent"));
    }
};

template <>
struct jsonSchema<TEST_ITEM_S> {
    static constexpr auto members() {
        return std::make_tuple(member(&TEST_ITEM_S::prefixEnable, "prefixEnable"),
                               member(&TEST_ITEM_S::prefixContent, "prefixContent"));
    }
};

template <>
struct jsonSchema<TEST_ALL_S> {
    using T = TEST_ALL_S;
    static constexpr auto members() {
        return std::make_tuple(
            member(&T::bFlag, "flag"), member(&T::ucAlpha, "alpha"), member(&T::sLevel, "level"),
            member(&T::iCount, "count"), member(&T::enMode, "mode"), member(&T::uiSize, "size"),
            member(&T::llOffset, "offset"), member(&T::ullId, "id"), member(&T::szName, "name"),
            member(&T::usStart, "start", JSON_FORMAT_HOUR_MINUTE),
            member(&T::iStamp, "stamp", JSON_FORMAT_DATE_TIME),
            member(&T::ucSwitch, "switch", JSON_FORMAT_BOOL), member(&T::stPoint, "point"),
            member(&T::stLabel, "label"), array_member(&T::uiItemNum, &T::aenType, "types"),
            array_member(&T::uiItemNum, &T::aullSpace, "space"),
            array_member(&T::uiItemNum, &T::astItem, "items"), member(&T::uiItemNum, "itemNum"));
    }
};

// Zero-filled records (padding included) so that whole records compare with memcmp.
template <typename T>
T ZeroRecord() {
    T record;
    memset(&record, 0, sizeof(record));
    return record;
}

template <typename T>
bool SameBytes(const T &left, const T &right) {
    return memcmp(&left, &right, sizeof(T)) == 0;
}

// An owned parse tree.
using JsonTree = std::unique_ptr<json_object, decltype(&cJSON_Delete)>;
inline JsonTree Parse(const std::string &text) {
    return JsonTree(cJSON_Parse(text.c_str()), &cJSON_Delete);
}

#endif
