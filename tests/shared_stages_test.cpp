// SPDX-License-Identifier: Apache-2.0
// The shared Format and Parse stages of the business header, over test records.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "log_capture.h"
#include "mapping_records.h"
#include "module_lines.h"
#include "stage_request.h"

namespace {

constexpr const char *kSource = "talapi_business_common";

// A heap copy of a record, as a stage would leave it in the interchange record.
template <typename T>
T *HeapCopy(const T &record) {
    T *copy = static_cast<T *>(malloc(sizeof(T)));
    memcpy(copy, &record, sizeof(T));
    return copy;
}

TEST(FormatCommonResponse, AnswersTheRecordWhenThereIsOneAndTheEnvelopeOtherwise) {
    struct Row {
        bool bRecord;
        VW_RESULT_TYPE enResult;
        std::string text;
    };
    const Row rows[] = {
        {true, VW_RESULT_OK, "{\n  \"x\": 3,\n  \"y\": -4\n}"},
        {true, VW_RESULT_SEND_FAIL, "{\n  \"x\": 3,\n  \"y\": -4\n}"},
        {false, VW_RESULT_PARAM_ERR,
         "{\n  \"ResponseStatus\": {\n    \"RequestURL\": \"/api/v1/itgt/x\",\n    "
         "\"StatusCode\": 4,\n    \"StatusString\": \"InvalidParameter\"\n  }\n}"},
        {false, VW_RESULT_OK,
         "{\n  \"ResponseStatus\": {\n    \"RequestURL\": \"/api/v1/itgt/x\",\n    "
         "\"StatusCode\": 0,\n    \"StatusString\": \"OK\"\n  }\n}"},
    };
    for (const Row &row : rows) {
        StageRequest request("GET", "/api/v1/itgt/x", "");
        if (row.bRecord) {
            request.stCtInt.pRunOut = HeapCopy(TEST_POINT_S{3, -4});
        }
        void *pvRunOut = request.stCtInt.pRunOut;
        EXPECT_EQ(FormatCommonResponse<TEST_POINT_S>(&request.stHeader, row.enResult,
                                                     &request.stCtInt, &request.response.stBuf),
                  0);
        EXPECT_EQ(request.response.text, row.text);
        EXPECT_EQ(request.response.uiLength, row.text.size()) << "the length without the NUL";
        EXPECT_EQ(request.stCtInt.pRunOut, pvRunOut) << "the record stays the request's";
    }
}

TEST(FormatCommonResponse, ReportsEachFailureAndWritesNothingThatFailed) {
    LogCapture logs;
    StageRequest request("GET", "/api/v1/itgt/x", "");

    // Copy2Buf: only -1 is a failure.
    for (int iAnswer : {-1, -2, 1}) {
        request.response.iAnswer = iAnswer;
        EXPECT_EQ(FormatCommonResponse<TEST_POINT_S>(&request.stHeader, VW_RESULT_OK,
                                                     &request.stCtInt, &request.response.stBuf),
                  iAnswer == -1 ? -1 : 0);
    }
    unsigned int uiLength = request.response.uiLength;

    // A record that does not encode.
    TEST_ALL_S record = ZeroRecord<TEST_ALL_S>();
    record.uiItemNum = 38;
    request.stCtInt.pRunOut = HeapCopy(record);
    request.response.iCalls = 0;
    EXPECT_EQ(FormatCommonResponse<TEST_ALL_S>(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                               &request.response.stBuf),
              -1);
    EXPECT_EQ(FormatCommonResponse<TEST_ALL_S>(nullptr, VW_RESULT_OK, &request.stCtInt,
                                               &request.response.stBuf),
              -1);
    EXPECT_EQ(FormatCommonResponse<TEST_ALL_S>(&request.stHeader, VW_RESULT_OK, nullptr,
                                               &request.response.stBuf),
              -1);
    EXPECT_EQ(FormatCommonResponse<TEST_ALL_S>(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                               nullptr),
              -1);
    EXPECT_EQ(request.response.iCalls, 0);

    const char *pcInvalid =
        "[TALAPI]:FormatCommonResponse: invalid param, pstHeader[%p] pstCtInt[%p] pstBuf[%p]";
    void *h = &request.stHeader, *i = &request.stCtInt, *b = &request.response.stBuf;
    EXPECT_EQ(BusinessLines(logs),
              (std::vector<LogLine>{
                  {3, kSource,
                   Printf("[TALAPI]:FormatCommonResponse: Copy2Buf fail, dataLen[%u]", uiLength)},
                  {3, kSource, "[TALAPI]:FormatCommonResponse: json_encode fail"},
                  {3, kSource, Printf(pcInvalid, nullptr, i, b)},
                  {3, kSource, Printf(pcInvalid, h, nullptr, b)},
                  {3, kSource, Printf(pcInvalid, h, i, nullptr)},
              }));
}

TEST(ParseCommon, MovesTheDecodedRecordOrLeavesItWhereItWas) {
    struct Row {
        const char *body;
        int iResult;
        TEST_POINT_S after;
    };
    const Row rows[] = {
        {"{}", 0, {3, -4}},
        {"{\"y\": 8}", 0, {3, 8}},
        {"[8]", 0, {3, -4}},
        {"7", 0, {3, -4}},
        {"{\"x\": 5, \"y\": \"8\"}", 4, {5, -4}},
        {"{\"x\": 5", 4, {3, -4}},
        {"", 4, {3, -4}},
    };
    for (const Row &row : rows) {
        StageRequest request("PUT", "/api/v1/itgt/x", "");
        request.stCtInt.pPreProcOut = HeapCopy(TEST_POINT_S{3, -4});
        void *pvRecord = request.stCtInt.pPreProcOut;
        EXPECT_EQ(
            ParseCommon<TEST_POINT_S>(&request.stHeader, request.Body(row.body), &request.stCtInt),
            row.iResult)
            << row.body;
        void *pvExpectedParse = row.iResult == 0 ? pvRecord : nullptr;
        void *pvExpectedPreProc = row.iResult == 0 ? nullptr : pvRecord;
        EXPECT_EQ(request.stCtInt.pParseOut, pvExpectedParse) << row.body;
        EXPECT_EQ(request.stCtInt.pPreProcOut, pvExpectedPreProc) << row.body;
        const auto *pstAfter = static_cast<const TEST_POINT_S *>(pvRecord);
        EXPECT_EQ(pstAfter->sX, row.after.sX) << row.body;
        EXPECT_EQ(pstAfter->sY, row.after.sY) << row.body;
    }
}

TEST(ParseCommon, RefusesMissingArgumentsAndAMissingRecord) {
    LogCapture logs;
    StageRequest request("PUT", "/api/v1/itgt/x", "");
    tagHTTP_BUF_S *pstBody = request.Body("{\"x\": 1}");
    EXPECT_EQ(ParseCommon<TEST_POINT_S>(nullptr, pstBody, &request.stCtInt), -1);
    EXPECT_EQ(ParseCommon<TEST_POINT_S>(&request.stHeader, nullptr, &request.stCtInt), -1);
    EXPECT_EQ(ParseCommon<TEST_POINT_S>(&request.stHeader, pstBody, nullptr), -1);
    EXPECT_EQ(ParseCommon<TEST_POINT_S>(&request.stHeader, pstBody, &request.stCtInt), -1);
    EXPECT_EQ(request.stCtInt.pParseOut, nullptr);

    const char *pcInvalid =
        "[TALAPI]:ParseCommon: invalid param, pstHeader[%p] pstHttpContent[%p] pstCtIn[%p]";
    void *h = &request.stHeader, *b = pstBody, *i = &request.stCtInt;
    EXPECT_EQ(BusinessLines(logs),
              (std::vector<LogLine>{
                  {3, kSource, Printf(pcInvalid, nullptr, b, i)},
                  {3, kSource, Printf(pcInvalid, h, nullptr, i)},
                  {3, kSource, Printf(pcInvalid, h, b, nullptr)},
                  {3, kSource, "[TALAPI]:ParseCommon: no PreProc record to decode the body into"},
              }));
}

TEST(ParseCommon, NamesTheLineOfItsDecodeFailureInTheMessage) {
    LogCapture logs;
    StageRequest request("PUT", "/api/v1/itgt/x", "");
    request.stCtInt.pPreProcOut = HeapCopy(TEST_POINT_S{3, -4});
    ASSERT_EQ(ParseCommon<TEST_POINT_S>(&request.stHeader, request.Body("nope"), &request.stCtInt),
              4);
    std::vector<DebugLogEntry> entries = logs.DebugEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].level, 3);
    EXPECT_EQ(entries[0].message,
              Printf("[TALAPI]:ParseCommon[%d] json decode fail\n", entries[0].line));
}

}  // namespace
