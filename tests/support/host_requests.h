// SPDX-License-Identifier: Apache-2.0
// Requests as an access server drives them through the module's stages: the resources and their
// stages, one request table that every harness shares, a driver, a fake backend that answers
// every command with a valid record and tells verification pictures apart, and their fixture.
#ifndef TESTS_SUPPORT_HOST_REQUESTS_H
#define TESTS_SUPPORT_HOST_REQUESTS_H

#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fake_daemon.h"
#include "orbapi_itgt_module.h"
#include "orbapi_itgt_records.h"
#include "stage_request.h"
#include "talapi_log.h"

using Bytes = std::vector<unsigned char>;
constexpr const char *kFixedPicture = "/tmp/securityCode.jpg";  // where verifications move uploads

template <typename T>
Bytes AsBytes(const T &record) {
    const auto *pucBytes = reinterpret_cast<const unsigned char *>(&record);
    return Bytes(pucBytes, pucBytes + sizeof(T));
}

// A file's bytes; none when it does not open.
inline Bytes ReadFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// A resource and method: its URL, the common part of its stages' names and their method part, its
// stages (a PUT has all four, a GET or POST Run and Format) and the size of its record.
struct Resource {
    const char *name, *method, *url, *verb;
    TALAPI_PREPROC_STAGE_PF preProc;
    TALAPI_PARSE_STAGE_PF parse;
    TALAPI_RUN_STAGE_PF run;
    TALAPI_FORMAT_STAGE_PF format;
    std::size_t uRecordSize;
};
enum Stage { kPreProc, kParse, kRun, kFormat };

// The exported name of a resource's stage, as "PreProcPutITGTFrameOSD".
inline std::string StageName(const Resource &r, int iStage) {
    static const char *const kKinds[] = {"PreProc", "Parse", "Run", "Format"};
    return kKinds[iStage] + std::string(r.verb) + "ITGT" + r.name;
}

#define ITGT_READ(Method, METHOD, name, url, record)                               \
    Resource {                                                                     \
        "" #name, METHOD, url, #Method, nullptr, nullptr, Run##Method##ITGT##name, \
            Format##Method##ITGT##name, sizeof(record)                             \
    }
#define ITGT_GET(name, url, record) ITGT_READ(Get, "GET", name, url, record)
#define ITGT_PUT(name, url, record)                                                              \
    Resource {                                                                                   \
        "" #name, "PUT", url, "Put", PreProcPutITGT##name, ParsePutITGT##name, RunPutITGT##name, \
            FormatPutITGT##name, sizeof(record)                                                  \
    }
constexpr const char *kLanguageUrl = "/api/v1/itgt/sys-back-language";
constexpr const char *kFrameOsdUrl = "/api/v1/itgt/frame-osd";
constexpr const char *kDetectorUrl = "/api/v1/itgt/video-vehicle-detector";
const Resource kGetLanguage = ITGT_GET(SysBackLanguage, kLanguageUrl, VW_SYS_BACK_LANGUAGE_PARAM);
const Resource kPutLanguage = ITGT_PUT(SysBackLanguage, kLanguageUrl, VW_SYS_BACK_LANGUAGE_PARAM);
const Resource kGetFrameOsd = ITGT_GET(FrameOSD, kFrameOsdUrl, _VW_PIC_OSD_PARA_S);
const Resource kPutFrameOsd = ITGT_PUT(FrameOSD, kFrameOsdUrl, _VW_PIC_OSD_PARA_S);
const Resource kGetCapability =
    ITGT_GET(Capability, "/api/v1/itgt/capability", ITGT_ABILITY_REST_API);
const Resource kGetDetector = ITGT_GET(VideoVehicleDetector, kDetectorUrl, VW_TRAFFIC_FLOW_PARA);
const Resource kPutDetector = ITGT_PUT(VideoVehicleDetector, kDetectorUrl, VW_TRAFFIC_FLOW_PARA);
const Resource kGetOsdCapability =
    ITGT_GET(OsdCapability, "/api/v1/itgt/osd-capability", _tagITGT_OSD_ABILITY_REST_API_S);
const Resource kPostVerify = ITGT_READ(Post, "POST", SecurityCodeVerify,
                                       "/api/v1/itgt/security-code-verify", VerifyResultParam);

// A JPEG start-of-image and a comment segment holding uiId in decimal, then the end of image.
inline Bytes JpegPicture(unsigned int uiId) {
    const std::string id = std::to_string(uiId);
    Bytes jpeg = {0xFF, 0xD8, 0xFF, 0xFE, 0, static_cast<unsigned char>(2 + id.size())};
    for (char c : id + "\xFF\xD9") {
        jpeg.push_back(static_cast<unsigned char>(c));
    }
    return jpeg;
}

// The records of one request for a resource.
struct HostRequest : StageRequest {
    const Resource &resource;

    HostRequest(const Resource &r, const std::string &query, const std::string &body = "")
        : StageRequest(r.method, r.url, query.c_str()), resource(r) {
        Body(body);
    }
    // One stage; Format is given iRunResult. Pointer argument iNull (from 0) is passed null.
    int Call(int iStage, int iRunResult = 0, int iNull = -1) {
        const Resource &r = resource;
        auto *h = iNull == 0 ? nullptr : &stHeader;
        auto *i = iNull == (iStage == kFormat ? 1 : 2) ? nullptr : &stCtInt;
        bool bNull = iNull == (iStage == kFormat ? 2 : 1);
        switch (iStage) {
            case kPreProc:
                return r.preProc(h, bNull ? nullptr : stClient.pstUnixSocket, i);
            case kParse:
                return r.parse(h, bNull ? nullptr : &stBody, i);
            case kRun:
                return r.run(h, bNull ? nullptr : &stClient, i);
            default:
                return r.format(h, VW_RESULT_TYPE(iRunResult), i,
                                bNull ? nullptr : &response.stBuf);
        }
    }
    // The stages from the first through iLast; the first non-zero result ends them.
    int CallUpTo(int iLast) {
        int iResult = 0;
        for (int i = resource.preProc ? kPreProc : kRun; i <= iLast && iResult == 0; ++i) {
            iResult = Call(i);
        }
        return iResult;
    }
    // The whole request: the response text, or which stage gave what.
    std::string Perform() {
        int iResult = CallUpTo(kRun);
        int iFormat = Call(kFormat, iResult);
        if (iResult != 0 || iFormat != 0) {
            return "<run " + std::to_string(iResult) + ", format " + std::to_string(iFormat) + ">";
        }
        return response.text;
    }
    // A verification upload at path of the picture (none: no file), for the channel.
    void Upload(const std::string &path, const Bytes &picture, unsigned long long ullChannel) {
        if (!picture.empty()) {
            std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char *>(picture.data()), picture.size());
        }
        strncpy(stClient.packetName, path.c_str(), sizeof(stClient.packetName) - 1);
        auto *pstBody = static_cast<vwCmdBody *>(calloc(1, sizeof(vwCmdBody)));  // the host's
        pstBody->ulChannelId = ullChannel;
        stCtInt.pParseOut = pstBody;
    }
    // The stages before iStage (a Format stage: through Run), after an upload for a verification.
    int PrepareFor(int iStage) {
        if (resource.run == RunPostITGTSecurityCodeVerify) {
            Upload("/tmp/talapi-stage-upload-" + std::to_string(getpid()) + ".jpg",
                   JpegPicture(4502), 1);
        }
        return CallUpTo(iStage == kFormat ? kRun : iStage - 1);
    }
};

// Every stage of every resource, with a request that succeeds against ValidBackend() (the stages
// before a row's run first) and the results the stage may give when one of its allocations fails.
struct StageCase {
    const Resource &resource;
    Stage enStage;
    const char *query, *body;
    std::vector<int> failureResults;
};
constexpr const char *kChannel1 = "ChannelId=1", *kChannel2 = "ChannelId=2";
constexpr const char *kTrafficDome = "ChannelId=1&OverlayPicType=0&BusinessType=TrafficDome";
constexpr const char *kVlpr = "ChannelId=2&OverlayPicType=1&BusinessType=Vlpr";
constexpr const char *kModeBody = "{\"mode\": 2}";
constexpr const char *kOsdBody =
    "{\"picOSDInfo\": {\"picOSDType\": [1, 2, 3], \"spaceNum\": [0, 1, 2], \"picOsdDetail\": "
    "[{\"prefixEnable\": 1, \"prefixContent\": \"No.\"}]}, \"roadIdOSD\": {\"osdContent\": \"Ring "
    "Road 3\"}, \"timeOSD\": {\"toMs\": 1}}";
constexpr const char *kDetectorBody = "{\"enable\": 0, \"rectInfo\": {\"x\": 40, \"width\": 99}}";
const StageCase kEveryStage[] = {
    {kGetLanguage, kRun, kChannel1, "", {0, 18}},
    {kGetLanguage, kFormat, kChannel1, "", {0, -1}},
    {kPutLanguage, kPreProc, kChannel1, kModeBody, {0, 18}},
    {kPutLanguage, kParse, kChannel1, kModeBody, {0, 4}},
    {kPutLanguage, kRun, kChannel1, kModeBody, {0}},
    {kPutLanguage, kFormat, kChannel1, kModeBody, {0, -1}},
    {kGetFrameOsd, kRun, kVlpr, "", {0, 18}},
    {kGetFrameOsd, kFormat, kVlpr, "", {0, -1}},
    {kPutFrameOsd, kPreProc, kTrafficDome, kOsdBody, {0, 18}},
    {kPutFrameOsd, kParse, kTrafficDome, kOsdBody, {0, 4}},
    {kPutFrameOsd, kRun, kTrafficDome, kOsdBody, {0}},
    {kPutFrameOsd, kFormat, kTrafficDome, kOsdBody, {0, -1}},
    {kGetCapability, kRun, "", "", {0, 18}},
    {kGetCapability, kFormat, "", "", {0, -1}},
    {kGetDetector, kRun, kChannel2, "", {0, 18}},
    {kGetDetector, kFormat, kChannel2, "", {0, -1}},
    {kPutDetector, kPreProc, kChannel2, kDetectorBody, {0, 18}},
    {kPutDetector, kParse, kChannel2, kDetectorBody, {0, 4}},
    {kPutDetector, kRun, kChannel2, kDetectorBody, {0}},
    {kPutDetector, kFormat, kChannel2, kDetectorBody, {0, -1}},
    {kGetOsdCapability, kRun, "ChannelId=101", "", {0, 18}},
    {kGetOsdCapability, kFormat, "ChannelId=101", "", {0, -1}},
    {kPostVerify, kRun, "", "", {0, 4, 18}},  // 4: the upload cannot be opened
    {kPostVerify, kFormat, "", "", {0, -1}},
};

// Each resource, and the query and body of its request in the table.
const Resource *const kResources[] = {&kGetLanguage, &kPutLanguage,      &kGetFrameOsd,
                                      &kPutFrameOsd, &kGetCapability,    &kGetDetector,
                                      &kPutDetector, &kGetOsdCapability, &kPostVerify};
inline const StageCase &TableRequest(const Resource &r) {
    for (const StageCase &row : kEveryStage) {
        if (&row.resource == &r) {
            return row;
        }
    }
    return kEveryStage[0];
}

// A record of zero bytes, padding included, as fill sets it; in wire bytes.
template <typename T, typename Fill>
Bytes WireRecord(Fill fill) {
    auto pstRecord = std::make_unique<T>();
    memset(pstRecord.get(), 0, sizeof(T));
    fill(*pstRecord);
    return AsBytes(*pstRecord);
}

// The default record of a read: of the request's channel (frame OSD: and overlay picture type).
inline Bytes DefaultRecord(unsigned int uiCmd, const FakeRequest &request) {
    unsigned long long ullChannel;
    memcpy(&ullChannel, request.body.data(), sizeof(ullChannel));
    switch (uiCmd) {
        case VW_CMD_SYS_BACK_LANGUAGE:
            return WireRecord<VW_SYS_BACK_LANGUAGE_PARAM>([&](auto &r) {
                r.ulChannelId = ullChannel;
                r.enSysBackLanguage = SYS_BACK_LANGUAGE{3};
            });
        case VW_CMD_VIDEO_VEHICLE_DETECTOR:
            return WireRecord<VW_TRAFFIC_FLOW_PARA>([&](auto &r) {
                r.ulChannelId = ullChannel;
                r.iEnable = 1;
                r.stRectInfo = {10, 20, 30, 40};
            });
        case VW_CMD_TRAFFIC_DOME_PIC_OSD:
        case VW_CMD_VLPR_PIC_OSD:
            return WireRecord<_VW_PIC_OSD_PARA_S>([&](auto &r) {
                r.channelId = ullChannel;
                memcpy(&r.overlayType, &request.body[8], sizeof(r.overlayType));
                _PIC_OSD_INFO_S &info = r.picOSDInfo;
                info.picOSDNum = 2;
                info.picOSDType[0] = VW_PIC_OSD_ITEM_E{4};
                info.picOSDType[1] = VW_PIC_OSD_ITEM_E{7};
                info.spaceNum[1] = info.warpNum[0] = 1;
                info.fgColor = 0xFFFFFF;
                info.picOsdDetail[0].prefixEnable = 1;
                strcpy(info.picOsdDetail[0].prefixContent, "Lane ");
                r.timeOSD = {1, VW_OSD_YMD_TYPE_E{2}};
                strcpy(r.roadIdOSD.osdContent,
                       uiCmd == VW_CMD_VLPR_PIC_OSD ? "Vlpr road" : "TrafficDome road");
            });
        default: {  // the capability sets: every third flag
            Bytes flags(uiCmd == VW_CMD_ITGT_CAPABILITY ? sizeof(ITGT_ABILITY_REST_API)
                                                        : sizeof(_tagITGT_OSD_ABILITY_REST_API_S));
            for (std::size_t u = 0; u < flags.size(); u += 3) {
                flags[u] = 1;
            }
            return flags;
        }
    }
}

// The verdict on the picture at the fixed path: the number in its comment segment, 0 without.
inline int PictureVerdict() {
    const Bytes picture = ReadFile(kFixedPicture);
    if (picture.size() < 6 || picture[2] != 0xFF || picture[3] != 0xFE) {
        return 0;
    }
    return atoi(std::string(picture.begin() + 6, picture.begin() + 4 + picture[5]).c_str());
}

// A backend that keeps each write by command and channel and answers a read with the kept record
// or else the default one; a verification is answered with the verdict on the picture.
inline FakeHandler ValidBackend() {
    auto kept = std::make_shared<std::map<std::pair<unsigned int, unsigned long long>, Bytes>>();
    return [kept](const FakeRequest &request) {
        FakeReply reply;
        unsigned long long ullChannel = 0;
        memcpy(&ullChannel, request.body.data(), std::min<std::size_t>(8, request.body.size()));
        const auto key = std::make_pair(request.uiCmd, ullChannel);
        if (request.body.size() != VW_CMD_BODY_SIZE) {
            (*kept)[key] = request.body;
        } else if (request.uiCmd == VW_CMD_SECURITY_CODE_VERIFY) {
            int iVerdict = PictureVerdict();
            reply.payload = WireRecord<VerifyResultParam>([&](auto &r) {
                r.channelId = ullChannel;
                r.verifyResult = iVerdict;
            });
        } else {
            auto found = kept->find(key);
            reply.payload =
                found != kept->end() ? found->second : DefaultRecord(request.uiCmd, request);
        }
        return reply;
    };
}

// A request harness: a fake daemon answering as ValidBackend(), a private folder, every debug
// line formatted, and both logs to /dev/null (a log capture takes the lines instead).
class RequestTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char szDir[] = "/tmp/talapi-requests-XXXXXX";
        ASSERT_NE(mkdtemp(szDir), nullptr);
        dir = szDir;
        daemon.SetHandler(ValidBackend());
        g_enDebugFlag = VW_DEBUG_ALL;
        VW_SetDebugLogFile("/dev/null");
        VW_SetLanguageLogFile("/dev/null");
    }
    void TearDown() override {
        g_enDebugFlag = VW_DEBUG_FAILURES;
        VW_SetDebugLogFile(nullptr);
        VW_SetLanguageLogFile(nullptr);
        std::filesystem::remove_all(dir);
    }

    std::string dir;
    FakeDaemon daemon;
};

#endif
