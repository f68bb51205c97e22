// SPDX-License-Identifier: Apache-2.0
// Requests as an access server drives them through the module's stages, a fake backend that
// answers every command with a valid record, and JPEG uploads that the backend can tell apart.
#ifndef TESTS_ROBUSTNESS_HOST_REQUESTS_H
#define TESTS_ROBUSTNESS_HOST_REQUESTS_H

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fake_daemon.h"
#include "orbapi_itgt_module.h"
#include "orbapi_itgt_records.h"
#include "stage_request.h"
#include "talapi_log.h"

using Bytes = std::vector<unsigned char>;

// While in scope, both logs go to /dev/null and the debug flag is enDebugFlag: with
// VW_DEBUG_ALL every line is formatted, as on the most verbose server, and none is kept.
struct DiscardedLogs {
    VW_DEBUG_FLAG_E enBefore = g_enDebugFlag;
    explicit DiscardedLogs(VW_DEBUG_FLAG_E enDebugFlag) {
        g_enDebugFlag = enDebugFlag;
        VW_SetDebugLogFile("/dev/null");
        VW_SetLanguageLogFile("/dev/null");
    }
    ~DiscardedLogs() {
        g_enDebugFlag = enBefore;
        VW_SetDebugLogFile(nullptr);
        VW_SetLanguageLogFile(nullptr);
    }
    DiscardedLogs(const DiscardedLogs &) = delete;
    DiscardedLogs &operator=(const DiscardedLogs &) = delete;
};

// A resource and method: its URL, the common part of its stages' names, its stages (a PUT has
// all four, a GET or POST Run and Format).
struct Resource {
    const char *method, *url, *name;
    TALAPI_PREPROC_STAGE_PF preProc;
    TALAPI_PARSE_STAGE_PF parse;
    TALAPI_RUN_STAGE_PF run;
    TALAPI_FORMAT_STAGE_PF format;
};
enum Stage { kPreProc, kParse, kRun, kFormat };

// The exported name of a resource's stage, as "PreProcPutITGTFrameOSD".
inline std::string StageName(const Resource &r, Stage enStage) {
    static const char *const kKinds[] = {"PreProc", "Parse", "Run", "Format"};
    std::string method = r.method;
    for (std::size_t i = 1; i < method.size(); ++i) {
        method[i] = static_cast<char>(tolower(static_cast<unsigned char>(method[i])));
    }
    return kKinds[enStage] + method + "ITGT" + r.name;
}

#define ITGT_GET(name, url)                                                        \
    Resource {                                                                     \
        "GET", url, #name, nullptr, nullptr, RunGetITGT##name, FormatGetITGT##name \
    }
#define ITGT_PUT(name, url)                                                            \
    Resource {                                                                         \
        "PUT", url, #name, PreProcPutITGT##name, ParsePutITGT##name, RunPutITGT##name, \
            FormatPutITGT##name                                                        \
    }
constexpr const char *kLanguageUrl = "/api/v1/itgt/sys-back-language";
constexpr const char *kFrameOsdUrl = "/api/v1/itgt/frame-osd";
constexpr const char *kDetectorUrl = "/api/v1/itgt/video-vehicle-detector";
const Resource kGetLanguage = ITGT_GET(SysBackLanguage, kLanguageUrl);
const Resource kPutLanguage = ITGT_PUT(SysBackLanguage, kLanguageUrl);
const Resource kGetFrameOsd = ITGT_GET(FrameOSD, kFrameOsdUrl);
const Resource kPutFrameOsd = ITGT_PUT(FrameOSD, kFrameOsdUrl);
const Resource kGetCapability = ITGT_GET(Capability, "/api/v1/itgt/capability");
const Resource kGetDetector = ITGT_GET(VideoVehicleDetector, kDetectorUrl);
const Resource kPutDetector = ITGT_PUT(VideoVehicleDetector, kDetectorUrl);
const Resource kGetOsdCapability = ITGT_GET(OsdCapability, "/api/v1/itgt/osd-capability");
const Resource kPostVerify{"POST",
                           "/api/v1/itgt/security-code-verify",
                           "SecurityCodeVerify",
                           nullptr,
                           nullptr,
                           RunPostITGTSecurityCodeVerify,
                           FormatPostITGTSecurityCodeVerify};

// The records of one request. The response sink copies into a fixed buffer, so that the host's
// side of a Format stage allocates nothing.
struct HostRequest : StageRequest {
    const Resource &resource;
    tagHTTP_BUF_S stSink{};
    char acText[65536];
    unsigned int uiLength = 0;
    int iCopies = 0;

    HostRequest(const Resource &r, const std::string &query, const std::string &body = "")
        : StageRequest(r.method, r.url, query.c_str()), resource(r) {
        stSink.Copy2Buf = &HostRequest::Copy;
        stSink.pvHostSink = this;
        Body(body);
    }
    static int Copy(tagHTTP_BUF_S *pstBuf, const char *pcData, unsigned int uiLen) {
        auto *self = static_cast<HostRequest *>(pstBuf->pvHostSink);
        if (uiLen >= sizeof(self->acText)) {
            return -1;
        }
        memcpy(self->acText, pcData, uiLen);
        self->acText[uiLen] = '\0';
        self->uiLength = uiLen;
        ++self->iCopies;
        return 0;
    }
    // One stage; Format is given iRunResult.
    int Call(Stage enStage, int iRunResult = 0) {
        switch (enStage) {
            case kPreProc:
                return resource.preProc(&stHeader, stClient.pstUnixSocket, &stCtInt);
            case kParse:
                return resource.parse(&stHeader, &stBody, &stCtInt);
            case kRun:
                return resource.run(&stHeader, &stClient, &stCtInt);
            default:
                return resource.format(&stHeader, static_cast<VW_RESULT_TYPE>(iRunResult), &stCtInt,
                                       &stSink);
        }
    }
    Stage First() const { return resource.preProc != nullptr ? kPreProc : kRun; }
    // The stages from the first to iLast (a Stage; before the first: none); the first non-zero
    // result ends them.
    int CallUpTo(int iLast) {
        int iResult = 0;
        for (int i = First(); i <= iLast && iResult == 0; ++i) {
            iResult = Call(static_cast<Stage>(i));
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
        return std::string(acText, uiLength);
    }
    // A verification upload at path: a picture the backend knows as uiId, for the channel.
    void Upload(const std::string &path, unsigned int uiId, unsigned long long ullChannel);
    // The stages before enStage (a Format stage: through Run), after an upload for a
    // verification; the first non-zero result.
    int PrepareFor(Stage enStage);
};

// Every stage of every resource, each with a request that succeeds against ValidBackend(): the
// rows of the tests that measure one stage at a time. The stages before a row's stage run first.
struct StageCase {
    const Resource &resource;
    Stage enStage;
    const char *query, *body;
};
constexpr const char *kBudgetChannel = "ChannelId=1";
constexpr const char *kBudgetTrafficDome = "ChannelId=1&OverlayPicType=0&BusinessType=TrafficDome";
constexpr const char *kBudgetModeBody = "{\"mode\": 2}";
constexpr const char *kBudgetOsdBody =
    "{\"picOSDInfo\": {\"picOSDType\": [1, 2, 3], \"picOsdDetail\": [{\"prefixContent\": "
    "\"No.\"}]}, \"roadIdOSD\": {\"osdContent\": \"Ring Road 3\"}}";
constexpr const char *kBudgetDetectorBody = "{\"enable\": 0, \"rectInfo\": {\"x\": 40}}";
const StageCase kEveryStage[] = {
    {kGetLanguage, kRun, kBudgetChannel, ""},
    {kGetLanguage, kFormat, kBudgetChannel, ""},
    {kPutLanguage, kPreProc, kBudgetChannel, kBudgetModeBody},
    {kPutLanguage, kParse, kBudgetChannel, kBudgetModeBody},
    {kPutLanguage, kRun, kBudgetChannel, kBudgetModeBody},
    {kPutLanguage, kFormat, kBudgetChannel, kBudgetModeBody},
    {kGetFrameOsd, kRun, kBudgetTrafficDome, ""},
    {kGetFrameOsd, kFormat, kBudgetTrafficDome, ""},
    {kPutFrameOsd, kPreProc, kBudgetTrafficDome, kBudgetOsdBody},
    {kPutFrameOsd, kParse, kBudgetTrafficDome, kBudgetOsdBody},
    {kPutFrameOsd, kRun, kBudgetTrafficDome, kBudgetOsdBody},
    {kPutFrameOsd, kFormat, kBudgetTrafficDome, kBudgetOsdBody},
    {kGetCapability, kRun, "", ""},
    {kGetCapability, kFormat, "", ""},
    {kGetDetector, kRun, kBudgetChannel, ""},
    {kGetDetector, kFormat, kBudgetChannel, ""},
    {kPutDetector, kPreProc, kBudgetChannel, kBudgetDetectorBody},
    {kPutDetector, kParse, kBudgetChannel, kBudgetDetectorBody},
    {kPutDetector, kRun, kBudgetChannel, kBudgetDetectorBody},
    {kPutDetector, kFormat, kBudgetChannel, kBudgetDetectorBody},
    {kGetOsdCapability, kRun, "ChannelId=101", ""},
    {kGetOsdCapability, kFormat, "ChannelId=101", ""},
    {kPostVerify, kRun, kBudgetChannel, ""},
    {kPostVerify, kFormat, kBudgetChannel, ""},
};

template <typename T>
Bytes AsBytes(const T &record) {
    const auto *pucBytes = reinterpret_cast<const unsigned char *>(&record);
    return Bytes(pucBytes, pucBytes + sizeof(T));
}

// A 1x1 grey baseline JPEG whose comment segment holds uiId in decimal.
inline Bytes JpegPicture(unsigned int uiId) {
    const std::string id = std::to_string(uiId);
    Bytes jpeg = {0xFF, 0xD8, 0xFF, 0xFE, 0, static_cast<unsigned char>(2 + id.size())};
    for (char c : id) {
        jpeg.push_back(static_cast<unsigned char>(c));
    }
    auto append = [&jpeg](std::initializer_list<unsigned char> bytes, std::size_t uZeros = 0) {
        for (unsigned char uc : bytes) {
            jpeg.push_back(uc);
        }
        jpeg.resize(jpeg.size() + uZeros, 0);
    };
    append({0xFF, 0xDB, 0, 0x43, 0});  // quantisation table 0: all 1
    jpeg.resize(jpeg.size() + 64, 1);
    append({0xFF, 0xC0, 0, 0x0B, 8, 0, 1, 0, 1, 1, 1, 0x11, 0});  // 8-bit, 1x1, one component
    append({0xFF, 0xC4, 0, 0x14, 0x00, 1}, 16);                   // DC table: one 1-bit code, for 0
    append({0xFF, 0xC4, 0, 0x14, 0x10, 1}, 16);  // AC table: one 1-bit code, for end of block
    append({0xFF, 0xDA, 0, 0x08, 1, 1, 0, 0, 0x3F, 0, 0x3F, 0xFF, 0xD9});  // DC 0, EOB, end
    return jpeg;
}

inline void HostRequest::Upload(const std::string &path, unsigned int uiId,
                                unsigned long long ullChannel) {
    Bytes picture = JpegPicture(uiId);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(picture.data()), picture.size());
    strncpy(stClient.packetName, path.c_str(), sizeof(stClient.packetName) - 1);
    auto *pstBody = static_cast<vwCmdBody *>(calloc(1, sizeof(vwCmdBody)));  // the host's
    pstBody->ulChannelId = ullChannel;
    stCtInt.pParseOut = pstBody;
}

inline int HostRequest::PrepareFor(Stage enStage) {
    if (resource.run == RunPostITGTSecurityCodeVerify) {
        Upload("/tmp/talapi-stage-upload.jpg", 4502, 1);
    }
    return CallUpTo(enStage == kFormat ? kRun : enStage - 1);
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
        case VW_CMD_ITGT_CAPABILITY:
        case VW_CMD_ITGT_OSD_CAPABILITY: {
            Bytes flags(uiCmd == VW_CMD_ITGT_CAPABILITY ? sizeof(ITGT_ABILITY_REST_API)
                                                        : sizeof(_tagITGT_OSD_ABILITY_REST_API_S));
            for (std::size_t u = 0; u < flags.size(); u += 3) {
                flags[u] = 1;
            }
            return flags;
        }
        default:
            return {};
    }
}

// The verdict on the picture at the fixed path: the number in its comment segment, 0 without.
inline int PictureVerdict() {
    std::ifstream file("/tmp/securityCode.jpg", std::ios::binary);
    Bytes picture{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
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
        if (request.uiBodyLen != VW_CMD_BODY_SIZE) {
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

#endif
