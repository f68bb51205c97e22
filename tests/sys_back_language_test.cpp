// System back language through the module's exported stages, against a fake daemon.
#include <gtest/gtest.h>

#include <array>
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

// The 16-byte wire record: channel, language, 4 bytes of padding.
Bytes LanguageRecord(unsigned long long ullChannel, unsigned int uiLanguage,
                     std::array<unsigned char, 4> pad = {0xDE, 0xAD, 0xBE, 0xEF}) {
    Bytes record(16);
    memcpy(&record[0], &ullChannel, 8);
    memcpy(&record[8], &uiLanguage, 4);
    memcpy(&record[12], pad.data(), 4);
    return record;
}

Bytes ReadBodyFor(unsigned long long ullChannel) {
    Bytes body(VW_CMD_BODY_SIZE, 0);
    memcpy(&body[0], &ullChannel, 8);
    return body;
}

Bytes RecordBytes(const void *pvRecord) {
    const auto *pBytes = static_cast<const unsigned char *>(pvRecord);
    return Bytes(pBytes, pBytes + 16);
}

class SysBackLanguageTest : public ::testing::Test {
  protected:
    // The daemon answers a read (a whole command body) with `stored`, a write with writeResult.
    void Serve(Bytes stored, int iWriteResult = 0) {
        daemon.SetHandler([stored, iWriteResult](const FakeRequest &request) {
            FakeReply reply;
            if (request.uiBodyLen == VW_CMD_BODY_SIZE) {
                reply.payload = stored;
            } else {
                reply.iResult = iWriteResult;
            }
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

TEST_F(SysBackLanguageTest, GetAnswersTheRecordAndLogsTheSuccessPairTwice) {
    StageRequest request("GET", kUrl, "ChannelId=1");
    ASSERT_EQ(RunGetITGTSysBackLanguage(&request.stHeader, &request.stClient, &request.stCtInt), 0);
    ASSERT_EQ(daemon.RequestCount(), 1u);
    FakeRequest sent = daemon.Requests()[0];
    EXPECT_EQ(sent.uiCmd, 54u);
    EXPECT_EQ(sent.ullValue, 0u);
    EXPECT_EQ(sent.body, ReadBodyFor(1));

    EXPECT_EQ(FormatGetITGTSysBackLanguage(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                           &request.response.stBuf),
              0);
    EXPECT_EQ(request.response.text, "{\n  \"channelId\": 1,\n  \"mode\": 3\n}");
    EXPECT_EQ(logs.LanguageEntries(),
              EventTwice("admin[192.168.1.20:50123] Get Sys BackLanguange Params Successfully. "
                         "ulChannelId[1], enSysBackLanguage[3]",
                         "admin[192.168.1.20:50123] 获取系统语言成功. 通道号[1], 语言类型[3]"));
    EXPECT_EQ(BusinessLines(logs),
              (std::vector<LogLine>{
                  {0, "orbapi_itgt_module", "[TALAPI]:Enter RunGetITGTSysBackLanguag"},
                  {0, "orbapi_itgt_module", "[TALAPI]:Enter RunGetITGTSysBackLanguag--GetCommon"},
                  {0, "orbapi_itgt_module", "[TALAPI]:Enter FormatGetITGTSysBackLanguage"},
                  {0, "orbapi_itgt_module",
                   "[TALAPI]:Enter FormatGetITGTSysBackLanguage--FormatCommonResponse"},
              }));
}

TEST_F(SysBackLanguageTest, GetWithAFailingResultStillAnswersTheRecordWithTheFailurePair) {
    StageRequest request("GET", kUrl, "ChannelId=18446744073709551615");
    Serve(LanguageRecord(18446744073709551615ULL, 4294967295u));
    ASSERT_EQ(RunGetITGTSysBackLanguage(&request.stHeader, &request.stClient, &request.stCtInt), 0);
    EXPECT_EQ(FormatGetITGTSysBackLanguage(&request.stHeader, VW_RESULT_FAIL, &request.stCtInt,
                                           &request.response.stBuf),
              0);
    EXPECT_EQ(request.response.text,
              "{\n  \"channelId\": 18446744073709551615,\n  \"mode\": -1\n}");
    EXPECT_EQ(
        logs.LanguageEntries(),
        EventTwice("admin[192.168.1.20:50123] Get Sys BackLanguange Params fail. "
                   "ulChannelId[18446744073709551615], enSysBackLanguage[-1]",
                   "admin[192.168.1.20:50123] 获取系统语言失败. 通道号[18446744073709551615], "
                   "语言类型[-1]"));
}

TEST_F(SysBackLanguageTest, ReadingStagesRefuseAnUnreadableChannelAndPassBackendResults) {
    struct Row {
        const char *query;
        FakeBehaviour behaviour;
        int iDaemonResult;
        int iExpected;
        std::size_t uRequests;
        bool bQueryFailure;
    };
    const Row rows[] = {
        {"", FakeBehaviour::kNormal, 0, 4, 0, true},
        {"channelid=1", FakeBehaviour::kNormal, 0, 4, 0, true},
        {"ChannelId=", FakeBehaviour::kNormal, 0, 4, 0, true},
        {"ChannelId=-1", FakeBehaviour::kNormal, 0, 4, 0, true},
        {"ChannelId=18446744073709551616", FakeBehaviour::kNormal, 0, 4, 0, true},
        {"ChannelId=2", FakeBehaviour::kNormal, 7, 7, 1, false},
        {"ChannelId=2", FakeBehaviour::kCloseWithoutReply, 0, 1, 1, false},
    };
    for (const Row &row : rows) {
        for (bool bPreProc : {false, true}) {
            daemon.SetHandler([&row](const FakeRequest &) {
                FakeReply reply;
                reply.iResult = row.iDaemonResult;
                reply.enBehaviour = row.behaviour;
                return reply;
            });
            std::size_t uBefore = daemon.RequestCount();
            logs.Clear();
            StageRequest request(bPreProc ? "PUT" : "GET", kUrl, row.query);
            const char *pcStage =
                bPreProc ? "PreProcPutITGTSysBackLanguage" : "RunGetITGTSysBackLanguage";
            VW_RESULT_TYPE enResult =
                bPreProc ? PreProcPutITGTSysBackLanguage(&request.stHeader, &request.stSocket,
                                                         &request.stCtInt)
                         : RunGetITGTSysBackLanguage(&request.stHeader, &request.stClient,
                                                     &request.stCtInt);
            EXPECT_EQ(enResult, row.iExpected) << row.query << " " << pcStage;
            EXPECT_EQ(daemon.RequestCount() - uBefore, row.uRequests) << row.query;
            EXPECT_EQ(request.stCtInt.pRunOut, nullptr);
            EXPECT_EQ(request.stCtInt.pPreProcOut, nullptr);
            std::vector<LogLine> lines = BusinessLines(logs);
            LogLine queryFailure{3, "orbapi_itgt_module",
                                 Printf("[TALAPI]:%s, Query param get failed", pcStage)};
            EXPECT_EQ(!lines.empty() && lines.back() == queryFailure, row.bQueryFailure)
                << row.query << " " << pcStage;
        }
    }
}

TEST_F(SysBackLanguageTest, FormatStagesWithoutTheirRecordFailWithoutEventOrBody) {
    StageRequest request("GET", kUrl, "ChannelId=1");
    EXPECT_EQ(FormatGetITGTSysBackLanguage(&request.stHeader, VW_RESULT_PARAM_ERR, &request.stCtInt,
                                           &request.response.stBuf),
              -1);
    EXPECT_EQ(FormatPutITGTSysBackLanguage(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                           &request.response.stBuf),
              -1);
    EXPECT_EQ(FormatGetITGTSysBackLanguage(&request.stHeader, VW_RESULT_OK, nullptr,
                                           &request.response.stBuf),
              -1);
    EXPECT_EQ(request.response.iCalls, 0);
    EXPECT_TRUE(logs.LanguageEntries().empty());
    void *pvHeader = &request.stHeader, *pvCtInt = &request.stCtInt;
    void *pvBuf = &request.response.stBuf;
    EXPECT_EQ(BusinessLines(logs),
              (std::vector<LogLine>{
                  {0, "orbapi_itgt_module", "[TALAPI]:Enter FormatGetITGTSysBackLanguage"},
                  {3, "orbapi_itgt_module",
                   Printf("[TALAPI]:FormatGetITGTSysBackLanguage: invalid param, header[%p] "
                          "ctInt[%p] buf[%p] pRunOut[%p]",
                          pvHeader, pvCtInt, pvBuf, nullptr)},
                  {0, "orbapi_itgt_module", "[TALAPI]:Enter FormatPutITGTSysBackLanguage"},
                  {3, "orbapi_itgt_module",
                   Printf("[TALAPI]:FormatPutITGTSysBackLanguage: invalid param, header[%p] "
                          "ctInt[%p] buf[%p] ctInt->pParseOut[%p]",
                          pvHeader, pvCtInt, pvBuf, nullptr)},
                  {0, "orbapi_itgt_module", "[TALAPI]:Enter FormatGetITGTSysBackLanguage"},
                  {3, "orbapi_itgt_module",
                   Printf("[TALAPI]:FormatGetITGTSysBackLanguage: invalid param, header[%p] "
                          "ctInt[%p] buf[%p] pRunOut[%p]",
                          pvHeader, nullptr, pvBuf, nullptr)},
              }));
}

TEST_F(SysBackLanguageTest, PutReadsMergesAndWritesTheWholeRecord) {
    struct Row {
        const char *body;
        Bytes written;
    };
    const Row rows[] = {
        {"{}", LanguageRecord(1, 3)},
        {"{\"mode\": 2}", LanguageRecord(1, 2)},
        {"{\"channelId\": 9}", LanguageRecord(9, 3)},
        {"{\"channelId\": 9, \"mode\": 5}", LanguageRecord(9, 5)},
        {"{\"mode\": 2.7}", LanguageRecord(1, 2)},
        {"{\"mode\": -1.5}", LanguageRecord(1, 0)},
        {"{\"mode\": true}", LanguageRecord(1, 1)},
        {"{\"mode\": null}", LanguageRecord(1, 3)},
        {"[1, 2]", LanguageRecord(1, 3)},
    };
    for (const Row &row : rows) {
        std::size_t uBefore = daemon.RequestCount();
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
        EXPECT_EQ(request.stCtInt.pParseOut, pvRead) << "the record moves, it is not copied";
        EXPECT_EQ(request.stCtInt.pPreProcOut, nullptr);
        ASSERT_EQ(RunPutITGTSysBackLanguage(&request.stHeader, &request.stClient, &request.stCtInt),
                  0);
        ASSERT_EQ(daemon.RequestCount() - uBefore, 2u);
        FakeRequest write = daemon.Requests().back();
        EXPECT_EQ(write.uiCmd, 54u);
        EXPECT_EQ(write.ullValue, 0u);
        EXPECT_EQ(write.body, row.written) << row.body;

        EXPECT_EQ(FormatPutITGTSysBackLanguage(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                               &request.response.stBuf),
                  0);
        EXPECT_NE(request.response.text.find("\"StatusCode\": 0"), std::string::npos);
        unsigned long long ullChannel;
        unsigned int uiLanguage;
        memcpy(&ullChannel, &row.written[0], 8);
        memcpy(&uiLanguage, &row.written[8], 4);
        EXPECT_EQ(logs.LanguageEntries(),
                  EventTwice(Printf("admin[192.168.1.20:50123] Put Sys BackLanguange Params "
                                    "Successfully. ulChannelId[%llu], enSysBackLanguage[%d]",
                                    ullChannel, static_cast<int>(uiLanguage)),
                             Printf("admin[192.168.1.20:50123] 设置系统语言成功. 通道号[%llu], "
                                    "语言类型[%d]",
                                    ullChannel, static_cast<int>(uiLanguage))))
            << row.body;
    }
    EXPECT_EQ(
        BusinessLines(logs),
        (std::vector<LogLine>{
            {0, "orbapi_itgt_module", "[TALAPI]:Enter PreProcPutITGTSysBackLanguage"},
            {0, "orbapi_itgt_module", "[TALAPI]:Enter PreProcPutITGTSysBackLanguage--GetCommon"},
            {0, "orbapi_itgt_module", "[TALAPI]:Enter ParsePutITGTSysBackLanguage--ParseCommon"},
            {0, "orbapi_itgt_module", "[TALAPI]:Enter  RunPutITGTSysBackLanguage"},
            {0, "orbapi_itgt_module", "[TALAPI]:Enter RunPutITGTSysBackLanguage--SetCommon"},
            {0, "orbapi_itgt_module", "[TALAPI]:Enter FormatPutITGTSysBackLanguage"},
            {0, "orbapi_itgt_module",
             "[TALAPI]:Enter FormatPutITGTSysBackLanguage--FormatCommonStatus"},
        }));
}

TEST_F(SysBackLanguageTest, PutBodiesThatDoNotDecodeLeaveTheRecordUnsent) {
    const char *bodies[] = {"{\"mode\": \"2\"}", "{\"channelId\": [1]}", "{\"mode\": {}}", "{", "",
                            "{\"mode\": 2} x"};
    for (const char *body : bodies) {
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
        EXPECT_EQ(RecordBytes(request.stCtInt.pPreProcOut), LanguageRecord(1, 3)) << body;
        EXPECT_EQ(daemon.RequestCount() - uBefore, 1u) << "only the read";
        std::vector<LogLine> lines = BusinessLines(logs);
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back().level, 3);
        EXPECT_EQ(lines.back().source, "talapi_business_common");
        EXPECT_TRUE(::testing::internal::RE::FullMatch(
            lines.back().message, "\\[TALAPI\\]:ParseCommon\\[[0-9]+\\] json decode fail\n"))
            << lines.back().message;
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
    EXPECT_EQ(logs.LanguageEntries(),
              EventTwice("admin[192.168.1.20:50123] Put Sys BackLanguange Params fail. "
                         "ulChannelId[1], enSysBackLanguage[6]",
                         "admin[192.168.1.20:50123] 设置系统语言失败. 通道号[1], 语言类型[6]"));
    EXPECT_NE(request.response.text.find("\"StatusCode\": 7"), std::string::npos)
        << request.response.text;
}

TEST_F(SysBackLanguageTest, StagesRefuseMissingArgumentsWithoutReachingTheDaemon) {
    StageRequest request("PUT", kUrl, "ChannelId=1");
    tagHTTP_HEADER_S *h = &request.stHeader;
    tagHTTP_CLIENT_S *c = &request.stClient;
    tagUNIX_SOCKET_S *s = &request.stSocket;
    tagHTTP_CNTENT_INTER_S *i = &request.stCtInt;
    struct Row {
        VW_RESULT_TYPE enResult;
        std::string expected;
    };
    auto message = [](const char *pcStage, const void *a, const void *b, const void *d) {
        return Printf("[TALAPI]:%s: invalid param, header[%p] client[%p] ctIn[%p]", pcStage, a, b,
                      d);
    };
    const Row rows[] = {
        {RunGetITGTSysBackLanguage(nullptr, c, i),
         message("RunGetITGTSysBackLanguage", nullptr, c, i)},
        {RunGetITGTSysBackLanguage(h, nullptr, i),
         message("RunGetITGTSysBackLanguage", h, nullptr, i)},
        {RunGetITGTSysBackLanguage(h, c, nullptr),
         message("RunGetITGTSysBackLanguage", h, c, nullptr)},
        {PreProcPutITGTSysBackLanguage(h, nullptr, i),
         message("PreProcPutITGTSysBackLanguage", h, nullptr, i)},
        {PreProcPutITGTSysBackLanguage(nullptr, s, i),
         message("PreProcPutITGTSysBackLanguage", nullptr, s, i)},
        {RunPutITGTSysBackLanguage(h, c, nullptr),
         message("RunPutITGTSysBackLanguage", h, c, nullptr)},
        {RunPutITGTSysBackLanguage(h, nullptr, i),
         message("RunPutITGTSysBackLanguage", h, nullptr, i)},
    };
    std::vector<LogLine> failures;
    for (const LogLine &line : BusinessLines(logs)) {
        if (line.level == 3) {
            failures.push_back(line);
        }
    }
    ASSERT_EQ(failures.size(), std::size(rows));
    for (std::size_t u = 0; u < std::size(rows); ++u) {
        EXPECT_EQ(rows[u].enResult, -1);
        EXPECT_EQ(failures[u].message, rows[u].expected);
    }
    // Parse without a PreProc record refuses to decode.
    EXPECT_EQ(ParsePutITGTSysBackLanguage(h, request.Body("{\"mode\": 1}"), i), -1);
    EXPECT_EQ(BusinessLines(logs).back(),
              (LogLine{3, "talapi_business_common",
                       "[TALAPI]:ParseCommon: no PreProc record to decode the body into"}));
    EXPECT_EQ(i->pParseOut, nullptr);
    EXPECT_EQ(daemon.RequestCount(), 0u);
}

}  // namespace
