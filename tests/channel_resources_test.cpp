// SPDX-License-Identifier: Apache-2.0
// Video vehicle detector and OSD capability through the module's exported stages.
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
#include "talapi_json.h"

namespace {

using Bytes = std::vector<unsigned char>;

template <typename T>
Bytes BytesOf(const T &record) {
    const auto *pucBytes = reinterpret_cast<const unsigned char *>(&record);
    return Bytes(pucBytes, pucBytes + sizeof(T));
}

class ChannelResourcesTest : public ::testing::Test {
  protected:
    // Reads (a whole command body) are answered with `stored`, writes with Result 0.
    void Serve(const Bytes &stored) {
        daemon.SetHandler([stored](const FakeRequest &request) {
            FakeReply reply;
            reply.payload = request.uiBodyLen == VW_CMD_BODY_SIZE ? stored : Bytes();
            return reply;
        });
    }
    void SetUp() override {
        g_enDebugFlag = VW_DEBUG_ALL;
        Serve(BytesOf(Detector()));
    }
    void TearDown() override { g_enDebugFlag = VW_DEBUG_FAILURES; }

    // The detector record of channel 2, its 4 trailing bytes set so that their return shows.
    static VW_TRAFFIC_FLOW_PARA Detector() {
        VW_TRAFFIC_FLOW_PARA record;
        memset(&record, 0xA5, sizeof(record));
        record.ulChannelId = 2;
        record.iEnable = 0;
        record.stRectInfo = {10, 20, 300, 400};
        return record;
    }

    FakeDaemon daemon;
    LogCapture logs;
};

TEST_F(ChannelResourcesTest, DetectorGetAnswersTheRecordAndLogsThePairOfTheResult) {
    for (VW_RESULT_TYPE enResult : {VW_RESULT_OK, VW_RESULT_SEND_FAIL}) {
        logs.Clear();
        StageRequest request("GET", "/api/v1/itgt/video-vehicle-detector", "ChannelId=2");
        ASSERT_EQ(
            RunGetITGTVideoVehicleDetector(&request.stHeader, &request.stClient, &request.stCtInt),
            0);
        EXPECT_EQ(daemon.Requests().back().uiCmd, 20100u);
        EXPECT_EQ(FormatGetITGTVideoVehicleDetector(&request.stHeader, enResult, &request.stCtInt,
                                                    &request.response.stBuf),
                  0);
        EXPECT_EQ(request.response.text,
                  "{\n  \"channelId\": 2,\n  \"enable\": 0,\n  \"rectInfo\": {\n    \"x\": 10,\n"
                  "    \"y\": 20,\n    \"width\": 300,\n    \"height\": 400\n  }\n}");
        bool bOk = enResult == VW_RESULT_OK;
        EXPECT_EQ(logs.LanguageEntries(),
                  EventTwice(std::string("admin[192.168.1.20:50123] Get TrafficFlow Params ") +
                                 (bOk ? "Success." : "FAIL."),
                             std::string("admin[192.168.1.20:50123] 获取视频车检器参数") +
                                 (bOk ? "成功." : "失败.")));
        EXPECT_TRUE(BusinessLines(logs).empty()) << "the detector's stages write no trace";
    }
}

TEST_F(ChannelResourcesTest, DetectorPutChangesOnlyWhatItsBodyCarries) {
    struct Row {
        const char *body;
        int iParse;
        void (*change)(VW_TRAFFIC_FLOW_PARA &);  // null: nothing is written
    };
    const Row rows[] = {
        {"{\"enable\": 1}", 0, [](VW_TRAFFIC_FLOW_PARA &r) { r.iEnable = 1; }},
        {"{\"rectInfo\": {\"x\": 7}}", 0, [](VW_TRAFFIC_FLOW_PARA &r) { r.stRectInfo.sX = 7; }},
        {"{\"rectInfo\": {\"y\": 65535, \"width\": 3.7}}", 0,
         [](VW_TRAFFIC_FLOW_PARA &r) { r.stRectInfo.sY = -1, r.stRectInfo.sWidth = 3; }},
        {"{\"channelId\": 9}", 0, [](VW_TRAFFIC_FLOW_PARA &r) { r.ulChannelId = 9; }},
        {"{\"enable\": \"on\"}", 4, nullptr},
    };
    for (const Row &row : rows) {
        std::size_t uBefore = daemon.RequestCount();
        StageRequest request("PUT", "/api/v1/itgt/video-vehicle-detector", "ChannelId=2");
        ASSERT_EQ(PreProcPutITGTVideoVehicleDetector(&request.stHeader, &request.stSocket,
                                                     &request.stCtInt),
                  0);
        ASSERT_EQ(ParsePutITGTVideoVehicleDetector(&request.stHeader, request.Body(row.body),
                                                   &request.stCtInt),
                  row.iParse)
            << row.body;
        if (row.change == nullptr) {
            EXPECT_EQ(daemon.RequestCount() - uBefore, 1u) << "only the read";
            continue;
        }
        EXPECT_EQ(
            RunPutITGTVideoVehicleDetector(&request.stHeader, &request.stClient, &request.stCtInt),
            0);
        VW_TRAFFIC_FLOW_PARA expected = Detector();
        row.change(expected);
        EXPECT_EQ(daemon.Requests().back().body, BytesOf(expected)) << row.body;
        logs.Clear();
        EXPECT_EQ(FormatPutITGTVideoVehicleDetector(&request.stHeader, VW_RESULT_OK,
                                                    &request.stCtInt, &request.response.stBuf),
                  0);
        EXPECT_EQ(logs.LanguageEntries(),
                  EventTwice("admin[192.168.1.20:50123] Put TrafficFlow Params Success.",
                             "admin[192.168.1.20:50123] 设置视频车检器参数成功."));
    }
}

TEST_F(ChannelResourcesTest, DetectorStagesRefuseMissingArgumentsRecordsAndChannels) {
    StageRequest request("GET", "/api/v1/itgt/video-vehicle-detector", "");
    EXPECT_EQ(
        RunGetITGTVideoVehicleDetector(&request.stHeader, &request.stClient, &request.stCtInt), 4);
    EXPECT_EQ(BusinessLines(logs).back().message,
              "[TALAPI]:RunGetITGTVideoVehicleDetector, Query param get failed");
    EXPECT_EQ(PreProcPutITGTVideoVehicleDetector(&request.stHeader, nullptr, &request.stCtInt), -1);
    EXPECT_EQ(BusinessLines(logs).back().message,
              Printf("[TALAPI]:PreProcPutITGTVideoVehicleDetector: invalid param, header[%p] "
                     "client[%p] ctIn[%p]",
                     static_cast<void *>(&request.stHeader), nullptr,
                     static_cast<void *>(&request.stCtInt)));
    // No Parse record: nothing to write.
    EXPECT_EQ(
        RunPutITGTVideoVehicleDetector(&request.stHeader, &request.stClient, &request.stCtInt), -1);
    EXPECT_EQ(BusinessLines(logs).back().message,
              Printf("[TALAPI]:RunPutITGTVideoVehicleDetector: invalid param, header[%p] "
                     "client[%p] ctIn[%p]",
                     static_cast<void *>(&request.stHeader), static_cast<void *>(&request.stClient),
                     static_cast<void *>(&request.stCtInt)));
    EXPECT_EQ(daemon.RequestCount(), 0u);
}

TEST_F(ChannelResourcesTest, OsdCapabilityAnswersChannel101WithEveryFlagInPlace) {
    Bytes matrix(sizeof(_tagITGT_OSD_ABILITY_REST_API_S), 0);
    matrix[108 + 3 * 11 + 2] = 1;  // Vlpr, SecurityCodeOSD, feature
    Serve(matrix);
    StageRequest request("GET", "/api/v1/itgt/osd-capability", "ChannelId=101");
    ASSERT_EQ(RunGetITGTOsdCapability(&request.stHeader, &request.stClient, &request.stCtInt), 0);
    EXPECT_EQ(daemon.Requests().back().uiCmd, 31111u);
    EXPECT_EQ(daemon.Requests().back().body, Bytes(VW_CMD_BODY_SIZE, 0));
    ASSERT_EQ(FormatGetITGTOsdCapability(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                         &request.response.stBuf),
              0);
    json_object *pstRoot = cJSON_Parse(request.response.text.c_str());
    ASSERT_NE(pstRoot, nullptr);
    std::vector<std::string> businesses, items, trues;
    json_object_object_foreach(pstRoot, business, pstItems) {
        businesses.push_back(business);
        json_object_object_foreach(pstItems, item, pstKinds) {
            if (businesses.size() == 1) {
                items.push_back(item);
            }
            json_object_object_foreach(pstKinds, kind, pstFlag) {
                if (json_object_get_boolean(pstFlag)) {
                    trues.push_back(std::string(business) + "." + item + "." + kind);
                }
            }
        }
    }
    cJSON_Delete(pstRoot);
    EXPECT_EQ(businesses, (std::vector<std::string>{"TrafficDome", "Vlpr", "Vhd", "Face"}));
    ASSERT_EQ(items.size(), 36u);
    EXPECT_EQ(items.front(), "TimeOSD");
    EXPECT_EQ(items[9], "DirOSD");
    EXPECT_EQ(items[12], "Per_Brand_Type_OSD");
    EXPECT_EQ(items[32], "RadarDirDescOsd");
    EXPECT_EQ(items.back(), "ShelterPlateOSD");
    EXPECT_EQ(trues, (std::vector<std::string>{"Vlpr.SecurityCodeOSD.feature"}));
    EXPECT_TRUE(logs.LanguageEntries().empty());
}

TEST_F(ChannelResourcesTest, OsdCapabilityRefusesOtherChannelsWithoutACommand) {
    const std::pair<const char *, int> rows[] = {
        {"ChannelId=1", 6}, {"ChannelId=4294967397", 6}, {"", 4}, {"ChannelId=x", 4}};
    for (const auto &row : rows) {
        logs.Clear();
        StageRequest request("GET", "/api/v1/itgt/osd-capability", row.first);
        EXPECT_EQ(RunGetITGTOsdCapability(&request.stHeader, &request.stClient, &request.stCtInt),
                  row.second)
            << row.first;
        std::vector<LogLine> lines = BusinessLines(logs);
        EXPECT_EQ(lines.back().message, row.second == 6
                                            ? "[TALAPI]:Enter RunGetITGTOsdCapability"
                                            : "[TALAPI]:RunGetITGTOsdCapability, Query param get "
                                              "failed");
        EXPECT_EQ(
            FormatGetITGTOsdCapability(&request.stHeader, static_cast<VW_RESULT_TYPE>(row.second),
                                       &request.stCtInt, &request.response.stBuf),
            0);
        EXPECT_NE(request.response.text.find("\"ResponseStatus\""), std::string::npos);
        EXPECT_TRUE(logs.LanguageEntries().empty());
    }
    EXPECT_EQ(daemon.RequestCount(), 0u);
}

}  // namespace
