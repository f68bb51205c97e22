// SPDX-License-Identifier: Apache-2.0
// The intelligent ("ITGT") business module of the access server. Each resource is a block of its
// stages (its record and schema are in orbapi_itgt_records.h); the stages name what is special
// about them (command, query keys, log texts) and hand the mechanics to the helpers at the top.
//
// Ownership: records stored in the interchange record (pPreProcOut, pParseOut, pRunOut) belong to
// the request and are released by the access server with free after the Format stage; a stage
// frees only what it allocated and did not store.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "orbapi_itgt_module.h"
#include "orbapi_itgt_records.h"
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
    // Without a Parse record (a host that goes on after a failed PreProc or Parse) nothing is
    // written.
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr ||
        pstCtIn->pParseOut == nullptr) {
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

// =============================================================================================
// Frame OSD of a channel and overlay picture type: command 20099 ("TrafficDome") or 20006
// ("Vlpr")

namespace {

constexpr int kBusinessTypeLen = 40;

// "BusinessType" of the request and the stage's entry trace naming it; 4 when it is missing.
VW_RESULT_TYPE EnterFrameOsdStage(tagHTTP_HEADER_S *pstHeader, const char *pcStage,
                                  char (&szBusiness)[kBusinessTypeLen]) {
    if (GetURIQueryParamByKey<char>(pstHeader, "BusinessType", szBusiness, kBusinessTypeLen) !=
        VW_RESULT_OK) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: Query param BusinessType get failed", pcStage);
        return VW_RESULT_PARAM_ERR;
    }
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter %s, businessType: %s", pcStage, szBusiness);
    return VW_RESULT_OK;
}

// The command of a business type, by exact comparison; false for any other type.
bool FrameOsdCommand(const char *pcBusiness, VW_CMD_TYPE *penCmd) {
    if (strcmp(pcBusiness, "TrafficDome") == 0) {
        *penCmd = VW_CMD_TRAFFIC_DOME_PIC_OSD;
    } else if (strcmp(pcBusiness, "Vlpr") == 0) {
        *penCmd = VW_CMD_VLPR_PIC_OSD;
    } else {
        return false;
    }
    return true;
}

// As EnterFrameOsdStage, then the command of the business type: -1, not logged, for another type.
VW_RESULT_TYPE EnterFrameOsdCommand(tagHTTP_HEADER_S *pstHeader, const char *pcStage,
                                    VW_CMD_TYPE *penCmd) {
    char szBusiness[kBusinessTypeLen] = {};
    VW_RESULT_TYPE enRet = EnterFrameOsdStage(pstHeader, pcStage, szBusiness);
    if (enRet != VW_RESULT_OK) {
        return enRet;
    }
    return FrameOsdCommand(szBusiness, penCmd) ? VW_RESULT_OK : VW_RESULT_FAIL;
}

VW_RESULT_TYPE InvalidFrameOsdParam() {
    TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:Invalid Param");
    return VW_RESULT_FAIL;
}

// The reading stage: "ChannelId", "OverlayPicType", "BusinessType" in that order, then the record
// of that channel and overlay picture type from the business's command into *ppvDest.
VW_RESULT_TYPE ReadFrameOsd(tagHTTP_HEADER_S *pstHeader, tagUNIX_SOCKET_S *pstUnixSocket,
                            void **ppvDest, const char *pcStage) {
    unsigned long long ullChannelId = 0;
    unsigned int uiOverlayPicType = 0;
    if (GetURIQueryParamByKey<unsigned long long>(pstHeader, "ChannelId", &ullChannelId) !=
            VW_RESULT_OK ||
        GetURIQueryParamByKey<unsigned int>(pstHeader, "OverlayPicType", &uiOverlayPicType) !=
            VW_RESULT_OK) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s, Query param get failed", pcStage);
        return VW_RESULT_PARAM_ERR;
    }
    VW_CMD_TYPE enCmd;
    VW_RESULT_TYPE enRet = EnterFrameOsdCommand(pstHeader, pcStage, &enCmd);
    if (enRet != VW_RESULT_OK) {
        return enRet;
    }
    vwCmdBody stBody;
    ZeroOrLog(&stBody, "memset_s cmdBody error");
    stBody.ulChannelId = ullChannelId;  // the record's channelId and overlayType, in place
    memcpy(stBody.aucParam, &uiOverlayPicType, sizeof(uiOverlayPicType));
    return GetCommon(pstHeader, pstUnixSocket, enCmd, &stBody, ppvDest, 0, kPeerPath);
}

}  // namespace

ITGT_STAGE RunGetITGTFrameOSD(tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                              tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr) {
        return InvalidFrameOsdParam();
    }
    return ReadFrameOsd(pstHeader, pstClient->pstUnixSocket, &pstCtIn->pRunOut, __func__);
}

ITGT_STAGE FormatGetITGTFrameOSD(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                 tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf) {
    if (pstHeader == nullptr || pstCtInt == nullptr || pstBuf == nullptr) {
        return InvalidFrameOsdParam();
    }
    VW_CMD_TYPE enCmd;
    VW_RESULT_TYPE enRet = EnterFrameOsdCommand(pstHeader, __func__, &enCmd);
    if (enRet != VW_RESULT_OK) {
        return enRet;
    }
    return static_cast<VW_RESULT_TYPE>(
        FormatCommonResponse<_VW_PIC_OSD_PARA_S>(pstHeader, enResult, pstCtInt, pstBuf));
}

ITGT_STAGE PreProcPutITGTFrameOSD(tagHTTP_HEADER_S *pstHeader, tagUNIX_SOCKET_S *pstUnixSocket,
                                  tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstUnixSocket == nullptr || pstCtIn == nullptr) {
        return InvalidFrameOsdParam();
    }
    return ReadFrameOsd(pstHeader, pstUnixSocket, &pstCtIn->pPreProcOut, __func__);
}

ITGT_STAGE ParsePutITGTFrameOSD(tagHTTP_HEADER_S *pstHeader, tagHTTP_BUF_S *pstBuf,
                                tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstBuf == nullptr || pstCtIn == nullptr) {
        return InvalidFrameOsdParam();
    }
    VW_CMD_TYPE enCmd;
    VW_RESULT_TYPE enRet = EnterFrameOsdCommand(pstHeader, __func__, &enCmd);
    if (enRet != VW_RESULT_OK) {
        return enRet;
    }
    return ParseCommon<_VW_PIC_OSD_PARA_S>(pstHeader, pstBuf, pstCtIn);
}

ITGT_STAGE RunPutITGTFrameOSD(tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                              tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr ||
        pstCtIn->pParseOut == nullptr) {
        return InvalidFrameOsdParam();
    }
    VW_CMD_TYPE enCmd;
    VW_RESULT_TYPE enRet = EnterFrameOsdCommand(pstHeader, __func__, &enCmd);
    if (enRet != VW_RESULT_OK) {
        return enRet;
    }
    // A body may set picOSDNum beyond the item capacity; such a record never reaches the daemon.
    const auto *pstParam = static_cast<const _VW_PIC_OSD_PARA_S *>(pstCtIn->pParseOut);
    if (pstParam->picOSDInfo.picOSDNum > PIC_OSD_ITEM_CAPACITY) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: picOSDNum[%u] exceeds the %u items of a frame OSD",
                   __func__, pstParam->picOSDInfo.picOSDNum, PIC_OSD_ITEM_CAPACITY);
        return VW_RESULT_PARAM_ERR;
    }
    return SetCommon(pstHeader, pstCtIn->pParseOut, sizeof(_VW_PIC_OSD_PARA_S),
                     pstClient->pstUnixSocket, enCmd, 0, kPeerPath);
}

ITGT_STAGE FormatPutITGTFrameOSD(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                 tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf) {
    if (pstHeader == nullptr || pstCtInt == nullptr || pstBuf == nullptr) {
        return InvalidFrameOsdParam();
    }
    char szBusiness[kBusinessTypeLen] = {};
    VW_RESULT_TYPE enRet = EnterFrameOsdStage(pstHeader, __func__, szBusiness);
    if (enRet != VW_RESULT_OK) {
        return enRet;
    }
    return FormatCommonStatus(pstHeader, enResult, pstCtInt, pstBuf);
}

// =============================================================================================
// Video vehicle detector of a channel: command 20100

ITGT_STAGE RunGetITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                                          tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr) {
        return InvalidStageParam(__func__, pstHeader, pstClient, pstCtIn);
    }
    return ReadChannelRecord(pstHeader, pstClient->pstUnixSocket, VW_CMD_VIDEO_VEHICLE_DETECTOR,
                             &pstCtIn->pRunOut, __func__, "memset_s", nullptr);
}

ITGT_STAGE FormatGetITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                             tagHTTP_CNTENT_INTER_S *pstCtInt,
                                             tagHTTP_BUF_S *pstBuf) {
    if (pstHeader != nullptr) {
        ITGT_OPERATION_LOG(
            pstHeader, enResult == VW_RESULT_OK, "%s[%s:%llu] Get TrafficFlow Params Success.",
            "%s[%s:%llu] 获取视频车检器参数成功.", "%s[%s:%llu] Get TrafficFlow Params FAIL.",
            "%s[%s:%llu] 获取视频车检器参数失败.");
    }
    return static_cast<VW_RESULT_TYPE>(
        FormatCommonResponse<VW_TRAFFIC_FLOW_PARA>(pstHeader, enResult, pstCtInt, pstBuf));
}

ITGT_STAGE PreProcPutITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader,
                                              tagUNIX_SOCKET_S *pstUnixSocket,
                                              tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstUnixSocket == nullptr || pstCtIn == nullptr) {
        return InvalidStageParam(__func__, pstHeader, pstUnixSocket, pstCtIn);
    }
    return ReadChannelRecord(pstHeader, pstUnixSocket, VW_CMD_VIDEO_VEHICLE_DETECTOR,
                             &pstCtIn->pPreProcOut, __func__, "memset_s", nullptr);
}

ITGT_STAGE ParsePutITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader, tagHTTP_BUF_S *pstBuf,
                                            tagHTTP_CNTENT_INTER_S *pstCtIn) {
    return ParseCommon<VW_TRAFFIC_FLOW_PARA>(pstHeader, pstBuf, pstCtIn);
}

ITGT_STAGE RunPutITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                                          tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr ||
        pstCtIn->pParseOut == nullptr) {
        return InvalidStageParam(__func__, pstHeader, pstClient, pstCtIn);
    }
    return SetCommon(pstHeader, pstCtIn->pParseOut, sizeof(VW_TRAFFIC_FLOW_PARA),
                     pstClient->pstUnixSocket, VW_CMD_VIDEO_VEHICLE_DETECTOR, 0, kPeerPath);
}

ITGT_STAGE FormatPutITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                             tagHTTP_CNTENT_INTER_S *pstCtInt,
                                             tagHTTP_BUF_S *pstBuf) {
    if (pstHeader != nullptr) {
        ITGT_OPERATION_LOG(
            pstHeader, enResult == VW_RESULT_OK, "%s[%s:%llu] Put TrafficFlow Params Success.",
            "%s[%s:%llu] 设置视频车检器参数成功.", "%s[%s:%llu] Put TrafficFlow Params FAIL.",
            "%s[%s:%llu] 设置视频车检器参数失败.");
    }
    return FormatCommonStatus(pstHeader, enResult, pstCtInt, pstBuf);
}

// =============================================================================================
// OSD capability: command 31111, served for channel 101 only

namespace {
constexpr unsigned long long kOsdCapabilityChannel = 101;
}

ITGT_STAGE RunGetITGTOsdCapability(tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                                   tagHTTP_CNTENT_INTER_S *pstCtIn) {
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter RunGetITGTOsdCapability");
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr) {
        return InvalidStageParam(__func__, pstHeader, pstClient, pstCtIn);
    }
    unsigned long long ullChannelId = 0;
    if (GetURIQueryParamByKey<unsigned long long>(pstHeader, "ChannelId", &ullChannelId) !=
        VW_RESULT_OK) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s, Query param get failed", __func__);
        return VW_RESULT_PARAM_ERR;
    }
    if (ullChannelId != kOsdCapabilityChannel) {
        return VW_RESULT_NOT_SUPPORT;
    }
    vwCmdBody stBody;  // all zero: the command addresses no channel
    ZeroOrLog(&stBody, "memset_s");
    return GetCommon(pstHeader, pstClient->pstUnixSocket, VW_CMD_ITGT_OSD_CAPABILITY, &stBody,
                     &pstCtIn->pRunOut, 0, kPeerPath);
}

ITGT_STAGE FormatGetITGTOsdCapability(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                      tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf) {
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:Enter FormatGetITGTOsdCapability");
    return static_cast<VW_RESULT_TYPE>(FormatCommonResponse<_tagITGT_OSD_ABILITY_REST_API_S>(
        pstHeader, enResult, pstCtInt, pstBuf));
}

// =============================================================================================
// Security code verification of an uploaded picture: command 20101, a direct exchange

namespace {

// Every verification moves its picture to this one path, where the backend looks for it.
constexpr char kSecurityCodePicture[] = "/tmp/securityCode.jpg";

// Held by a verification from the move of its picture to the backend's reply, so that
// overlapping requests never verify each other's picture. The module's only lock.
std::mutex g_securityCodePictureLock;

// Whether the file at pcPath opens and starts with the JPEG start-of-image marker; the test reads
// the first 8 bytes as one item, so a shorter file fails. 4 (logged) when it does not.
VW_RESULT_TYPE CheckJpegUpload(const char *pcPath) {
    if (access(pcPath, F_OK) != 0) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s not exist", pcPath);
        return VW_RESULT_PARAM_ERR;
    }
    TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:%s exist", pcPath);
    FILE *pstFile = fopen(pcPath, "r");
    if (pstFile == nullptr) {
        TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:%s open failed", pcPath);
        return VW_RESULT_PARAM_ERR;
    }
    unsigned char aucHead[8];
    if (fread(aucHead, sizeof(aucHead), 1, pstFile) != 1) {
        TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:%s fread failed", pcPath);
        fclose(pstFile);
        return VW_RESULT_PARAM_ERR;
    }
    fclose(pstFile);
    if (aucHead[0] != 0xFF || aucHead[1] != 0xD8) {
        TALAPI_LOG(VW_LOG_TRACE, "[TALAPI]:%s is not jpg", pcPath);
        return VW_RESULT_PARAM_ERR;
    }
    return VW_RESULT_OK;
}

// Moves the upload to the fixed path (an upload that cannot be moved is deleted) and names that
// path in packetName.
void MoveToSecurityCodePicture(tagHTTP_CLIENT_S *pstClient) {
    char *pcUpload = pstClient->packetName;
    if (rename(pcUpload, kSecurityCodePicture) != 0) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:rename from (%s) -> (%s) faild:errInfo = %s", pcUpload,
                   kSecurityCodePicture, strerror(errno));
        int iRet = unlink(pcUpload);
        if (iRet != 0) {
            TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:RemoveFile<%s> failed:ret = %d", pcUpload, iRet);
        }
    }
    if (strncpy_s(pcUpload, sizeof(pstClient->packetName), kSecurityCodePicture,
                  strlen(kSecurityCodePicture)) != 0) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:Fail to strncpy_s packetName\n");
    }
}

}  // namespace

ITGT_STAGE RunPostITGTSecurityCodeVerify(tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                                         tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstClient == nullptr || pstCtIn == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:invalid param, header[%p] client[%p] ctIn[%p]",
                   Ptr(pstHeader), Ptr(pstClient), Ptr(pstCtIn));
        return VW_RESULT_FAIL;
    }
    MSG_DATA stReply;
    ZeroOrLog(&stReply, "memset_s");
    VW_RESULT_TYPE enRet = CheckJpegUpload(pstClient->packetName);
    if (enRet != VW_RESULT_OK) {
        return enRet;
    }
    long long llStatus;
    {
        std::lock_guard<std::mutex> lock(g_securityCodePictureLock);
        MoveToSecurityCodePicture(pstClient);
        // The command body is what the access server left in pParseOut.
        llStatus = RestSendSynUnixMsg(kPeerPath, VW_MSG_SYN_REQUEST, VW_CMD_SECURITY_CODE_VERIFY,
                                      static_cast<const vwCmdBody *>(pstCtIn->pParseOut),
                                      pstClient->pstUnixSocket, &stReply, 0);
    }
    if (llStatus != 0) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: Send SynUnixMsg for set cmd[%d] failed", __func__,
                   VW_CMD_SECURITY_CODE_VERIFY);
        return VW_RESULT_SEND_FAIL;
    }
    if (stReply.Result != 0) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:RestSendSynUnixMsg Result[%d] is not match 0",
                   stReply.Result);
        return static_cast<VW_RESULT_TYPE>(stReply.Result);
    }
    auto *pstVerify = NewResultRecord<VerifyResultParam>(pstHeader, __func__, "memset_s Fail");
    if (pstVerify == nullptr) {
        return VW_RESULT_NO_MEMORY;
    }
    // Channel and verdict; the last 4 bytes stay zero.
    memcpy(pstVerify, stReply.aucPayload, offsetof(VerifyResultParam, verifyResult) + sizeof(int));
    pstCtIn->pRunOut = pstVerify;
    return VW_RESULT_OK;
}

ITGT_STAGE FormatPostITGTSecurityCodeVerify(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                            tagHTTP_CNTENT_INTER_S *pstCtInt,
                                            tagHTTP_BUF_S *pstBuf) {
    void *pvRunOut = pstCtInt != nullptr ? pstCtInt->pRunOut : nullptr;
    if (pstHeader == nullptr || pstCtInt == nullptr || pstBuf == nullptr || pvRunOut == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR,
                   "[TALAPI]:%s: invalid param, header[%p] ctInt[%p] buf[%p] pRunOut[%p]", __func__,
                   Ptr(pstHeader), Ptr(pstCtInt), Ptr(pstBuf), pvRunOut);
        return VW_RESULT_FAIL;
    }
    const auto *pstVerify = static_cast<const VerifyResultParam *>(pvRunOut);
    ITGT_OPERATION_LOG(pstHeader, pstVerify->verifyResult == SECURITY_CODE_VERIFY_PASSED,
                       "%s[%s:%llu] Post SecurityCode Successfully.",
                       "%s[%s:%llu] 智能图片防伪码校验成功.", "%s[%s:%llu] Post SecurityCode fail.",
                       "%s[%s:%llu] 智能图片防伪码校验失败.");
    return static_cast<VW_RESULT_TYPE>(
        FormatCommonResponse<VerifyResultParam>(pstHeader, enResult, pstCtInt, pstBuf));
}
