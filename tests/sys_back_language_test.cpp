// SPDX-License-Identifier: Apache-2.0
// System back language through the module's exported stages, against a fake daemon.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "fake_daemon.h"
#include "log_capture.h"
#include "module_lines.h"
#include "orbapi_itgt_module.h"
#include "stage_request.h"

namespace {

using Bytes = std::vector<unsigned char>;
constexpr const char *kUrl = "/api/v1/itgt/sys-back-language";
constexpr const char *kModule = "orbapi_itgt_module";

// The 16-byte wire record: channel, language, then 4 padding bytes that must travel unchanged.
Bytes LanguageRecord(unsigned long long ullChannel, unsigned int uiLanguage) {
    Bytes record = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xDE, 0xAD, 0xBE, 0xEF};
    memcpy(&record[0], &ullChannel, 8);
    memcpy(&record[8], &uiLanguage, 4);
    return record;
}

std::vector<LanguageLogEntry> Event(const char *pcMethod, bool bOk, unsigned long long ullChannel,
                                    int iLanguage) {
    bool bGet = strcmp(pcMethod, "Get") == 0;
    return EventTwice(
        Printf("admin[192.168.1.20:50123] %s Sys BackLanguange Params %s. ulChannelId[%llu], "
               "enSysBackLanguage[%d]",
               pcMethod, bOk ? "Successfully" : "fail", ullChannel, iLanguage),
        Printf("admin[192.168.1.20:50123] %s系统语言%s. 通道号[%llu], 语言类型[%d]",
               bGet ? "获取" : "设置", bOk ? "成功" : "失败", ullChannel, iLanguage));
}

class SysBackLanguageTest : public ::testing::Test {
  protected:
    // Reads (a whole command body) get `stored`; writes get iWriteResult.
    void Serve(Bytes stored, int iWriteResult = 0, int iReadResult = 0,
               FakeBehaviour behaviour = FakeBehaviour::kNormal) {
        daemon.SetHandler([=](const FakeRequest &request) {
            FakeReply reply;
            bool bRead = request.uiBodyLen == VW_CMD_BODY_SIZE;
            reply.payload = bRead ? stored : Bytes();
            reply.iResult = bRead ? iReadResult : iWriteResult;
            reply.enBehaviour = behaviour;
            return reply;
        });
    }
    void SetUp() override {
        g_enDebugFlag = VW_DEBUG_ALL;
        Serve(LanguageRecord(1, 3));
    }
    void TearDown() override { g_enDebugFlag = VW_DEBUG_FAILURES; }

    FakeDaemon daemon;
    LogCapture logs;
};

TEST_F(SysBackLanguageTest, GetAnswersTheRecordAndLogsThePairOfTheResult) {
    Bytes readBody(VW_CMD_BODY_SIZE, 0);
    readBody[0] = 1;
    StageRequest request("GET", kUrl, "ChannelId=1");
    ASSERT_EQ(RunGetITGTSysBackLanguage(&request.stHeader, &request.stClient, &request.stCtInt), 0);
    ASSERT_EQ(daemon.RequestCount(), 1u);
    EXPECT_EQ(daemon.Requests()[0].uiCmd, 54u);
    EXPECT_EQ(daemon.Requests()[0].ullValue, 0u);
    EXPECT_EQ(daemon.Requests()[0].body, readBody);
    EXPECT_EQ(FormatGetITGTSysBackLanguage(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                           &request.response.stBuf),
              0);
    EXPECT_EQ(request.response.text, "{\n  \"channelId\": 1,\n  \"mode\": 3\n}");
    EXPECT_EQ(logs.LanguageEntries(), Event("Get", true, 1, 3));
    EXPECT_EQ(BusinessLines(logs),
              (std::vector<LogLine>{
                  {0, kModule, "[TALAPI]:Enter RunGetITGTSysBackLanguag"},
                  {0, kModule, "[TALAPI]:Enter RunGetITGTSysBackLanguag--GetCommon"},
                  {0, kModule, "[TALAPI]:Enter FormatGetITGTSysBackLanguage"},
                  {0, kModule, "[TALAPI]:Enter FormatGetITGTSysBackLanguage--FormatCommonResponse"},
              }));

    // A failing result still answers the record, with the failure pair.
    logs.Clear();
    Serve(LanguageRecord(18446744073709551615ULL, 4294967295u));
    StageRequest extreme("GET", kUrl, "ChannelId=18446744073709551615");
    ASSERT_EQ(RunGetITGTSysBackLanguage(&extreme.stHeader, &extreme.stClient, &extreme.stCtInt), 0);
    EXPECT_EQ(FormatGetITGTSysBackLanguage(&extreme.stHeader, VW_RESULT_FAIL, &extreme.stCtInt,
                                           &extreme.response.stBuf),
              0);
    EXPECT_EQ(extreme.response.text,
              "{\n  \"channelId\": 18446744073709551615,\n  \"mode\": -1\n}");
    EXPECT_EQ(logs.LanguageEntries(), Event("Get", false, 18446744073709551615ULL, -1));
}

TEST_F(SysBackLanguageTest, ReadingStagesRefuseAnUnreadableChannelAndPassBackendResults) {
    struct Row {
        const char *query;
        FakeBehaviour behaviour;
        int iDaemonResult;
        int iExpected;  // 4 with no request for a query failure
    };
    const Row rows[] = {
        {"", FakeBehaviour::kNormal, 0, 4},
        {"channelid=1", FakeBehaviour::kNormal, 0, 4},
        {"ChannelId=", FakeBehaviour::kNormal, 0, 4},
        {"ChannelId=-1", FakeBehaviour::kNormal, 0, 4},
        {"ChannelId=18446744073709551616", FakeBehaviour::kNormal, 0, 4},
        {"ChannelId=2", FakeBehaviour::kNormal, 7, 7},
        {"ChannelId=2", FakeBehaviour::kCloseWithoutReply, 0, 1},
    };
    for (const Row &row : rows) {
        for (bool bPreProc : {false, true}) {
            Serve(LanguageRecord(2, 1), 0, row.iDaemonResult, row.behaviour);
            std::size_t uBefore = daemon.RequestCount();
            logs.Clear();
            StageRequest request("GET", kUrl, row.query);
            const char *pcStage =
                bPreProc ? "PreProcPutITGTSysBackLanguage" : "RunGetITGTSysBackLanguage";
            VW_RESULT_TYPE enResult =
                bPreProc ? PreProcPutITGTSysBackLanguage(&request.stHeader, &request.stSocket,
                                                         &request.stCtInt)
                         : RunGetITGTSysBackLanguage(&request.stHeader, &request.stClient,
                                                     &request.stCtInt);
            bool bQueryFailure = row.iExpected == 4;
            EXPECT_EQ(enResult, row.iExpected) << row.query << " " << pcStage;
            EXPECT_EQ(daemon.RequestCount() - uBefore, bQueryFailure ? 0u : 1u) << row.query;
            EXPECT_EQ(request.stCtInt.pRunOut, nullptr);
            EXPECT_EQ(request.stCtInt.pPreProcOut, nullptr);
            LogLine failure{3, kModule, Printf("[TALAPI]:%s, Query param get failed", pcStage)};
            EXPECT_EQ(BusinessLines(logs).back() == failure, bQueryFailure) << row.query;
        }
    }
}

TEST_F(SysBackLanguageTest, PutReadsMergesAndWritesTheWholeRecord) {
    struct Row {
        const char *body;
        unsigned long long ullChannel;
        unsigned int uiLanguage;
    };
    const Row rows[] = {
        {"{}", 1, 3},
        {"{\"mode\": 2}", 1, 2},
        {"{\"channelId\": 9}", 9, 3},
        {"{\"mode\": 2.7}", 1, 2},
        {"{\"mode\": -1.5}", 1, 0},
        {"{\"mode\": true}", 1, 1},
        {"{\"mode\": null}", 1, 3},
        {"[1, 2]", 1, 3},
    };
    for (const Row &row : rows) {
        logs.Clear();
        StageRequest request("PUT", kUrl, "ChannelId=1");
        ASSERT_EQ(
            PreProcPutITGTSysBackLanguage(&request.stHeader, &request.stSocket, &request.stCtInt),
            0);
        void *pvRead = request.stCtInt.pPreProcOut;
        ASSERT_EQ(ParsePutITGTSysBackLanguage(&request.stHeader, request.Body(row.body),
                                              &request.stCtInt),
                  0)
            << row.body;
        EXPECT_EQ(request.stCtInt.pParseOut, pvRead) << "moved, not copied";
        EXPECT_EQ(request.stCtInt.pPreProcOut, nullptr);
        ASSERT_EQ(RunPutITGTSysBackLanguage(&request.stHeader, &request.stClient, &request.stCtInt),
                  0);
        FakeRequest write = daemon.Requests().back();
        EXPECT_EQ(write.uiCmd, 54u);
        EXPECT_EQ(write.ullValue, 0u);
        EXPECT_EQ(write.body, LanguageRecord(row.ullChannel, row.uiLanguage)) << row.body;
        EXPECT_EQ(FormatPutITGTSysBackLanguage(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                               &request.response.stBuf),
                  0);
        EXPECT_NE(request.response.text.find("\"StatusCode\": 0"), std::string::npos);
        EXPECT_EQ(logs.LanguageEntries(),
                  Event("Put", true, row.ullChannel, static_cast<int>(row.uiLanguage)));
    }
    EXPECT_EQ(BusinessLines(logs),
              (std::vector<LogLine>{
                  {0, kModule, "[TALAPI]:Enter PreProcPutITGTSysBackLanguage"},
                  {0, kModule, "[TALAPI]:Enter PreProcPutITGTSysBackLanguage--GetCommon"},
                  {0, kModule, "[TALAPI]:Enter ParsePutITGTSysBackLanguage--ParseCommon"},
                  {0, kModule, "[TALAPI]:Enter  RunPutITGTSysBackLanguage"},
                  {0, kModule, "[TALAPI]:Enter RunPutITGTSysBackLanguage--SetCommon"},
                  {0, kModule, "[TALAPI]:Enter FormatPutITGTSysBackLanguage"},
                  {0, kModule, "[TALAPI]:Enter FormatPutITGTSysBackLanguage--FormatCommonStatus"},
              }));
}

TEST_F(SysBackLanguageTest, PutBodiesThatDoNotDecodeLeaveTheRecordUnsent) {
    for (const char *body : {"{\"mode\": \"2\"}", "{\"channelId\": [1]}", "{", "", "{} x"}) {
        std::size_t uBefore = daemon.RequestCount();
        logs.Clear();
        StageRequest request("PUT", kUrl, "ChannelId=1");
        ASSERT_EQ(
            PreProcPutITGTSysBackLanguage(&request.stHeader, &request.stSocket, &request.stCtInt),
            0);
        EXPECT_EQ(
            ParsePutITGTSysBackLanguage(&request.stHeader, request.Body(body), &request.stCtInt), 4)
            << body;
        EXPECT_EQ(request.stCtInt.pParseOut, nullptr);
        ASSERT_NE(request.stCtInt.pPreProcOut, nullptr);
        const auto *pucRecord = static_cast<const unsigned char *>(request.stCtInt.pPreProcOut);
        EXPECT_EQ(Bytes(pucRecord, pucRecord + 16), LanguageRecord(1, 3)) << body;
        EXPECT_EQ(daemon.RequestCount() - uBefore, 1u) << "only the read";
        LogLine last = BusinessLines(logs).back();
        EXPECT_EQ(last.level, 3);
        EXPECT_EQ(last.source, "talapi_business_common");
        EXPECT_TRUE(::testing::internal::RE::FullMatch(
            last.message, "\\[TALAPI\\]:ParseCommon\\[[0-9]+\\] json decode fail\n"));
    }
}

TEST_F(SysBackLanguageTest, AFailingWriteLogsTheFailurePairWithTheValuesToWrite) {
    Serve(LanguageRecord(1, 3), 7);
    StageRequest request("PUT", kUrl, "ChannelId=1");
    ASSERT_EQ(PreProcPutITGTSysBackLanguage(&request.stHeader, &request.stSocket, &request.stCtInt),
              0);
    ASSERT_EQ(ParsePutITGTSysBackLanguage(&request.stHeader, request.Body("{\"mode\": 6}"),
                                          &request.stCtInt),
              0);
    VW_RESULT_TYPE enRun =
        RunPutITGTSysBackLanguage(&request.stHeader, &request.stClient, &request.stCtInt);
    EXPECT_EQ(enRun, 7);
    EXPECT_EQ(FormatPutITGTSysBackLanguage(&request.stHeader, enRun, &request.stCtInt,
                                           &request.response.stBuf),
              0);
    EXPECT_EQ(logs.LanguageEntries(), Event("Put", false, 1, 6));
    EXPECT_NE(request.response.text.find("\"StatusCode\": 7"), std::string::npos);
}

TEST_F(SysBackLanguageTest, StagesRefuseMissingArgumentsAndRecordsWithoutEventOrCommand) {
    StageRequest request("PUT", kUrl, "ChannelId=1");
    tagHTTP_HEADER_S *h = &request.stHeader;
    tagHTTP_CLIENT_S *c = &request.stClient;
    tagUNIX_SOCKET_S *s = &request.stSocket;
    tagHTTP_CNTENT_INTER_S *i = &request.stCtInt;
    tagHTTP_BUF_S *b = &request.response.stBuf;
    const char *pcRun = "[TALAPI]:%s: invalid param, header[%p] client[%p] ctIn[%p]";
    const char *pcGet = "[TALAPI]:%s: invalid param, header[%p] ctInt[%p] buf[%p] pRunOut[%p]";
    const char *pcPut =
        "[TALAPI]:%s: invalid param, header[%p] ctInt[%p] buf[%p] ctInt->pParseOut[%p]";
    const std::pair<VW_RESULT_TYPE, std::string> rows[] = {
        {RunGetITGTSysBackLanguage(nullptr, c, i),
         Printf(pcRun, "RunGetITGTSysBackLanguage", nullptr, c, i)},
        {RunGetITGTSysBackLanguage(h, c, nullptr),
         Printf(pcRun, "RunGetITGTSysBackLanguage", h, c, nullptr)},
        {PreProcPutITGTSysBackLanguage(h, nullptr, i),
         Printf(pcRun, "PreProcPutITGTSysBackLanguage", h, nullptr, i)},
        {PreProcPutITGTSysBackLanguage(nullptr, s, i),
         Printf(pcRun, "PreProcPutITGTSysBackLanguage", nullptr, s, i)},
        {RunPutITGTSysBackLanguage(h, nullptr, i),
         Printf(pcRun, "RunPutITGTSysBackLanguage", h, nullptr, i)},
        // No Parse record: nothing to write.
        {RunPutITGTSysBackLanguage(h, c, i), Printf(pcRun, "RunPutITGTSysBackLanguage", h, c, i)},
        {FormatGetITGTSysBackLanguage(h, VW_RESULT_OK, i, b),
         Printf(pcGet, "FormatGetITGTSysBackLanguage", h, i, b, nullptr)},
        {FormatGetITGTSysBackLanguage(h, VW_RESULT_OK, nullptr, b),
         Printf(pcGet, "FormatGetITGTSysBackLanguage", h, nullptr, b, nullptr)},
        {FormatPutITGTSysBackLanguage(h, VW_RESULT_OK, i, b),
         Printf(pcPut, "FormatPutITGTSysBackLanguage", h, i, b, nullptr)},
        {ParsePutITGTSysBackLanguage(h, request.Body("{}"), i),
         "[TALAPI]:ParseCommon: no PreProc record to decode the body into"},
    };
    std::vector<std::string> failures;
    for (const LogLine &line : BusinessLines(logs)) {
        if (line.level == 3) {
            failures.push_back(line.message);
        }
    }
    ASSERT_EQ(failures.size(), std::size(rows));
    for (std::size_t u = 0; u < std::size(rows); ++u) {
        EXPECT_EQ(rows[u].first, -1) << u;
        EXPECT_EQ(failures[u], rows[u].second);
    }
    EXPECT_TRUE(logs.LanguageEntries().empty());
    EXPECT_EQ(request.response.iCalls, 0);
    EXPECT_EQ(daemon.RequestCount(), 0u);
}

}  // namespace
