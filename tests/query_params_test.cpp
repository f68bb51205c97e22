#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "talapi_common.h"

namespace {

tagHTTP_HEADER_S Header(const char *pcQuery) {
    tagHTTP_HEADER_S stHeader{};
    strncpy(stHeader.queryString, pcQuery, sizeof(stHeader.queryString) - 1);
    return stHeader;
}

constexpr VW_RESULT_TYPE OK = VW_RESULT_OK;
constexpr VW_RESULT_TYPE ERR = VW_RESULT_PARAM_ERR;
constexpr unsigned long long KEPT = 0xA5A5A5A5A5A5A5A5ULL;  // the destination's value before

// Each query is read as key "Id" into both number types.
TEST(QueryParams, Numbers) {
    struct Row {
        const char *query;
        VW_RESULT_TYPE ullResult;
        unsigned long long ullValue;
        VW_RESULT_TYPE uiResult;
        unsigned long long uiValue;
    } rows[] = {
        {"Id=1", OK, 1, OK, 1},
        {"a=b&Id=007&c", OK, 7, OK, 7},
        {"Id=4294967295", OK, 4294967295ULL, OK, 4294967295U},
        {"Id=4294967296", OK, 4294967296ULL, ERR, KEPT},
        {"Id=18446744073709551615", OK, 18446744073709551615ULL, ERR, KEPT},
        {"Id=18446744073709551616", ERR, KEPT, ERR, KEPT},
        {"%49d=%32%33", OK, 23, OK, 23},
        {"Id=1&Id=2", OK, 1, OK, 1},
        {"Id=x&Id=2", ERR, KEPT, ERR, KEPT},
        {"Id=%G1&Id=2", ERR, KEPT, ERR, KEPT},
        {"I%G1=5&Id=2", OK, 2, OK, 2},
        {"IdX=1&XId=1&id=1&I=1", ERR, KEPT, ERR, KEPT},
        {"", ERR, KEPT, ERR, KEPT},
        {"Id=", ERR, KEPT, ERR, KEPT},
        {"Id", ERR, KEPT, ERR, KEPT},
        {"Id=-1", ERR, KEPT, ERR, KEPT},
        {"Id=+1", ERR, KEPT, ERR, KEPT},
        {"Id=1+", ERR, KEPT, ERR, KEPT},
        {"Id=%201", ERR, KEPT, ERR, KEPT},
        {"Id=0x1", ERR, KEPT, ERR, KEPT},
        {"Id=1%4", ERR, KEPT, ERR, KEPT},
        {"Id=1%00", ERR, KEPT, ERR, KEPT},
    };
    for (const Row &row : rows) {
        tagHTTP_HEADER_S stHeader = Header(row.query);
        unsigned long long ullValue = KEPT;
        unsigned int uiValue = static_cast<unsigned int>(KEPT);
        EXPECT_EQ(GetURIQueryParamByKey<unsigned long long>(&stHeader, "Id", &ullValue),
                  row.ullResult)
            << row.query;
        EXPECT_EQ(ullValue, row.ullValue) << row.query;
        EXPECT_EQ(GetURIQueryParamByKey<unsigned int>(&stHeader, "Id", &uiValue), row.uiResult)
            << row.query;
        EXPECT_EQ(uiValue, static_cast<unsigned int>(row.uiValue)) << row.query;
    }
}

TEST(QueryParams, Text) {
    struct Row {
        const char *query;
        int capacity;
        VW_RESULT_TYPE result;
        const char *text;  // null: every byte of the buffer is kept
    } rows[] = {
        {"BusinessType=Vlpr", 40, OK, "Vlpr"},
        {"BusinessType=Traffic+Dome%2fx%2F", 40, OK, "Traffic Dome/x/"},
        {"Business%54ype=%E4%B8%AD", 40, OK, "\xe4\xb8\xad"},
        {"BusinessType=&BusinessType=Vlpr", 40, OK, ""},
        {"BusinessType", 40, OK, ""},
        {"BusinessType=abc", 4, OK, "abc"},
        {"BusinessType=abcd", 4, ERR, nullptr},
        {"BusinessType=", 1, OK, ""},
        {"BusinessType=a", 0, ERR, nullptr},
        {"BusinessType=a", -1, ERR, nullptr},
        {"businesstype=a", 40, ERR, nullptr},
        {"BusinessType=a%", 40, ERR, nullptr},
        {"BusinessType=%00", 40, ERR, nullptr},
    };
    for (const Row &row : rows) {
        tagHTTP_HEADER_S stHeader = Header(row.query);
        char acText[40];
        memset(acText, 'Z', sizeof(acText));
        std::string expected(sizeof(acText), 'Z');
        if (row.text != nullptr) {
            expected.replace(0, strlen(row.text) + 1, row.text, strlen(row.text) + 1);
        }
        EXPECT_EQ(GetURIQueryParamByKey<char>(&stHeader, "BusinessType", acText, row.capacity),
                  row.result)
            << row.query;
        EXPECT_EQ(std::string(acText, sizeof(acText)), expected) << row.query;
    }
}

TEST(QueryParams, NullArgumentsFail) {
    tagHTTP_HEADER_S stHeader = Header("k=1");
    unsigned long long ullValue = 0;
    unsigned int uiValue = 0;
    char acText[4] = "";
    EXPECT_EQ(GetURIQueryParamByKey<unsigned long long>(nullptr, "k", &ullValue), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<unsigned long long>(&stHeader, "k", nullptr), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<unsigned int>(nullptr, "k", &uiValue), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<unsigned int>(&stHeader, "k", nullptr), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<char>(nullptr, "k", acText, 4), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<char>(&stHeader, "k", nullptr, 4), VW_RESULT_FAIL);
}

}  // namespace
