// SPDX-License-Identifier: Apache-2.0
// Status responses: the envelope that answers a request with its URL and result.
#include <cstring>

#include "talapi_business_common.h"
#include "talapi_common.h"

namespace {

struct StatusText {
    VW_RESULT_TYPE enResult;
    unsigned long long ullHttpStatus;
    const char *pcWord;
};

constexpr StatusText kStatusTexts[] = {
    {VW_RESULT_OK, 200, "OK"},
    {VW_RESULT_FAIL, 500, "Failed"},
    {VW_RESULT_SEND_FAIL, 502, "BackendUnreachable"},
    {VW_RESULT_PARAM_ERR, 400, "InvalidParameter"},
    {VW_RESULT_NOT_SUPPORT, 404, "NotSupported"},
    {VW_RESULT_NO_MEMORY, 500, "OutOfMemory"},
};
// Codes of the backend daemon or of other host services.
constexpr StatusText kOtherStatus = {VW_RESULT_FAIL, 500, "DeviceError"};

const StatusText &StatusTextOf(VW_RESULT_TYPE enResult) {
    for (const StatusText &text : kStatusTexts) {
        if (text.enResult == enResult) {
            return text;
        }
    }
    return kOtherStatus;
}

}  // namespace

TALAPI_RESPONSE FillResponseStatusParam(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult) {
    TALAPI_RESPONSE stResponse;
    int iRet = memset_s(&stResponse, sizeof(stResponse), 0, sizeof(stResponse));
    if (iRet != 0) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:[%s] expect Ret %d, actual Ret %d.", "memset_s", 0,
                   iRet);
    }
    const StatusText &text = StatusTextOf(enResult);
    stResponse.ullHttpStatus = text.ullHttpStatus;
    stResponse.ResponseStatus.StatusCode = enResult;
    TALAPI_RESPONSE_STATUS &stStatus = stResponse.ResponseStatus;
    (void)strncpy_s(stStatus.StatusString, sizeof(stStatus.StatusString), text.pcWord,
                    strlen(text.pcWord));
    if (pstHeader != nullptr) {
        // The header's url field is shorter than RequestURL, so it always fits.
        static_assert(sizeof(pstHeader->url) <= sizeof(stStatus.RequestURL), "url fits");
        std::size_t uLength = strnlen(pstHeader->url, sizeof(pstHeader->url) - 1);
        if (uLength > 0) {
            (void)strncpy_s(stStatus.RequestURL, sizeof(stStatus.RequestURL), pstHeader->url,
                            uLength);
        }
    }
    return stResponse;
}

VW_RESULT_TYPE FormatCommonStatus(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                  tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf) {
    (void)pstCtInt;
    if (pstHeader == nullptr || pstBuf == nullptr || pstBuf->Copy2Buf == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: invalid param, header[%p] buf[%p]",
                   "FormatCommonStatus", static_cast<void *>(pstHeader),
                   static_cast<void *>(pstBuf));
        return VW_RESULT_FAIL;
    }
    char *pcText = json_encode(FillResponseStatusParam(pstHeader, enResult));  // ours to free
    if (pcText == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: json_encode fail", "FormatCommonStatus");
        return VW_RESULT_FAIL;
    }
    unsigned int uiLength = static_cast<unsigned int>(strlen(pcText));
    int iCopied = pstBuf->Copy2Buf(pstBuf, pcText, uiLength);
    free(pcText);
    if (iCopied == -1) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: Copy2Buf fail, dataLen[%u]", "FormatCommonStatus",
                   uiLength);
        return VW_RESULT_FAIL;
    }
    return VW_RESULT_OK;
}
