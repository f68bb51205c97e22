// SPDX-License-Identifier: Apache-2.0
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

VW_RESULT_TYPE Result(bool bRead) {
    return bRead ? VW_RESULT_OK : VW_RESULT_PARAM_ERR;
}

// Reads key "Id" into both number types. kNone stands for a failed read, which must leave the
// destination at its value before, kNone too.
constexpr unsigned long long kNone = 0xA5A5A5A5A5A5A5A5ULL;
void ExpectNumbers(const char *pcQuery, unsigned long long ullWant, unsigned long long uiWant) {
    tagHTTP_HEADER_S stHeader = Header(pcQuery);
    unsigned long long ull = kNone;
    unsigned int ui = static_cast<unsigned int>(kNone);
    EXPECT_EQ(GetURIQueryParamByKey<unsigned long long>(&stHeader, "Id", &ull),
              Result(ullWant != kNone))
        << pcQuery;
    EXPECT_EQ(GetURIQueryParamByKey<unsigned int>(&stHeader, "Id", &ui), Result(uiWant != kNone))
        << pcQuery;
    EXPECT_EQ(ull, ullWant) << pcQuery;
    EXPECT_EQ(ui, static_cast<unsigned int>(uiWant)) << pcQuery;
}

TEST(QueryParams, Numbers) {
    ExpectNumbers("a=b&Id=007&c", 7, 7);
    ExpectNumbers("Id=4294967295", 4294967295ULL, 4294967295ULL);
    ExpectNumbers("Id=4294967296", 4294967296ULL, kNone);
    ExpectNumbers("Id=18446744073709551615", 18446744073709551615ULL, kNone);
    ExpectNumbers("%49d=%32%33", 23, 23);
    ExpectNumbers("Id=1&Id=2", 1, 1);
    ExpectNumbers("I%G1=5&Id=2", 2, 2);  // a key that does not decode is skipped
    for (const char *pcQuery :
         {"Id=18446744073709551616", "Id=x&Id=2", "Id=%G1&Id=2", "IdX=1&XId=1&id=1&I=1", "",
          "Id=", "Id", "Id=-1", "Id=+1", "Id=1+", "Id=%201", "Id=0x1", "Id=1%4", "Id=1%00"}) {
        ExpectNumbers(pcQuery, kNone, kNone);
    }
}

// Reads key "Type" into a 40-byte buffer of the given capacity; a null pcWant stands for a failed
// read. Bytes not written must keep their value before.
void ExpectText(const char *pcQuery, int iCapacity, const char *pcWant) {
    tagHTTP_HEADER_S stHeader = Header(pcQuery);
    char acText[40];
    memset(acText, 'Z', sizeof(acText));
    std::string expected = pcWant == nullptr ? "" : std::string(pcWant, strlen(pcWant) + 1);
    expected.resize(sizeof(acText), 'Z');
    EXPECT_EQ(GetURIQueryParamByKey<char>(&stHeader, "Type", acText, iCapacity),
              Result(pcWant != nullptr))
        << pcQuery;
    EXPECT_EQ(std::string(acText, sizeof(acText)), expected) << pcQuery;
}

TEST(QueryParams, Text) {
    ExpectText("Type=Vlpr", 40, "Vlpr");
    ExpectText("Type=Traffic+Dome%2fx%2F", 40, "Traffic Dome/x/");
    ExpectText("%54ype=%E4%B8%AD", 40, "\xe4\xb8\xad");
    ExpectText("Type=&Type=Vlpr", 40, "");
    ExpectText("Type", 40, "");
    ExpectText("Type=abc", 4, "abc");
    ExpectText("Type=abcd", 4, nullptr);
    ExpectText("Type=", 1, "");
    ExpectText("Type=a", 0, nullptr);
    ExpectText("Type=a", -1, nullptr);
    for (const char *pcQuery : {"type=a", "Type=a%", "Type=%00", "Type=%G1", "Type=%1G"}) {
        ExpectText(pcQuery, 40, nullptr);
    }
}

TEST(QueryParams, NullArgumentsFail) {
    tagHTTP_HEADER_S stHeader = Header("k=1");
    unsigned long long ull = 0;
    unsigned int ui = 0;
    char acText[4] = "";
    EXPECT_EQ(GetURIQueryParamByKey<unsigned long long>(nullptr, "k", &ull), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<unsigned long long>(&stHeader, "k", nullptr), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<unsigned int>(nullptr, "k", &ui), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<unsigned int>(&stHeader, "k", nullptr), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<char>(nullptr, "k", acText, 4), VW_RESULT_FAIL);
    EXPECT_EQ(GetURIQueryParamByKey<char>(&stHeader, "k", nullptr, 4), VW_RESULT_FAIL);
}

}  // namespace
