// SPDX-License-Identifier: Apache-2.0
// The status envelope: FillResponseStatusParam and FormatCommonStatus.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "stage_request.h"
#include "talapi_common.h"

namespace {

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
        {6, "NotSupported", 404},
        {18, "OutOfMemory", 500},
        {7, "DeviceError", 500},
        {4502, "DeviceError", 500},
    };
    StageRequest request("GET", "/api/v1/itgt/capability", "");
    for (const Row &row : rows) {
        TALAPI_RESPONSE stResponse =
            FillResponseStatusParam(&request.stHeader, static_cast<VW_RESULT_TYPE>(row.iResult));
        EXPECT_STREQ(stResponse.ResponseStatus.StatusString, row.pcWord) << row.iResult;
        EXPECT_EQ(stResponse.ResponseStatus.StatusCode, row.iResult);
        EXPECT_EQ(stResponse.ullHttpStatus, row.ullHttp) << row.iResult;
        EXPECT_STREQ(stResponse.ResponseStatus.RequestURL, "/api/v1/itgt/capability");
    }
    // The longest url is copied whole, even unterminated; no header gives an empty one.
    memset(request.stHeader.url, 'u', sizeof(request.stHeader.url));
    EXPECT_EQ(FillResponseStatusParam(&request.stHeader, VW_RESULT_OK).ResponseStatus.RequestURL,
              std::string(sizeof(request.stHeader.url) - 1, 'u'));
    EXPECT_STREQ(FillResponseStatusParam(nullptr, VW_RESULT_OK).ResponseStatus.RequestURL, "");
}

TEST(FormatCommonStatus, WritesTheEnvelopeAndFailsOnlyOnMinusOneOrMissingArguments) {
    const std::pair<int, int> answers[] = {{0, 0}, {-2, 0}, {12345, 0}, {-1, -1}};
    for (const auto &answer : answers) {
        StageRequest request("PUT", "/api/v1/itgt/sys-back-language", "");
        request.response.iAnswer = answer.first;
        EXPECT_EQ(FormatCommonStatus(&request.stHeader, VW_RESULT_PARAM_ERR, &request.stCtInt,
                                     &request.response.stBuf),
                  answer.second);
        EXPECT_EQ(request.response.text,
                  "{\n  \"ResponseStatus\": {\n"
                  "    \"RequestURL\": \"/api/v1/itgt/sys-back-language\",\n"
                  "    \"StatusCode\": 4,\n    \"StatusString\": \"InvalidParameter\"\n  }\n}");
        EXPECT_EQ(request.response.uiLength, request.response.text.size());
    }
    StageRequest request("PUT", "/x", "");
    EXPECT_EQ(FormatCommonStatus(nullptr, VW_RESULT_OK, nullptr, &request.response.stBuf), -1);
    EXPECT_EQ(FormatCommonStatus(&request.stHeader, VW_RESULT_OK, nullptr, nullptr), -1);
    request.response.stBuf.Copy2Buf = nullptr;
    EXPECT_EQ(FormatCommonStatus(&request.stHeader, VW_RESULT_OK, nullptr, &request.response.stBuf),
              -1);
    EXPECT_EQ(request.response.iCalls, 0);
}

}  // namespace
