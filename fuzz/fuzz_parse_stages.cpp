// SPDX-License-Identifier: Apache-2.0
// The module's Parse stages of the three writable records, called as the access server calls
// them. Input: one byte choosing the resource, the body up to the first NUL, then the record the
// PreProc stage read (zero-padded when short). The body comes first so that mutations mostly land
// in it rather than in the 6456-byte frame OSD record.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "orbapi_itgt_module.h"
#include "orbapi_itgt_records.h"
#include "talapi_log.h"

namespace {

// Bytes of a record that no body may change: padding and unmapped members, `count` times every
// `stride` bytes.
struct Untouched {
    size_t offset;
    size_t length;
    size_t count;
    size_t stride;
};

struct Resource {
    TALAPI_PARSE_STAGE_PF pfParse;
    size_t size;
    std::vector<Untouched> untouched;
};

using Osd = _VW_PIC_OSD_PARA_S;
constexpr size_t kInfo = offsetof(Osd, picOSDInfo);
constexpr size_t kDetails = kInfo + offsetof(_PIC_OSD_INFO_S, picOsdDetail);
constexpr size_t kDetailTail = offsetof(_PIC_OSD_DETAILS, prefixContent) + 97;
constexpr size_t kTextsEnd = offsetof(Osd, laneDirOSD) + sizeof(_CUSTOM_OSD_PARA_S);
constexpr size_t kLiveEnd = offsetof(Osd, enableLiveOSD) + sizeof(int);

const Resource kResources[] = {
    {ParsePutITGTSysBackLanguage, sizeof(VW_SYS_BACK_LANGUAGE_PARAM), {{12, 4, 1, 0}}},
    {ParsePutITGTFrameOSD,
     sizeof(Osd),
     {{12, 4, 1, 0},
      {kInfo + offsetof(_PIC_OSD_INFO_S, fgAlpha) + 1, 7, 1, 0},
      {kInfo + offsetof(_PIC_OSD_INFO_S, bgAlpha) + 1, 7, 1, 0},
      {kDetails + kDetailTail, sizeof(_PIC_OSD_DETAILS) - kDetailTail, PIC_OSD_ITEM_CAPACITY,
       sizeof(_PIC_OSD_DETAILS)},
      {kInfo + offsetof(_PIC_OSD_INFO_S, aucUnmapped), 4, 1, 0},
      {kTextsEnd, offsetof(Osd, dirOSDParaEn) - kTextsEnd, 1, 0},
      {kLiveEnd, sizeof(Osd) - kLiveEnd, 1, 0}}},
    {ParsePutITGTVideoVehicleDetector, sizeof(VW_TRAFFIC_FLOW_PARA), {{20, 4, 1, 0}}},
};

void NoDebugLog(const VW_DEBUG_LOG_S *) {}
void NoLanguageLog(const VW_LANGUAGE_LOG_S *) {}

void Check(bool bHolds, const char *pcWhat) {
    if (!bHolds) {
        fprintf(stderr, "broken invariant: %s\n", pcWhat);
        abort();
    }
}

// One Parse stage on a malloc'd copy of the record: the result, and the record left in *ppvOut.
VW_RESULT_TYPE Parse(const Resource &stRes, const char *pcBody, const uint8_t *pucRecord,
                     void **ppvOut) {
    tagHTTP_HEADER_S stHeader;
    memset(&stHeader, 0, sizeof(stHeader));
    strcpy(stHeader.method, "PUT");
    strcpy(stHeader.url, "/api/v1/itgt/fuzz");
    strcpy(stHeader.queryString, "ChannelId=1&OverlayPicType=0&BusinessType=TrafficDome");
    void *pvRecord = malloc(stRes.size);
    Check(pvRecord != nullptr, "record allocated");
    memcpy(pvRecord, pucRecord, stRes.size);
    std::vector<char> body(pcBody, pcBody + strlen(pcBody) + 1);
    tagHTTP_BUF_S stBuf{nullptr, nullptr, body.data()};
    tagHTTP_CNTENT_INTER_S stCtIn{pvRecord, nullptr, nullptr};
    VW_RESULT_TYPE enResult = stRes.pfParse(&stHeader, &stBuf, &stCtIn);
    // Every argument is valid and the business type known: only success or a refused body.
    Check(enResult == VW_RESULT_OK || enResult == VW_RESULT_PARAM_ERR, "result is 0 or 4");
    void *pvHeld = enResult == VW_RESULT_OK ? stCtIn.pParseOut : stCtIn.pPreProcOut;
    void *pvEmpty = enResult == VW_RESULT_OK ? stCtIn.pPreProcOut : stCtIn.pParseOut;
    Check(pvHeld == pvRecord && pvEmpty == nullptr && stCtIn.pRunOut == nullptr,
          "the record moves to pParseOut on success only");
    *ppvOut = pvRecord;
    return enResult;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    VW_SetLogSinks(NoDebugLog, NoLanguageLog);  // formats every line, writes none
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pucData, size_t size) {
    if (size == 0) {
        return 0;
    }
    const Resource &stRes = kResources[pucData[0] % 3];
    std::vector<char> body(pucData + 1, pucData + size);
    body.push_back('\0');
    size_t bodyLen = strlen(body.data());
    std::vector<uint8_t> prior(stRes.size, 0);
    if (size > 2 + bodyLen) {
        memcpy(prior.data(), pucData + 2 + bodyLen, std::min(stRes.size, size - 2 - bodyLen));
    }

    void *pvOnce = nullptr;
    VW_RESULT_TYPE enOnce = Parse(stRes, body.data(), prior.data(), &pvOnce);
    const auto *pucOnce = static_cast<const uint8_t *>(pvOnce);
    for (const Untouched &stGap : stRes.untouched) {
        for (size_t i = 0; i < stGap.count; ++i) {
            size_t offset = stGap.offset + i * stGap.stride;
            Check(memcmp(pucOnce + offset, prior.data() + offset, stGap.length) == 0,
                  "padding and unmapped bytes keep their values");
        }
    }
    // A body merges into the record: applying it again changes nothing, refused or not.
    void *pvTwice = nullptr;
    VW_RESULT_TYPE enTwice = Parse(stRes, body.data(), pucOnce, &pvTwice);
    Check(enTwice == enOnce && memcmp(pvTwice, pvOnce, stRes.size) == 0, "a body is idempotent");
    free(pvOnce);
    free(pvTwice);
    return 0;
}
