// The status envelope: FillResponseStatusParam and FormatCommonStatus.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "talapi_business_common.h"
#include "talapi_common.h"
#include "stage_request.h"

namespace {

tagHTTP_HEADER_S MakeHeader(const char *pcUrl) {
    tagHTTP_HEADER_S stHeader{};
    strcpy(stHeader.method, "GET");
    strcpy(stHeader.url, pcUrl);
    return stHeader;
}

TEST(FillResponseStatusParam, NamesEachResultAndMapsItToAnHttpStatus) {
    struct Row {
        int iResult;
        const char *pcWord;
        unsigned long long ullHttp;
    };
    const Row rows[] = {
        {0, "OK", 200},
        {-1, "Failed", 500},
        {1, "BackendUnreachable", 502},
        {4, "InvalidParameter", 400},
        {6, "NotSupported", 501},
        {18, "OutOfMemory", 503},
        {7, "DeviceError", 500},
        {4502, "DeviceError", 500},
    };
    tagHTTP_HEADER_S stHeader = MakeHeader("/api/v1/itgt/capability");
    for (const Row &row : rows) {
        TALAPI_RESPONSE stResponse =
            FillResponseStatusParam(&stHeader, static_cast<VW_RESULT_TYPE>(row.iResult));
        EXPECT_STREQ(stResponse.ResponseStatus.StatusString, row.pcWord) << row.iResult;
        EXPECT_EQ(stResponse.ResponseStatus.StatusCode, row.iResult);
        EXPECT_EQ(stResponse.ullHttpStatus, row.ullHttp) << row.iResult;
        EXPECT_STREQ(stResponse.ResponseStatus.RequestURL, "/api/v1/itgt/capability");
    }
}

TEST(FillResponseStatusParam, CopiesTheLongestUrlWholeAndToleratesNoHeader) {
    tagHTTP_HEADER_S stHeader{};
    memset(stHeader.url, 'u', sizeof(stHeader.url));  // not even terminated
    TALAPI_RESPONSE stResponse = FillResponseStatusParam(&stHeader, VW_RESULT_OK);
    EXPECT_EQ(std::string(stResponse.ResponseStatus.RequestURL),
              std::string(sizeof(stHeader.url) - 1, 'u'));

    stResponse = FillResponseStatusParam(nullptr, VW_RESULT_PARAM_ERR);
    EXPECT_STREQ(stResponse.ResponseStatus.RequestURL, "");
    EXPECT_EQ(stResponse.ResponseStatus.StatusCode, 4);
}

TEST(FormatCommonStatus, WritesTheEnvelopeTextWithoutItsNul) {
    tagHTTP_HEADER_S stHeader = MakeHeader("/api/v1/itgt/sys-back-language");
    tagHTTP_CNTENT_INTER_S stCtInt{};
    CapturingBuffer buffer;
    ASSERT_EQ(FormatCommonStatus(&stHeader, VW_RESULT_PARAM_ERR, &stCtInt, &buffer.stBuf), 0);
    EXPECT_EQ(buffer.iCalls, 1);
    EXPECT_EQ(buffer.text,
              "{\n"
              "  \"ResponseStatus\": {\n"
              "    \"RequestURL\": \"/api/v1/itgt/sys-back-language\",\n"
              "    \"StatusCode\": 4,\n"
              "    \"StatusString\": \"InvalidParameter\"\n"
              "  }\n"
              "}");
    EXPECT_EQ(buffer.uiLength, buffer.text.size());
    EXPECT_EQ(strlen(buffer.text.c_str()), buffer.uiLength);
}

TEST(FormatCommonStatus, OnlyMinusOneFromCopy2BufIsAFailure) {
    struct Row {
        int iAnswer;
        int iExpected;
    };
    const Row rows[] = {{-1, -1}, {-2, 0}, {0, 0}, {1, 0}, {12345, 0}};
    tagHTTP_HEADER_S stHeader = MakeHeader("/x");
    for (const Row &row : rows) {
        CapturingBuffer buffer;
        buffer.iAnswer = row.iAnswer;
        EXPECT_EQ(FormatCommonStatus(&stHeader, VW_RESULT_OK, nullptr, &buffer.stBuf),
                  row.iExpected)
            << row.iAnswer;
        EXPECT_EQ(buffer.iCalls, 1);
    }
}

TEST(FormatCommonStatus, RefusesMissingArgumentsWithoutWriting) {
    tagHTTP_HEADER_S stHeader = MakeHeader("/x");
    CapturingBuffer buffer;
    EXPECT_EQ(FormatCommonStatus(nullptr, VW_RESULT_OK, nullptr, &buffer.stBuf), -1);
    EXPECT_EQ(FormatCommonStatus(&stHeader, VW_RESULT_OK, nullptr, nullptr), -1);
    buffer.stBuf.Copy2Buf = nullptr;
    EXPECT_EQ(FormatCommonStatus(&stHeader, VW_RESULT_OK, nullptr, &buffer.stBuf), -1);
    EXPECT_EQ(buffer.iCalls, 0);
}

}  // namespace
