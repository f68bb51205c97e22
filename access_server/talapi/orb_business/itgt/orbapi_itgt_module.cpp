// The intelligent ("ITGT") business module of the access server. Each resource is a block of its
// record, its schema and its stages; the stages name what is special about them (command, query
// keys, log texts) and hand the mechanics to the helpers at the top.
//
// Ownership: records stored in the interchange record (pPreProcOut, pParseOut, pRunOut) belong to
// the request and are released by the access server with free after the Format stage; a stage
// frees only what it allocated and did not store.
#include <cstdlib>
#include <cstring>

#include "orbapi_itgt_module.h"
#include "talapi_business_common.h"
#include "talapi_common.h"

#define ITGT_STAGE extern "C" VW_RESULT_TYPE

// The operation-log event, success or failure pair by bSuccess, written twice: log 2, then log 1.
// A macro so that the compiler checks both formats against the arguments.
#define ITGT_OPERATION_LOG(pstHeader, bSuccess, pcOkEnglish, pcOkChinese, pcFailEnglish,         \
                           pcFailChinese, ...)                                                   \
    do {                                                                                         \
        for (int iLogNo : {2, 1}) {                                                              \
            VW_WriteLanguageLog(iLogNo, VW_LOG_MODULE_TALAPI,                                    \
                                (bSuccess) ? pcOkEnglish : pcFailEnglish,                        \
                                (bSuccess) ? pcOkChinese : pcFailChinese, (pstHeader)->userName, \
                                (pstHeader)->clientIp, (pstHeader)->clientPort, ##__VA_ARGS__);  \
        }                                                                                        \
    } while (0)

namespace {

constexpr const char *kPeerPath = "/tmp/A";

void *Ptr(const void *pv) {
    return const_cast<void *>(pv);
}

// Zeroes an object; a failure is logged under the caller's label and the caller carries on.
template <typename T>
void ZeroOrLog(T *pObject, const char *pcLabel) {
    int iRet = memset_s(pObject, sizeof(T), 0, sizeof(T));
    if (iRet != 0) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:[%s] expect Ret %d, actual Ret %d.", pcLabel, 0, iRet);
    }
}

// A null argument of a PreProc or Run stage: logged, -1.
VW_RESULT_TYPE InvalidStageParam(const char *pcStage, const void *pvHeader, const void *pvClient,
                                 const void *pvCtIn) {
    TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: invalid param, header[%p] client[%p] ctIn[%p]", pcStage,
               Ptr(pvHeader), Ptr(pvClient), Ptr(pvCtIn));
    return VW_RESULT_FAIL;
}

// The reading stage of a channel resource: a zeroed command body carrying the query's
// "ChannelId" first, then the record read with GetCommon into *ppvDest. 4 when the channel
// cannot be read; nothing is sent then. pcHandOver is the trace before GetCommon, if any.
VW_RESULT_TYPE ReadChannelRecord(tagHTTP_HEADER_S *pstHeader, tagUNIX_SOCKET_S *pstUnixSocket,
                                 VW_CMD_TYPE enCmd, void **ppvDest, const char *pcStage,
                                 const char *pcZeroLabel, const char *pcHandOver) {
    vwCmdBody stBody;
    ZeroOrLog(&stBody, pcZeroLabel);
    if (GetURIQueryParamByKey<unsigned long long>(pstHeader, "ChannelId", &stBody.ulChannelId) !=
        VW_RESULT_OK) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s, Query param get failed", pcStage);
        return VW_RESULT_PARAM_ERR;
    }
    if (pcHandOver != nullptr) {
        TALAPI_LOG(VW_LOG_TRACE, "%s", pcHandOver);
    }
    return GetCommon(pstHeader, pstUnixSocket, enCmd, &stBody, ppvDest, 0, kPeerPath);
}

// A result record of the stage's own, from malloc and zeroed; null (logged) when it cannot be
// allocated.
template <typename T>
T *NewResultRecord(tagHTTP_HEADER_S *pstHeader, const char *pcStage, const char *pcZeroLabel) {
    T *pstRecord = static_cast<T *>(malloc(sizeof(T)));
    if (pstRecord == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: malloc fail, response for req[%s %s]", pcStage,
                   pstHeader->method, pstHeader->url);
        return nullptr;
    }
    ZeroOrLog(pstRecord, pcZeroLabel);
    return pstRecord;
}

}  // namespace

// =============================================================================================
// System back language of a channel: command 54

// Language type; its values are the backend's and pass through unchecked.
enum SYS_BACK_LANGUAGE : unsigned int {};

struct VW_SYS_BACK_LANGUAGE_PARAM {
    unsigned long long ulChannelId;
    SYS_BACK_LANGUAGE enSysBackLanguage;
};
static_assert(sizeof(VW_SYS_BACK_LANGUAGE_PARAM) == 16, "16-byte wire record");
static_assert(alignof(VW_SYS_BACK_LANGUAGE_PARAM) == 8, "8-aligned");
static_assert(offsetof(VW_SYS_BACK_LANGUAGE_PARAM, enSysBackLanguage) == 8, "language at 8");

template <>
struct jsonSchema<VW_SYS_BACK_LANGUAGE_PARAM> {
    using T = VW_SYS_BACK_LANGUAGE_PARAM;
    static constexpr auto members() {
        return std::make_tuple(member(&T::ulChannelId, "channelId"),
                               member(&T::enSysBackLanguage, "mode"));
    }
};

ITGT_STAGE RunGetITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                                     tagHTTP_CNTENT_INTER_S *pstCtIn) {
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter RunGetITGTSysBackLanguag");
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr) {
        return InvalidStageParam(__func__, pstHeader, pstClient, pstCtIn);
    }
    return ReadChannelRecord(pstHeader, pstClient->pstUnixSocket, VW_CMD_SYS_BACK_LANGUAGE,
                             &pstCtIn->pRunOut, __func__, "memset_s cmdBody error",
                             "[TALAPI]:Enter RunGetITGTSysBackLanguag--GetCommon");
}

ITGT_STAGE FormatGetITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                        tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf) {
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter FormatGetITGTSysBackLanguage");
    void *pvRunOut = pstCtInt != nullptr ? pstCtInt->pRunOut : nullptr;
    if (pstHeader == nullptr || pstCtInt == nullptr || pstBuf == nullptr || pvRunOut == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR,
                   "[TALAPI]:%s: invalid param, header[%p] ctInt[%p] buf[%p] pRunOut[%p]", __func__,
                   Ptr(pstHeader), Ptr(pstCtInt), Ptr(pstBuf), pvRunOut);
        return VW_RESULT_FAIL;
    }
    const auto *pstParam = static_cast<const VW_SYS_BACK_LANGUAGE_PARAM *>(pvRunOut);
    ITGT_OPERATION_LOG(
        pstHeader, enResult == VW_RESULT_OK,
        "%s[%s:%llu] Get Sys BackLanguange Params Successfully. ulChannelId[%llu], "
        "enSysBackLanguage[%d]",
        "%s[%s:%llu] 获取系统语言成功. 通道号[%llu], 语言类型[%d]",
        "%s[%s:%llu] Get Sys BackLanguange Params fail. ulChannelId[%llu], enSysBackLanguage[%d]",
        "%s[%s:%llu] 获取系统语言失败. 通道号[%llu], 语言类型[%d]", pstParam->ulChannelId,
        static_cast<int>(pstParam->enSysBackLanguage));
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter FormatGetITGTSysBackLanguage--FormatCommonResponse");
    return static_cast<VW_RESULT_TYPE>(
        FormatCommonResponse<VW_SYS_BACK_LANGUAGE_PARAM>(pstHeader, enResult, pstCtInt, pstBuf));
}

ITGT_STAGE PreProcPutITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader,
                                         tagUNIX_SOCKET_S *pstUnixSocket,
                                         tagHTTP_CNTENT_INTER_S *pstCtIn) {
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter PreProcPutITGTSysBackLanguage");
    if (pstHeader == nullptr || pstUnixSocket == nullptr || pstCtIn == nullptr) {
        return InvalidStageParam(__func__, pstHeader, pstUnixSocket, pstCtIn);
    }
    return ReadChannelRecord(pstHeader, pstUnixSocket, VW_CMD_SYS_BACK_LANGUAGE,
                             &pstCtIn->pPreProcOut, __func__, "memset_s cmdBody error",
                             "[TALAPI]:Enter PreProcPutITGTSysBackLanguage--GetCommon");
}

ITGT_STAGE ParsePutITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader, tagHTTP_BUF_S *pstBuf,
                                       tagHTTP_CNTENT_INTER_S *pstCtIn) {
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter ParsePutITGTSysBackLanguage--ParseCommon");
    return ParseCommon<VW_SYS_BACK_LANGUAGE_PARAM>(pstHeader, pstBuf, pstCtIn);
}

ITGT_STAGE RunPutITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                                     tagHTTP_CNTENT_INTER_S *pstCtIn) {
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter  RunPutITGTSysBackLanguage");
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr) {
        return InvalidStageParam(__func__, pstHeader, pstClient, pstCtIn);
    }
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter RunPutITGTSysBackLanguage--SetCommon");
    return SetCommon(pstHeader, pstCtIn->pParseOut, sizeof(VW_SYS_BACK_LANGUAGE_PARAM),
                     pstClient->pstUnixSocket, VW_CMD_SYS_BACK_LANGUAGE, 0, kPeerPath);
}

ITGT_STAGE FormatPutITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                        tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf) {
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter FormatPutITGTSysBackLanguage");
    void *pvParseOut = pstCtInt != nullptr ? pstCtInt->pParseOut : nullptr;
    if (pstHeader == nullptr || pstCtInt == nullptr || pstBuf == nullptr || pvParseOut == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR,
                   "[TALAPI]:%s: invalid param, header[%p] ctInt[%p] buf[%p] ctInt->pParseOut[%p]",
                   __func__, Ptr(pstHeader), Ptr(pstCtInt), Ptr(pstBuf), pvParseOut);
        return VW_RESULT_FAIL;
    }
    // The values the request asked to write.
    const auto *pstParam = static_cast<const VW_SYS_BACK_LANGUAGE_PARAM *>(pvParseOut);
    ITGT_OPERATION_LOG(
        pstHeader, enResult == VW_RESULT_OK,
        "%s[%s:%llu] Put Sys BackLanguange Params Successfully. ulChannelId[%llu], "
        "enSysBackLanguage[%d]",
        "%s[%s:%llu] 设置系统语言成功. 通道号[%llu], 语言类型[%d]",
        "%s[%s:%llu] Put Sys BackLanguange Params fail. ulChannelId[%llu], enSysBackLanguage[%d]",
        "%s[%s:%llu] 设置系统语言失败. 通道号[%llu], 语言类型[%d]", pstParam->ulChannelId,
        static_cast<int>(pstParam->enSysBackLanguage));
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter FormatPutITGTSysBackLanguage--FormatCommonStatus");
    return FormatCommonStatus(pstHeader, enResult, pstCtInt, pstBuf);
}

// =============================================================================================
// Intelligent capability set: command 31110, a direct exchange

// One flag byte per intelligent function, each named as its JSON key; true when non-zero.
struct ITGT_ABILITY_REST_API {
    bool audio;
    bool motionDetection;
    bool Occlustion;
    bool videoAnalysis;
    bool autoTracking;
    bool scensechange;
    bool scenseAdapter;
    bool outofFocus;
    bool crowdAnalysis;
    bool videoDiagnosis;
    bool complexBehavior;
    bool faceDetection;
    bool faceRecog;
    bool faceAttr;
    bool vhdClassify;
    bool bodyAttr;
    bool nonmotorAttr;
    bool vhdfaceMix;
    bool humanCount;
    bool heatMap;
    bool crowdDensity;
    bool queueDetect;
    bool faceRecMMC;
    bool onlineLearning;
    bool imgQualEval;
    bool omni;
    bool vlpr;
    bool vlprQfree;
    bool trafficCampus;
    bool parkingDetection;
    bool trafficStatistics;
    bool its;
    bool itsEpolice;
    bool illegalball;
    bool trafficEvent;
    bool itsSixinone;
    bool itsPassage;
    bool itsPedRunRed;
};
static_assert(sizeof(ITGT_ABILITY_REST_API) == 38, "38 flag bytes, no padding");
static_assert(offsetof(ITGT_ABILITY_REST_API, heatMap) == 19, "heatMap at 19");
static_assert(offsetof(ITGT_ABILITY_REST_API, itsPedRunRed) == 37, "itsPedRunRed last");

template <>
struct jsonSchema<ITGT_ABILITY_REST_API> {
    using T = ITGT_ABILITY_REST_API;
    static constexpr auto members() {
        return std::make_tuple(
            member(&T::audio, "audio"), member(&T::motionDetection, "motionDetection"),
            member(&T::Occlustion, "Occlustion"), member(&T::videoAnalysis, "videoAnalysis"),
            member(&T::autoTracking, "autoTracking"), member(&T::scensechange, "scensechange"),
            member(&T::scenseAdapter, "scenseAdapter"), member(&T::outofFocus, "outofFocus"),
            member(&T::crowdAnalysis, "crowdAnalysis"),
            member(&T::videoDiagnosis, "videoDiagnosis"),
            member(&T::complexBehavior, "complexBehavior"),
            member(&T::faceDetection, "faceDetection"), member(&T::faceRecog, "faceRecog"),
            member(&T::faceAttr, "faceAttr"), member(&T::vhdClassify, "vhdClassify"),
            member(&T::bodyAttr, "bodyAttr"), member(&T::nonmotorAttr, "nonmotorAttr"),
            member(&T::vhdfaceMix, "vhdfaceMix"), member(&T::humanCount, "humanCount"),
            member(&T::heatMap, "heatMap"), member(&T::crowdDensity, "crowdDensity"),
            member(&T::queueDetect, "queueDetect"), member(&T::faceRecMMC, "faceRecMMC"),
            member(&T::onlineLearning, "onlineLearning"), member(&T::imgQualEval, "imgQualEval"),
            member(&T::omni, "omni"), member(&T::vlpr, "vlpr"), member(&T::vlprQfree, "vlprQfree"),
            member(&T::trafficCampus, "trafficCampus"),
            member(&T::parkingDetection, "parkingDetection"),
            member(&T::trafficStatistics, "trafficStatistics"), member(&T::its, "its"),
            member(&T::itsEpolice, "itsEpolice"), member(&T::illegalball, "illegalball"),
            member(&T::trafficEvent, "trafficEvent"), member(&T::itsSixinone, "itsSixinone"),
            member(&T::itsPassage, "itsPassage"), member(&T::itsPedRunRed, "itsPedRunRed"));
    }
};

ITGT_STAGE RunGetITGTCapability(tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                                tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr) {
        return InvalidStageParam(__func__, pstHeader, pstClient, pstCtIn);
    }
    vwCmdBody stBody;
    ZeroOrLog(&stBody, "memset_s");
    auto *pstAbility = NewResultRecord<ITGT_ABILITY_REST_API>(pstHeader, __func__, "memset_s");
    if (pstAbility == nullptr) {
        return VW_RESULT_NO_MEMORY;
    }
    MSG_DATA stReply;
    if (RestSendSynUnixMsg(kPeerPath, VW_MSG_SYN_REQUEST, VW_CMD_ITGT_CAPABILITY, &stBody,
                           pstClient->pstUnixSocket, &stReply, 0) != 0) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:Send SynUnixMsg for Getting cmd[%d] failed",
                   VW_CMD_ITGT_CAPABILITY);
        free(pstAbility);
        return VW_RESULT_SEND_FAIL;
    }
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:%s: httpReq[%s %s] sendCmd[%d] recvMsg[%d] Result[%d]",
               __func__, pstHeader->method, pstHeader->url, VW_CMD_ITGT_CAPABILITY, stReply.recvMsg,
               stReply.Result);
    // The payload is the capability set whatever the reply's Result says.
    memcpy(pstAbility, stReply.aucPayload, sizeof(*pstAbility));
    pstCtIn->pRunOut = pstAbility;
    return VW_RESULT_OK;
}

ITGT_STAGE FormatGetITGTCapability(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                   tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf) {
    if (pstHeader == nullptr || pstCtInt == nullptr || pstBuf == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:Null pointer");
        return VW_RESULT_FAIL;
    }
    ITGT_OPERATION_LOG(
        pstHeader, enResult == VW_RESULT_OK, "%s[%s:%llu] Get Intelligent Capability Successfully.",
        "%s[%s:%llu] 获取智能能力集成功.", "%s[%s:%llu] Get Intelligent Capability Fail.",
        "%s[%s:%llu] 获取智能能力集失败.");
    return static_cast<VW_RESULT_TYPE>(
        FormatCommonResponse<ITGT_ABILITY_REST_API>(pstHeader, enResult, pstCtInt, pstBuf));
}
