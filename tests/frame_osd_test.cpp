// SPDX-License-Identifier: Apache-2.0
// Frame OSD through the module's exported stages, against a fake daemon.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fake_daemon.h"
#include "log_capture.h"
#include "module_lines.h"
#include "orbapi_itgt_module.h"
#include "orbapi_itgt_records.h"
#include "stage_request.h"

namespace {

using Record = _VW_PIC_OSD_PARA_S;
constexpr const char *kUrl = "/api/v1/itgt/frame-osd";
constexpr const char *kQuery = "ChannelId=3&OverlayPicType=1&BusinessType=Vlpr";

// A record as the daemon might hold it: every byte set, padding and unmapped bytes included,
// texts of readable characters.
Record DaemonRecord(unsigned int uiItems) {
    Record record;
    auto *pucBytes = reinterpret_cast<unsigned char *>(&record);
    for (std::size_t i = 0; i < sizeof(record); ++i) {
        pucBytes[i] = static_cast<unsigned char>(0x41 + i % 26);
    }
    record.channelId = 3;
    record.overlayType = VW_OVERLAY_PIC_TYPE_E(1);
    record.picOSDInfo.picOSDNum = uiItems;
    for (_CUSTOM_OSD_PARA_S *pstText = &record.roadIdOSD; pstText <= &record.laneDirOSD;
         ++pstText) {
        pstText->osdContent[176] = '\0';
    }
    for (_PIC_OSD_DETAILS &stDetail : record.picOSDInfo.picOsdDetail) {
        stDetail.prefixContent[96] = '\0';
    }
    return record;
}

Record FromBytes(const std::vector<unsigned char> &bytes) {
    Record record;
    EXPECT_EQ(bytes.size(), sizeof(record));
    memcpy(&record, bytes.data(), sizeof(record));
    return record;
}

class FrameOsdTest : public ::testing::Test {
  protected:
    // Reads get `stored`; writes are answered with Result 0.
    void Serve(const Record &stored) {
        std::vector<unsigned char> payload(reinterpret_cast<const unsigned char *>(&stored),
                                           reinterpret_cast<const unsigned char *>(&stored + 1));
        daemon.SetHandler([payload](const FakeRequest &request) {
            FakeReply reply;
            reply.payload =
                request.uiBodyLen == VW_CMD_BODY_SIZE ? payload : std::vector<unsigned char>();
            return reply;
        });
    }
    void SetUp() override { Serve(DaemonRecord(5)); }

    // PreProc, Parse and Run of a PUT; the results of Parse and Run.
    std::pair<int, int> Put(const std::string &body, const char *pcQuery = kQuery) {
        StageRequest request("PUT", kUrl, pcQuery);
        EXPECT_EQ(PreProcPutITGTFrameOSD(&request.stHeader, &request.stSocket, &request.stCtInt),
                  0);
        int iParse = ParsePutITGTFrameOSD(&request.stHeader, request.Body(body), &request.stCtInt);
        int iRun = iParse != 0
                       ? iParse
                       : RunPutITGTFrameOSD(&request.stHeader, &request.stClient, &request.stCtInt);
        return {iParse, iRun};
    }
    // The text a GET answers for the record the daemon holds.
    std::string Get() {
        StageRequest request("GET", kUrl, kQuery);
        EXPECT_EQ(RunGetITGTFrameOSD(&request.stHeader, &request.stClient, &request.stCtInt), 0);
        EXPECT_EQ(FormatGetITGTFrameOSD(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                        &request.response.stBuf),
                  0);
        return request.response.text;
    }

    FakeDaemon daemon;
    LogCapture logs;
};

TEST_F(FrameOsdTest, AFullRecordComesBackByteForByteThroughGetAndPut) {
    Record full = DaemonRecord(37);
    Serve(full);
    std::string text = Get();
    ASSERT_NE(text.find("\"picOSDNum\": 37"), std::string::npos);
    ASSERT_EQ(Put(text), std::make_pair(0, 0));
    Record written = FromBytes(daemon.Requests().back().body);
    EXPECT_EQ(memcmp(&written, &full, sizeof(full)), 0);
}

TEST_F(FrameOsdTest, APutChangesOnlyWhatItsBodyCarries) {
    struct Row {
        std::string body;
        void (*change)(Record &);
    };
    static const std::string k176(176, 't'), k96(96, 'p');
    const Row rows[] = {
        {"{\"enableLiveOSD\": 7}", [](Record &r) { r.enableLiveOSD = 7; }},
        {"{\"channelId\": 9, \"picOSDInfo\": {\"fgAlpha\": 300}}",
         [](Record &r) { r.channelId = 9, r.picOSDInfo.fgAlpha = 44; }},
        {"{\"picOSDInfo\": {\"picOSDType\": [1, 2, 3], \"spaceNum\": [4, 5, 6, 7, 8]}}",
         [](Record &r) {
             r.picOSDInfo.picOSDNum = 5;
             for (int i = 0; i < 3; ++i)
                 r.picOSDInfo.picOSDType[i] = VW_PIC_OSD_ITEM_E(i + 1);
             for (int i = 0; i < 5; ++i)
                 r.picOSDInfo.spaceNum[i] = 4 + i;
         }},
        {"{\"picOSDInfo\": {\"warpNum\": [1, 2], \"picOSDNum\": 4}}",
         [](Record &r) {
             r.picOSDInfo.picOSDNum = 4;
             r.picOSDInfo.warpNum[0] = 1;
             r.picOSDInfo.warpNum[1] = 2;
         }},
        {"{\"roadIdOSD\": {\"osdContent\": \"" + k176 + "\"}, \"laneDirOSD\": {}}",
         [](Record &r) { strcpy(r.roadIdOSD.osdContent, k176.c_str()); }},
        {"{\"picOSDInfo\": {\"picOsdDetail\": [{}, {\"prefixContent\": \"" + k96 + "\"}]}}",
         [](Record &r) {
             r.picOSDInfo.picOSDNum = 2;
             strcpy(r.picOSDInfo.picOsdDetail[1].prefixContent, k96.c_str());
         }},
    };
    for (const Row &row : rows) {
        ASSERT_EQ(Put(row.body), std::make_pair(0, 0)) << row.body;
        Record expected = DaemonRecord(5);
        row.change(expected);
        Record written = FromBytes(daemon.Requests().back().body);
        EXPECT_EQ(memcmp(&written, &expected, sizeof(expected)), 0) << row.body;
    }
}

TEST_F(FrameOsdTest, BodiesOutOfBoundsWriteNothing) {
    const std::string k177(177, 't'), k97(97, 'p');
    std::string items38 = "[0";
    for (int i = 1; i < 38; ++i) {
        items38 += ",0";
    }
    items38 += "]";
    const std::pair<std::string, std::pair<int, int>> rows[] = {
        {"{\"dirOSD\": {\"osdContent\": \"" + k177 + "\"}}", {4, 4}},
        {"{\"picOSDInfo\": {\"picOsdDetail\": [{\"prefixContent\": \"" + k97 + "\"}]}}", {4, 4}},
        {"{\"picOSDInfo\": {\"warpNum\": " + items38 + "}}", {4, 4}},
        {"{\"timeOSD\": {\"toMs\": \"1\"}}", {4, 4}},
        {"{\"picOSDInfo\": {\"picOSDNum\": 38}}", {0, 4}},  // refused by Run, logged below
    };
    for (const auto &row : rows) {
        std::size_t uBefore = daemon.RequestCount();
        EXPECT_EQ(Put(row.first), row.second) << row.first;
        EXPECT_EQ(daemon.RequestCount() - uBefore, 1u) << "only the read: " << row.first;
    }
    EXPECT_EQ(BusinessLines(logs).back(),
              (LogLine{3, "orbapi_itgt_module",
                       "[TALAPI]:RunPutITGTFrameOSD: picOSDNum[38] exceeds the 37 items of a "
                       "frame OSD"}));
}

TEST_F(FrameOsdTest, EncodesNoArraysForNoItemsAndNullInfoAboveTheCapacity) {
    Serve(DaemonRecord(0));
    std::string text = Get();
    EXPECT_EQ(text.find("picOSDType"), std::string::npos);
    EXPECT_EQ(text.find("picOsdDetail"), std::string::npos);
    EXPECT_NE(text.find("\"picOSDNum\": 0"), std::string::npos);
    Serve(DaemonRecord(38));
    text = Get();
    EXPECT_NE(text.find("\"picOSDInfo\": null"), std::string::npos);
    EXPECT_NE(text.find("\"enableLiveOSD\""), std::string::npos);
}

TEST_F(FrameOsdTest, TheBusinessTypeChoosesTheCommandAndQueriesAreReadInOrder) {
    struct Row {
        const char *query;
        int iRun;
        unsigned int uiCmd;  // 0: no command sent
        const char *pcLast;  // the last debug line of the stage
    };
    const Row rows[] = {
        {"ChannelId=3&OverlayPicType=1&BusinessType=TrafficDome", 0, 20099,
         "[TALAPI]:Enter RunGetITGTFrameOSD, businessType: TrafficDome"},
        {"ChannelId=3&OverlayPicType=1&BusinessType=Vlpr", 0, 20006,
         "[TALAPI]:Enter RunGetITGTFrameOSD, businessType: Vlpr"},
        {"ChannelId=3&OverlayPicType=1&BusinessType=trafficdome", -1, 0,
         "[TALAPI]:Enter RunGetITGTFrameOSD, businessType: trafficdome"},
        {"ChannelId=3&OverlayPicType=1&BusinessType=Face", -1, 0,
         "[TALAPI]:Enter RunGetITGTFrameOSD, businessType: Face"},
        {"ChannelId=3&OverlayPicType=1", 4, 0,
         "[TALAPI]:RunGetITGTFrameOSD: Query param BusinessType get failed"},
        {"ChannelId=3&BusinessType=Vlpr", 4, 0,
         "[TALAPI]:RunGetITGTFrameOSD, Query param get failed"},
        {"OverlayPicType=1", 4, 0, "[TALAPI]:RunGetITGTFrameOSD, Query param get failed"},
    };
    std::vector<unsigned char> readBody(VW_CMD_BODY_SIZE, 0);
    readBody[0] = 3;
    readBody[8] = 1;
    for (const Row &row : rows) {
        std::size_t uBefore = daemon.RequestCount();
        logs.Clear();
        StageRequest request("GET", kUrl, row.query);
        EXPECT_EQ(RunGetITGTFrameOSD(&request.stHeader, &request.stClient, &request.stCtInt),
                  row.iRun)
            << row.query;
        EXPECT_EQ(BusinessLines(logs).back().message, row.pcLast);
        EXPECT_EQ(daemon.RequestCount() - uBefore, row.uiCmd != 0 ? 1u : 0u) << row.query;
        if (row.uiCmd != 0) {
            EXPECT_EQ(daemon.Requests().back().uiCmd, row.uiCmd);
            EXPECT_EQ(daemon.Requests().back().body, readBody);
        }
    }
}

TEST_F(FrameOsdTest, StagesCheckTheirArgumentsAndOnlyGetComparesTheBusinessType) {
    StageRequest request("GET", kUrl, "BusinessType=Face");
    tagHTTP_BUF_S *pstBuf = &request.response.stBuf;
    EXPECT_EQ(FormatGetITGTFrameOSD(&request.stHeader, VW_RESULT_OK, &request.stCtInt, pstBuf), -1);
    EXPECT_EQ(request.response.iCalls, 0);
    EXPECT_EQ(
        FormatPutITGTFrameOSD(&request.stHeader, VW_RESULT_PARAM_ERR, &request.stCtInt, pstBuf), 0);
    EXPECT_NE(request.response.text.find("\"StatusCode\": 4"), std::string::npos);
    EXPECT_EQ(FormatPutITGTFrameOSD(&request.stHeader, VW_RESULT_OK, nullptr, pstBuf), -1);
    EXPECT_EQ(ParsePutITGTFrameOSD(nullptr, pstBuf, &request.stCtInt), -1);
    logs.Clear();
    // No Parse record: nothing to write.
    EXPECT_EQ(RunPutITGTFrameOSD(&request.stHeader, &request.stClient, &request.stCtInt), -1);
    EXPECT_EQ(BusinessLines(logs).back(),
              (LogLine{3, "orbapi_itgt_module", "[TALAPI]:Invalid Param"}));
    EXPECT_EQ(daemon.RequestCount(), 0u);
}

}  // namespace
