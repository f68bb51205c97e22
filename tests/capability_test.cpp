// SPDX-License-Identifier: Apache-2.0
// Intelligent capability through the module's exported stages, against a fake daemon.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "alloc_fault.h"
#include "fake_daemon.h"
#include "log_capture.h"
#include "module_lines.h"
#include "orbapi_itgt_module.h"
#include "stage_request.h"

namespace {

constexpr const char *kUrl = "/api/v1/itgt/capability";

const char *const kKeys[38] = {
    "audio",
    "motionDetection",
    "Occlustion",
    "videoAnalysis",
    "autoTracking",
    "scensechange",
    "scenseAdapter",
    "outofFocus",
    "crowdAnalysis",
    "videoDiagnosis",
    "complexBehavior",
    "faceDetection",
    "faceRecog",
    "faceAttr",
    "vhdClassify",
    "bodyAttr",
    "nonmotorAttr",
    "vhdfaceMix",
    "humanCount",
    "heatMap",
    "crowdDensity",
    "queueDetect",
    "faceRecMMC",
    "onlineLearning",
    "imgQualEval",
    "omni",
    "vlpr",
    "vlprQfree",
    "trafficCampus",
    "parkingDetection",
    "trafficStatistics",
    "its",
    "itsEpolice",
    "illegalball",
    "trafficEvent",
    "itsSixinone",
    "itsPassage",
    "itsPedRunRed",
};

const std::string kSuccessEnglish =
    "admin[192.168.1.20:50123] Get Intelligent Capability Successfully.";
const std::string kSuccessChinese = "admin[192.168.1.20:50123] 获取智能能力集成功.";
const std::string kFailEnglish = "admin[192.168.1.20:50123] Get Intelligent Capability Fail.";
const std::string kFailChinese = "admin[192.168.1.20:50123] 获取智能能力集失败.";

// The response text for these flag bytes: every key in order, true for any non-zero byte.
std::string ExpectedBody(const std::vector<unsigned char> &flags) {
    std::string text = "{\n";
    for (int i = 0; i < 38; ++i) {
        text += std::string("  \"") + kKeys[i] + "\": " + (flags[i] != 0 ? "true" : "false") +
                (i < 37 ? ",\n" : "\n");
    }
    return text + "}";
}

class CapabilityTest : public ::testing::Test {
  protected:
    void Serve(std::vector<unsigned char> payload, int iResult = 0,
               FakeBehaviour behaviour = FakeBehaviour::kNormal) {
        daemon.SetHandler([payload, iResult, behaviour](const FakeRequest &) {
            FakeReply reply;
            reply.payload = payload;
            reply.iResult = iResult;
            reply.iRecvMsg = 77;
            reply.enBehaviour = behaviour;
            return reply;
        });
    }
    void SetUp() override { g_enDebugFlag = VW_DEBUG_ALL; }
    void TearDown() override { g_enDebugFlag = VW_DEBUG_FAILURES; }

    FakeDaemon daemon;
    LogCapture logs;
};

TEST_F(CapabilityTest, AnswersEveryFlagInOrderWhateverTheReplyResult) {
    std::vector<unsigned char> flags(38, 0);
    flags[0] = 1;
    flags[2] = 2;
    flags[19] = 0x80;
    flags[37] = 0xFF;
    for (int iResult : {0, 9}) {
        Serve(flags, iResult);
        logs.Clear();
        StageRequest request("GET", kUrl, "");
        ASSERT_EQ(RunGetITGTCapability(&request.stHeader, &request.stClient, &request.stCtInt), 0);
        FakeRequest sent = daemon.Requests().back();
        EXPECT_EQ(sent.uiCmd, 31110u);
        EXPECT_EQ(sent.ullValue, 0u);
        EXPECT_EQ(sent.body, std::vector<unsigned char>(VW_CMD_BODY_SIZE, 0));

        EXPECT_EQ(FormatGetITGTCapability(&request.stHeader, VW_RESULT_OK, &request.stCtInt,
                                          &request.response.stBuf),
                  0);
        EXPECT_EQ(request.response.text, ExpectedBody(flags));
        EXPECT_EQ(logs.LanguageEntries(), EventTwice(kSuccessEnglish, kSuccessChinese));
        EXPECT_EQ(BusinessLines(logs),
                  (std::vector<LogLine>{
                      {0, "orbapi_itgt_module",
                       Printf("[TALAPI]:RunGetITGTCapability: httpReq[GET %s] sendCmd[31110] "
                              "recvMsg[77] Result[%d]",
                              kUrl, iResult)},
                  }));
    }
}

TEST_F(CapabilityTest, AFailedExchangeGivesOneAndTheEnvelopeWithTheFailurePair) {
    Serve({}, 0, FakeBehaviour::kCloseWithoutReply);
    StageRequest request("GET", kUrl, "");
    VW_RESULT_TYPE enRun =
        RunGetITGTCapability(&request.stHeader, &request.stClient, &request.stCtInt);
    EXPECT_EQ(enRun, 1);
    EXPECT_EQ(request.stCtInt.pRunOut, nullptr);
    EXPECT_EQ(FormatGetITGTCapability(&request.stHeader, enRun, &request.stCtInt,
                                      &request.response.stBuf),
              0);
    EXPECT_EQ(request.response.text,
              "{\n  \"ResponseStatus\": {\n    \"RequestURL\": \"/api/v1/itgt/capability\",\n"
              "    \"StatusCode\": 1,\n    \"StatusString\": \"BackendUnreachable\"\n  }\n}");
    EXPECT_EQ(logs.LanguageEntries(), EventTwice(kFailEnglish, kFailChinese));
    EXPECT_EQ(
        BusinessLines(logs),
        (std::vector<LogLine>{
            {3, "orbapi_itgt_module", "[TALAPI]:Send SynUnixMsg for Getting cmd[31110] failed"},
        }));
}

TEST_F(CapabilityTest, AResultRecordThatCannotBeAllocatedGivesEighteenAndSendsNothing) {
    StageRequest request("GET", kUrl, "");
    VW_RESULT_TYPE enRun;
    {
        ScopedAllocationFailure failure(1);
        enRun = RunGetITGTCapability(&request.stHeader, &request.stClient, &request.stCtInt);
        EXPECT_TRUE(failure.Triggered());
    }
    EXPECT_EQ(enRun, 18);
    EXPECT_EQ(request.stCtInt.pRunOut, nullptr);
    EXPECT_EQ(daemon.RequestCount(), 0u);
    EXPECT_EQ(
        BusinessLines(logs),
        (std::vector<LogLine>{
            {3, "orbapi_itgt_module",
             Printf("[TALAPI]:RunGetITGTCapability: malloc fail, response for req[GET %s]", kUrl)},
        }));
    EXPECT_EQ(FormatGetITGTCapability(&request.stHeader, enRun, &request.stCtInt,
                                      &request.response.stBuf),
              0);
    EXPECT_NE(request.response.text.find("\"StatusCode\": 18"), std::string::npos);
    EXPECT_EQ(logs.LanguageEntries(), EventTwice(kFailEnglish, kFailChinese));
}

TEST_F(CapabilityTest, StagesRefuseMissingArguments) {
    StageRequest request("GET", kUrl, "");
    EXPECT_EQ(FormatGetITGTCapability(&request.stHeader, VW_RESULT_OK, &request.stCtInt, nullptr),
              -1);
    EXPECT_EQ(
        FormatGetITGTCapability(nullptr, VW_RESULT_OK, &request.stCtInt, &request.response.stBuf),
        -1);
    EXPECT_EQ(RunGetITGTCapability(&request.stHeader, nullptr, &request.stCtInt), -1);
    EXPECT_TRUE(logs.LanguageEntries().empty());
    EXPECT_EQ(request.response.iCalls, 0);
    EXPECT_EQ(daemon.RequestCount(), 0u);
    EXPECT_EQ(BusinessLines(logs),
              (std::vector<LogLine>{
                  {3, "orbapi_itgt_module", "[TALAPI]:Null pointer"},
                  {3, "orbapi_itgt_module", "[TALAPI]:Null pointer"},
                  {3, "orbapi_itgt_module",
                   Printf("[TALAPI]:RunGetITGTCapability: invalid param, header[%p] client[%p] "
                          "ctIn[%p]",
                          static_cast<void *>(&request.stHeader), nullptr,
                          static_cast<void *>(&request.stCtInt))},
              }));
}

}  // namespace
