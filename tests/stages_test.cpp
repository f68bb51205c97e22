// SPDX-License-Identifier: Apache-2.0
// The module through its exported stages, against a fake daemon.
#include <fcntl.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "alloc_fault.h"
#include "host_requests.h"
#include "log_capture.h"

namespace {

// The test backend with the reply's Result replaced for reads or writes, or no reply at all.
FakeHandler Serving(int iRead, int iWrite, bool bClose) {
    return [valid = ValidBackend(), iRead, iWrite, bClose](const FakeRequest &request) {
        FakeReply reply = valid(request);
        reply.iResult = request.body.size() == VW_CMD_BODY_SIZE ? iRead : iWrite;
        reply.enBehaviour = bClose ? FakeBehaviour::kCloseWithoutReply : reply.enBehaviour;
        return reply;
    };
}

// A backend that answers every read with record, and every write with success.
FakeHandler Storing(const Bytes &record) {
    return [record](const FakeRequest &request) {
        return FakeReply{0, 0, request.body.size() == VW_CMD_BODY_SIZE ? record : Bytes()};
    };
}

std::string Envelope(const char *pcUrl, int iCode, const char *pcWord) {
    return Printf(
        "{\n  \"ResponseStatus\": {\n    \"RequestURL\": \"%s\",\n    \"StatusCode\": "
        "%d,\n    \"StatusString\": \"%s\"\n  }\n}",
        pcUrl, iCode, pcWord);
}

class StagesTest : public RequestTest {
  protected:
    // The messages of the business lines, one per line.
    std::string Trace() const {
        std::string trace;
        for (const LogLine &line : BusinessLines(logs)) {
            trace += (trace.empty() ? "" : "\n") + line.message;
        }
        return trace;
    }

    LogCapture logs;
};

// Each pointer argument null alone, records in place, then (where one is needed) the stage's record
// missing: -1, an error line, no command, answer or event. The detector's PUT Format reads nothing
// from the interchange record; the detector's Format stages log their event before the check.
TEST_F(StagesTest, EachNullArgumentAloneIsRefusedWithoutSideEffects) {
    for (const StageCase &row : kEveryStage) {
        const Resource &r = row.resource;
        const Stage iStage = row.enStage;
        const bool bDetector = &r == &kGetDetector || &r == &kPutDetector;
        // Parse, a PUT's Run, and the Format stages whose event prints the record need one.
        bool bNeedsRecord = iStage == kParse || (iStage == kRun && r.preProc != nullptr) ||
                            (iStage == kFormat &&
                             (&r == &kGetLanguage || &r == &kPutLanguage || &r == &kPostVerify));
        for (int iNull = 0; iNull < (bNeedsRecord ? 4 : 3); ++iNull) {
            SCOPED_TRACE(StageName(r, iStage) + " argument " + std::to_string(iNull));
            HostRequest q(r, row.query, row.body);
            if (iNull < 3) {
                ASSERT_EQ(q.PrepareFor(iStage), 0);
            } else if (&r == &kPostVerify) {
                q.Upload(dir + "/upload.jpg", JpegPicture(4502), 1);  // Run's record, not Format's
            }
            const std::size_t uSent = daemon.RequestCount();
            logs.Clear();
            bool bHarmless = bDetector && iStage == kFormat && iNull == 1 && r.preProc;
            EXPECT_EQ(q.Call(iStage, 0, iNull), bHarmless ? 0 : -1);
            EXPECT_EQ(daemon.RequestCount(), uSent);
            EXPECT_EQ(q.response.iCalls, bHarmless ? 1 : 0);
            EXPECT_EQ(logs.LanguageEntries().size(),
                      bDetector && iStage == kFormat && iNull != 0 ? 2u : 0u);
            std::vector<DebugLogEntry> lines = logs.DebugEntries();
            ASSERT_EQ(lines.empty(), bHarmless);
            EXPECT_TRUE(bHarmless ||
                        (lines.back().level == VW_LOG_ERROR &&
                         ::testing::internal::RE::PartialMatch(
                             lines.back().message,
                             "(invalid param|Invalid Param|Null pointer|no PreProc record)")))
                << lines.back().message;
        }
    }
}

// A request's answer, its operation-log event (the success or failure pair, to log 2 then log 1)
// and its first debug lines, for results of the daemon (read, write, or no reply) and of the host.
TEST_F(StagesTest, EachRequestAnswersAndLogsItsResult) {
    const std::string kUser = "admin[192.168.1.20:50123] ", kUpload = dir + "/upload.jpg";
    const char *kVerified = "{\n  \"channelId\": 5,\n  \"verifyResult\": %d\n}";
    const char *kLanguage = "Sys BackLanguange Params %s. ulChannelId[%s], enSysBackLanguage[%d]";
    const char *kLanguageZh = "%s系统语言%s. 通道号[%s], 语言类型[%d]";
    const std::string kMaxChannel = "18446744073709551615";
    const struct {
        const Resource &resource;
        std::string query;  // a verification: the picture's verdict
        const char *body;
        int iRead, iWrite, iNoReply, iRun, iFormatResult, iFormat;  // iFormatResult -2: Run's
        std::string response, english, chinese;                     // "": not compared, no event
        std::string trace;  // the first debug lines, one per line
    } rows[] = {
        {kGetLanguage, kChannel1, "", 0, 0, 0, 0, -2, 0, "{\n  \"channelId\": 1,\n  \"mode\": 3\n}",
         "Get " + Printf(kLanguage, "Successfully", "1", 3),
         Printf(kLanguageZh, "获取", "成功", "1", 3),
         "[TALAPI]:Enter RunGetITGTSysBackLanguag\n[TALAPI]:Enter RunGetITGTSysBackLanguag--"
         "GetCommon\n[TALAPI]:Enter FormatGetITGTSysBackLanguage\n[TALAPI]:Enter "
         "FormatGetITGTSysBackLanguage--FormatCommonResponse"},
        {kGetLanguage, "ChannelId=" + kMaxChannel, "", 0, 0, 0, 0, 1, 0,
         "{\n  \"channelId\": " + kMaxChannel + ",\n  \"mode\": 3\n}",
         "Get " + Printf(kLanguage, "fail", kMaxChannel.c_str(), 3),
         Printf(kLanguageZh, "获取", "失败", kMaxChannel.c_str(), 3), ""},
        {kPutLanguage, kChannel1, "{\"mode\": 2}", 0, 0, 0, 0, -2, 0,
         Envelope(kLanguageUrl, 0, "OK"), "Put " + Printf(kLanguage, "Successfully", "1", 2),
         Printf(kLanguageZh, "设置", "成功", "1", 2),
         "[TALAPI]:Enter PreProcPutITGTSysBackLanguage\n[TALAPI]:Enter PreProcPutITGTSysBack"
         "Language--GetCommon\n[TALAPI]:Enter ParsePutITGTSysBackLanguage--ParseCommon\n[TALAPI]:"
         "Enter  RunPutITGTSysBackLanguage\n[TALAPI]:Enter RunPutITGTSysBackLanguage--SetCommon\n"
         "[TALAPI]:Enter FormatPutITGTSysBackLanguage\n[TALAPI]:Enter FormatPutITGTSysBack"
         "Language--FormatCommonStatus"},
        {kPutLanguage, kChannel1, "{\"mode\": 6}", 0, 7, 0, 7, -2, 0,
         Envelope(kLanguageUrl, 7, "DeviceError"), "Put " + Printf(kLanguage, "fail", "1", 6),
         Printf(kLanguageZh, "设置", "失败", "1", 6), ""},
        {kGetCapability, "", "", 9, 0, 0, 0, -2, 0, "", "Get Intelligent Capability Successfully.",
         "获取智能能力集成功.",
         "[TALAPI]:RunGetITGTCapability: httpReq[GET /api/v1/itgt/capability] sendCmd[31110] "
         "recvMsg[0] Result[9]"},
        {kGetCapability, "", "", 0, 0, 1, 1, -2, 0,
         Envelope("/api/v1/itgt/capability", 1, "BackendUnreachable"),
         "Get Intelligent Capability Fail.", "获取智能能力集失败.",
         "[TALAPI]:Send SynUnixMsg for Getting cmd[31110] failed"},
        {kGetDetector, kChannel2, "", 0, 0, 0, 0, -2, 0,
         "{\n  \"channelId\": 2,\n  \"enable\": 1,\n  \"rectInfo\": {\n    \"x\": 10,\n    \"y\": "
         "20,\n    \"width\": 30,\n    \"height\": 40\n  }\n}",
         "Get TrafficFlow Params Success.", "获取视频车检器参数成功.", ""},
        {kGetDetector, kChannel2, "", 0, 0, 0, 0, 1, 0, "", "Get TrafficFlow Params FAIL.",
         "获取视频车检器参数失败.", ""},
        {kPutDetector, kChannel2, "{}", 0, 0, 0, 0, -2, 0, Envelope(kDetectorUrl, 0, "OK"),
         "Put TrafficFlow Params Success.", "设置视频车检器参数成功.", ""},
        {kPutDetector, kChannel2, "{}", 0, 7, 0, 7, -2, 0, "", "Put TrafficFlow Params FAIL.",
         "设置视频车检器参数失败.", ""},
        {kGetOsdCapability, "ChannelId=101", "", 0, 0, 0, 0, -2, 0, "", "", "",
         "[TALAPI]:Enter RunGetITGTOsdCapability\n[TALAPI]:Enter FormatGetITGTOsdCapability"},
        {kPutFrameOsd, kTrafficDome, "{}", 0, 0, 0, 0, -2, 0, Envelope(kFrameOsdUrl, 0, "OK"), "",
         "",
         "[TALAPI]:Enter PreProcPutITGTFrameOSD, businessType: TrafficDome\n[TALAPI]:Enter "
         "ParsePutITGTFrameOSD, businessType: TrafficDome\n[TALAPI]:Enter RunPutITGTFrameOSD, "
         "businessType: TrafficDome\n[TALAPI]:Enter FormatPutITGTFrameOSD, businessType: "
         "TrafficDome"},
        {kPostVerify, "4502", "", 0, 0, 0, 0, -2, 0, Printf(kVerified, 4502),
         "Post SecurityCode Successfully.", "智能图片防伪码校验成功.", ""},
        {kPostVerify, "4501", "", 0, 0, 0, 0, -2, 0, Printf(kVerified, 4501),
         "Post SecurityCode fail.", "智能图片防伪码校验失败.", ""},
        {kPostVerify, "4502", "", 7, 0, 0, 7, -2, -1, "", "", "",
         "[TALAPI]:" + kUpload + " exist\n[TALAPI]:RestSendSynUnixMsg Result[7] is not match 0"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.resource.name) + " " + row.query + " " + row.body);
        daemon.SetHandler(Serving(row.iRead, row.iWrite, row.iNoReply != 0));
        bool bVerify = &row.resource == &kPostVerify;
        HostRequest q(row.resource, bVerify ? "" : row.query, row.body);
        if (bVerify) {
            q.Upload(kUpload, JpegPicture(std::stoul(row.query)), 5);
        }
        logs.Clear();
        EXPECT_EQ(q.CallUpTo(kRun), row.iRun);
        EXPECT_EQ(q.Call(kFormat, row.iFormatResult == -2 ? row.iRun : row.iFormatResult),
                  row.iFormat);
        EXPECT_EQ(q.response.iCalls, row.iFormat == 0 ? 1 : 0);
        if (!row.response.empty()) {
            EXPECT_EQ(q.response.text, row.response);
        }
        const std::string english = kUser + row.english, chinese = kUser + row.chinese;
        EXPECT_EQ(logs.LanguageEntries(),
                  row.english.empty() ? std::vector<LanguageLogEntry>{}
                                      : std::vector<LanguageLogEntry>(
                                            {{2, 4, english, chinese}, {1, 4, english, chinese}}));
        EXPECT_EQ(Trace().substr(0, row.trace.size()), row.trace);
    }
}

// Query parameters are read, in order, before any command: a missing or unreadable one gives 4
// (an unknown business type -1, an OSD capability channel but 101 6), nothing is sent, and the
// last line says why: "Enter" is "Enter <stage>", "=<t>" "Enter <stage>, businessType: <t>".
TEST_F(StagesTest, QueryParametersAreReadBeforeAnyCommand) {
    const std::string kOsd = "ChannelId=3&OverlayPicType=1&BusinessType=", k39(39, 'B');
    const std::string kFailed = ", Query param get failed";
    const std::string kNoType = ": Query param BusinessType get failed";
    const struct {
        const Resource &resource;
        Stage enStage;
        std::string query;
        int iResult;
        std::string last;
    } rows[] = {
        {kGetLanguage, kRun, "", 4, kFailed},
        {kPutLanguage, kPreProc, "channelid=1", 4, kFailed},
        {kGetLanguage, kRun, "ChannelId=18446744073709551616", 4, kFailed},
        {kGetDetector, kRun, "ChannelId=", 4, kFailed},
        {kPutDetector, kPreProc, "ChannelId=-1", 4, kFailed},
        {kGetOsdCapability, kRun, "ChannelId=1", 6, "Enter"},
        {kGetOsdCapability, kRun, "ChannelId=4294967397", 6, "Enter"},
        {kGetOsdCapability, kRun, "ChannelId=x", 4, kFailed},
        {kGetFrameOsd, kRun, kOsd + "trafficdome", -1, "=trafficdome"},
        {kGetFrameOsd, kRun, kOsd + k39, -1, "=" + k39},  // a type fills 39 bytes and a NUL
        {kGetFrameOsd, kRun, kOsd + k39 + "B", 4, kNoType},
        {kGetFrameOsd, kRun, "ChannelId=3&OverlayPicType=1", 4, kNoType},
        {kGetFrameOsd, kRun, "ChannelId=3&BusinessType=Vlpr", 4, kFailed},
        {kPutFrameOsd, kPreProc, "OverlayPicType=1&BusinessType=Vlpr", 4, kFailed},
        {kPutFrameOsd, kParse, kOsd + "Face", -1, "=Face"},
        {kGetFrameOsd, kFormat, kOsd + "Face", -1, "=Face"},
        {kPutFrameOsd, kFormat, kOsd + "Face", 0, "=Face"},  // only the GET compares it
        {kPutFrameOsd, kFormat, "ChannelId=3", 4, kNoType},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(StageName(row.resource, row.enStage) + " " + row.query);
        std::size_t uBefore = daemon.RequestCount();
        logs.Clear();
        HostRequest q(row.resource, row.query, "{}");
        if (row.enStage == kParse) {
            q.stCtInt.pPreProcOut = calloc(1, row.resource.uRecordSize);
        }
        EXPECT_EQ(q.Call(row.enStage), row.iResult);
        EXPECT_EQ(daemon.RequestCount(), uBefore);
        const std::string stage = StageName(row.resource, row.enStage);
        EXPECT_EQ(BusinessLines(logs).back().message,
                  "[TALAPI]:" + (row.last == "Enter" ? "Enter " + stage
                                 : row.last[0] == '='
                                     ? "Enter " + stage + ", businessType: " + row.last.substr(1)
                                     : stage + row.last));
        EXPECT_EQ(q.response.iCalls, row.enStage == kFormat && row.iResult == 0 ? 1 : 0);
    }
}

// The bytes of a daemon's record with every byte set, padding and unmapped bytes included, and
// texts terminated; n items for a frame OSD. Bytes, as a copy of the record may drop its padding.
template <typename T>
Bytes DaemonRecord(unsigned int uiItems = 0) {
    T record;
    auto *pucBytes = reinterpret_cast<unsigned char *>(&record);
    for (std::size_t i = 0; i < sizeof(record); ++i) {
        pucBytes[i] = static_cast<unsigned char>(0x41 + i % 26);
    }
    if constexpr (std::is_same_v<T, _VW_PIC_OSD_PARA_S>) {
        record.picOSDInfo.picOSDNum = uiItems;
        for (_CUSTOM_OSD_PARA_S *pstText = &record.roadIdOSD; pstText <= &record.laneDirOSD;
             ++pstText) {
            pstText->osdContent[176] = '\0';
        }
        for (_PIC_OSD_DETAILS &stDetail : record.picOSDInfo.picOsdDetail) {
            stDetail.prefixContent[96] = '\0';
        }
    }
    return AsBytes(record);
}

template <typename T>
struct MergeRow {
    std::string body;
    int iParse, iRun;
    void (*change)(T &);  // null: nothing is written
};

// A PUT decodes its body into the record it read and writes that whole record, every other byte
// as the daemon gave it; a body that does not decode, or a record Run refuses, writes nothing.
template <typename T>
void ExpectMerges(FakeDaemon &daemon, const Resource &r, const char *pcQuery,
                  const std::vector<MergeRow<T>> &rows, const Bytes &stored) {
    daemon.SetHandler(Storing(stored));
    for (const MergeRow<T> &row : rows) {
        std::size_t uBefore = daemon.RequestCount();
        HostRequest q(r, pcQuery, row.body);
        ASSERT_EQ(q.Call(kPreProc), 0);
        void *pvRead = q.stCtInt.pPreProcOut;
        EXPECT_EQ(q.Call(kParse), row.iParse) << row.body;
        EXPECT_EQ(q.stCtInt.pParseOut, row.iParse == 0 ? pvRead : nullptr) << "moved, not copied";
        if (row.iParse == 0) {
            EXPECT_EQ(q.Call(kRun), row.iRun) << row.body;
        }
        EXPECT_EQ(daemon.RequestCount() - uBefore, row.change != nullptr ? 2u : 1u) << row.body;
        if (row.change != nullptr) {
            T expected;
            memcpy(&expected, stored.data(), sizeof(expected));
            row.change(expected);
            EXPECT_TRUE(daemon.Requests().back().body == AsBytes(expected)) << row.body;
        }
    }
}

TEST_F(StagesTest, APutWritesTheRecordItReadChangedByItsBody) {
    using Language = VW_SYS_BACK_LANGUAGE_PARAM;
    ExpectMerges<Language>(
        daemon, kPutLanguage, kChannel1,
        {{"{\"mode\": 2}", 0, 0, [](Language &r) { r.enSysBackLanguage = SYS_BACK_LANGUAGE{2}; }},
         {"{\"mode\": true}", 0, 0,
          [](Language &r) { r.enSysBackLanguage = SYS_BACK_LANGUAGE{1}; }},
         {"{\"mode\": \"2\"}", 4, 0, nullptr}},
        DaemonRecord<Language>());
    using Detector = VW_TRAFFIC_FLOW_PARA;
    ExpectMerges<Detector>(daemon, kPutDetector, kChannel2,
                           {{"{\"rectInfo\": {\"y\": 65535, \"width\": 3.7}}", 0, 0,
                             [](Detector &r) { r.stRectInfo.sY = -1, r.stRectInfo.sWidth = 3; }},
                            {"{\"enable\": \"1\"}", 4, 0, nullptr},
                            {"{\"rectInfo\": {\"height\": \"2\"}}", 4, 0, nullptr}},
                           DaemonRecord<Detector>());
    using Osd = _VW_PIC_OSD_PARA_S;
    const std::string k176(176, 't'), k177(177, 't'), k96(96, 'p');
    std::string k38Items = "0";
    for (int i = 1; i < 38; ++i) {
        k38Items += ", 0";
    }
    ExpectMerges<Osd>(
        daemon, kPutFrameOsd, kTrafficDome,
        {{"{\"channelId\": 9, \"picOSDInfo\": {\"fgAlpha\": 300, \"warpNum\": [1, 2]}, "
          "\"roadIdOSD\": {\"osdContent\": \"" +
              k176 + "\"}}",
          0, 0,
          [](Osd &r) {
              r.channelId = 9, r.picOSDInfo.fgAlpha = 44, r.picOSDInfo.picOSDNum = 2;
              r.picOSDInfo.warpNum[0] = 1, r.picOSDInfo.warpNum[1] = 2;
              memset(r.roadIdOSD.osdContent, 't', 176);
          }},
         {"{\"picOSDInfo\": {\"picOSDType\": [1, 2, 3], \"spaceNum\": [4, 5, 6, 7, 8]}}", 0, 0,
          [](Osd &r) {  // the longest array sets the shared count
              r.picOSDInfo.picOSDNum = 5;
              for (int i = 0; i < 5; ++i) {
                  r.picOSDInfo.picOSDType[i] =
                      i < 3 ? VW_PIC_OSD_ITEM_E(i + 1) : r.picOSDInfo.picOSDType[i];
                  r.picOSDInfo.spaceNum[i] = 4 + i;
              }
          }},
         {"{\"enableLiveOSD\": true, \"overlayType\": 1.9, \"timeOSD\": {\"toMs\": -2.5}, "
          "\"picOSDInfo\": {\"fgColor\": false, \"bgAlpha\": 2.5, \"fontSize\": true}}",
          0, 0,
          [](Osd &r) {  // booleans and fractions into members of every kind
              r.enableLiveOSD = 1, r.overlayType = VW_OVERLAY_PIC_TYPE_E(1), r.timeOSD.toMs = -2;
              r.picOSDInfo.fgColor = 0, r.picOSDInfo.bgAlpha = 2;
              r.picOSDInfo.fontSize = VW_OSD_FONT_SIZE_E(1);
          }},
         {"{\"dirOSD\": {\"osdContent\": \"" + k177 + "\"}}", 4, 0, nullptr},
         {"{\"picOSDInfo\": {\"picOsdDetail\": [{}, {\"prefixContent\": \"" + k96 + "\"}]}}", 0, 0,
          [](Osd &r) {
              r.picOSDInfo.picOSDNum = 2;
              memset(r.picOSDInfo.picOsdDetail[1].prefixContent, 'p', 96);
          }},
         {"{\"picOSDInfo\": {\"picOsdDetail\": [{\"prefixContent\": \"" + k96 + "p\"}]}}", 4, 0,
          nullptr},
         {"{\"picOSDInfo\": {\"warpNum\": [" + k38Items + "]}}", 4, 0, nullptr},
         {"{\"timeOSD\": {\"toMs\": \"1\"}}", 4, 0, nullptr},
         {"{\"picOSDInfo\": {\"picOSDNum\": 37}}", 0, 0,
          [](Osd &r) { r.picOSDInfo.picOSDNum = 37; }},  // the items of a frame OSD, all
         {"{\"picOSDInfo\": {\"picOSDNum\": 38}}", 0, 4, nullptr}},
        DaemonRecord<Osd>(5));
    EXPECT_EQ(BusinessLines(logs).back(),
              (LogLine{3, "orbapi_itgt_module",
                       "[TALAPI]:RunPutITGTFrameOSD: picOSDNum[38] exceeds the 37 items of a "
                       "frame OSD"}));

    // Answered with all 37 items and written back as answered, a record is written byte for
    // byte; answered with none it has no item arrays, with 38 no items at all.
    const auto answer = [this](unsigned int uiItems) {
        daemon.SetHandler(Storing(DaemonRecord<Osd>(uiItems)));
        return HostRequest(kGetFrameOsd, kTrafficDome).Perform();
    };
    HostRequest put(kPutFrameOsd, kTrafficDome, answer(37));
    ASSERT_EQ(put.CallUpTo(kRun), 0);
    EXPECT_TRUE(daemon.Requests().back().body == DaemonRecord<Osd>(37));
    EXPECT_EQ(answer(0).find("picOSDType"), std::string::npos);
    EXPECT_NE(answer(38).find("\"picOSDInfo\": null"), std::string::npos);
}

// An upload is verified only when it opens and starts with the JPEG start-of-image marker (its
// first 8 bytes read as one item); it is then moved to the fixed path that the command names. An
// upload that vanished before the move is reported, and the command goes out all the same.
TEST_F(StagesTest, UploadsAreCheckedMovedAndSent) {
    const Bytes eight = {0xFF, 0xD8, 0x21, 0, 0, 0, 0, 0}, seven = {0xFF, 0xD8, 1, 2, 3, 4, 5},
                swapped = {0xD8, 0xFF, 1, 2, 3, 4, 5, 6};
    const struct {
        const Bytes *pBytes;  // null: no file
        int iRun;
        LogLine last;  // its message a format of the path; none when accepted
    } rows[] = {
        {&eight, 0, {}},
        {&seven, 4, {0, "orbapi_itgt_module", "[TALAPI]:%s fread failed"}},
        {&swapped, 4, {0, "orbapi_itgt_module", "[TALAPI]:%s is not jpg"}},
        {nullptr, 4, {3, "orbapi_itgt_module", "[TALAPI]:%s not exist"}},
    };
    for (const auto &row : rows) {
        std::string path = dir + "/upload-" + std::to_string(&row - rows);
        std::size_t uBefore = daemon.RequestCount();
        logs.Clear();
        HostRequest q(kPostVerify, "");
        q.Upload(path, row.pBytes != nullptr ? *row.pBytes : Bytes(), 5);
        EXPECT_EQ(q.Call(kRun), row.iRun) << path;
        EXPECT_EQ(daemon.RequestCount() - uBefore, row.iRun == 0 ? 1u : 0u) << path;
        if (row.iRun != 0) {
            LogLine last = row.last;
            last.message = Printf(last.message.c_str(), path.c_str());
            EXPECT_EQ(BusinessLines(logs).back(), last);
            EXPECT_EQ(access(path.c_str(), F_OK) == 0, row.pBytes != nullptr) << "left in place";
            continue;
        }
        EXPECT_EQ(ReadFile(kFixedPicture), *row.pBytes);
        EXPECT_NE(access(path.c_str(), F_OK), 0);
        EXPECT_STREQ(q.stClient.packetName, kFixedPicture);
    }

    // A pipe whose writer removes it before it sends a picture's first bytes.
    const std::string vanishing = dir + "/vanishing";
    ASSERT_EQ(mkfifo(vanishing.c_str(), 0600), 0);
    std::thread writer([&] {
        int iFd = open(vanishing.c_str(), O_WRONLY);
        unlink(vanishing.c_str());
        EXPECT_EQ(write(iFd, eight.data(), eight.size()), 8);
        close(iFd);
    });
    logs.Clear();
    HostRequest q(kPostVerify, "");
    q.Upload(vanishing, {}, 5);
    EXPECT_EQ(q.Call(kRun), 0);
    writer.join();
    EXPECT_THAT(Trace(),
                ::testing::EndsWith(Printf("[TALAPI]:rename from (%s) -> (%s) faild:errInfo = %s\n"
                                           "[TALAPI]:RemoveFile<%s> failed:ret = -1",
                                           vanishing.c_str(), kFixedPicture, strerror(ENOENT),
                                           vanishing.c_str())));
    EXPECT_STREQ(q.stClient.packetName, kFixedPicture);
    EXPECT_EQ(daemon.Requests().back().uiCmd, 20101u);
}

// Without the log capture, which allocates: requests on their own, with the debug log to a file.
using StagePathsTest = RequestTest;

// Every path of every request releases what it allocated (JSON trees, texts, records): success, no
// reply, a body that does not decode, a refused write, an answer the host cannot take (-1, logged),
// no channel. A success sends exactly its commands, of value 0: a read whose body is zeros but for
// the channel (and picture type), and for a PUT then the whole record read ("{}" changes nothing).
TEST_F(StagePathsTest, EveryPathSendsItsCommandsAndReleasesWhatItAllocates) {
    enum Path { kOk, kNoReply, kBadBody, kRefusedWrite, kSinkFails, kNoChannel };
    const std::string log = dir + "/debug.log", upload = dir + "/upload.jpg";
    VW_SetDebugLogFile(log.c_str());
    HostRequest(kGetLanguage, kChannel1).Perform();  // the C library's one-time set-up
    // Each resource's command, and the channel and picture type its read carries.
    const std::tuple<const Resource *, unsigned int, unsigned long long, unsigned int> rows[] = {
        {&kGetLanguage, 54, 1, 0},      {&kPutLanguage, 54, 1, 0},
        {&kGetFrameOsd, 20006, 2, 1},   {&kPutFrameOsd, 20099, 1, 0},
        {&kGetCapability, 31110, 0, 0}, {&kGetDetector, 20100, 2, 0},
        {&kPutDetector, 20100, 2, 0},   {&kGetOsdCapability, 31111, 0, 0},
        {&kPostVerify, 20101, 1, 0}};
    for (const auto &[pResource, uiCmd, ullChannel, uiType] : rows) {
        const StageCase &request = TableRequest(*pResource);
        for (int iPath = kOk; iPath <= kNoChannel; ++iPath) {
            SCOPED_TRACE(std::string(pResource->name) + " path " + std::to_string(iPath));
            daemon.SetHandler(Serving(0, iPath == kRefusedWrite ? 7 : 0, iPath == kNoReply));
            const std::size_t uSent = daemon.RequestCount();
            const long long llBefore = AllocationBalance();
            {
                HostRequest q(*pResource, iPath == kNoChannel ? "" : request.query,
                              iPath == kBadBody ? "{"
                              : iPath == kOk    ? "{}"
                                                : request.body);
                if (pResource == &kPostVerify) {
                    q.Upload(upload, JpegPicture(4502), 1);
                }
                q.response.iAnswer = iPath == kSinkFails ? -1 : 0;
                EXPECT_EQ(q.Perform() == "<run 0, format -1>", iPath == kSinkFails);
            }
            EXPECT_EQ(AllocationBalance(), llBefore);
            std::vector<FakeRequest> sent = daemon.Requests();
            sent.erase(sent.begin(), sent.begin() + uSent);
            if (iPath == kSinkFails) {
                std::ifstream in(log);
                std::string text((std::istreambuf_iterator<char>(in)), {});
                EXPECT_NE(text.rfind("Copy2Buf fail, dataLen["), std::string::npos);
            } else if (iPath == kOk) {
                ASSERT_EQ(sent.size(), pResource->preProc != nullptr ? 2u : 1u);
                for (const FakeRequest &command : sent) {
                    EXPECT_EQ(std::make_tuple(command.uiCmd, command.uiMsgType, command.ullValue),
                              std::make_tuple(uiCmd, 0u, 0ull));
                }
                EXPECT_TRUE(sent[0].body ==
                            WireRecord<vwCmdBody>([c = ullChannel, t = uiType](auto &b) {
                                b.ulChannelId = c;
                                memcpy(b.aucParam, &t, sizeof(t));
                            }));
                EXPECT_TRUE(sent.size() == 1 || sent[1].body == DefaultRecord(uiCmd, sent[0]));
            }
        }
    }
}

}  // namespace
