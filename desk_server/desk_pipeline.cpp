// SPDX-License-Identifier: Apache-2.0
// The journey of a request through the desk server.
//
// Each request runs on a CivetWeb worker thread with host records of its own and the worker's
// backend connection, kept for all its stages. Requests share the read-only DeskServer and the
// writer locks: a PUT or POST holds its instance's lock from its first stage to its Run.
#include "desk_pipeline.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "desk_bodies.h"
#include "desk_responses.h"
#include "talapi_common.h"
#include "talapi_unix_socket.h"

namespace {

// The connection of a worker thread to the backend daemon, kept from one request to the next as
// an access server's workers keep theirs; the common library drops it when the daemon has gone
// and connects anew. Closed when the worker ends.
struct WorkerBackendSocket {
    tagUNIX_SOCKET_S stSocket;
    WorkerBackendSocket() { UnixSocketInit(&stSocket); }
    ~WorkerBackendSocket() { UnixSocketClose(&stSocket); }
};
thread_local WorkerBackendSocket t_workerBackend;

// The host records of one request, calloc'd. Released in the contract's order: the records the
// stages left in the interchange record are freed, then the records.
struct RequestRecords {
    tagHTTP_HEADER_S *pstHeader = static_cast<tagHTTP_HEADER_S *>(calloc(1, sizeof(*pstHeader)));
    tagHTTP_CNTENT_INTER_S *pstCtIn =
        static_cast<tagHTTP_CNTENT_INTER_S *>(calloc(1, sizeof(*pstCtIn)));

    RequestRecords() = default;
    ~RequestRecords() {
        if (pstCtIn != nullptr) {
            free(pstCtIn->pPreProcOut);
            free(pstCtIn->pParseOut);
            free(pstCtIn->pRunOut);
        }
        free(pstHeader);
        free(pstCtIn);
    }
    RequestRecords(const RequestRecords &) = delete;
    RequestRecords &operator=(const RequestRecords &) = delete;
    bool Allocated() const { return pstHeader != nullptr && pstCtIn != nullptr; }
};

// Copies a text into a fixed field, truncated to fit; false when it had to be truncated.
bool CopyText(char *pcDest, std::size_t uCapacity, const char *pcSrc) {
    std::size_t i = 0;
    for (; i + 1 < uCapacity && pcSrc[i] != '\0'; ++i) {
        pcDest[i] = pcSrc[i];
    }
    pcDest[i] = '\0';
    return pcSrc[i] == '\0';
}

bool IsRoutePath(const char *pcPath) {
    for (const DeskRoute &stRoute : kDeskRoutes) {
        if (strcmp(stRoute.pcPath, pcPath) == 0) {
            return true;
        }
    }
    return false;
}

// The route serving a path and method (HEAD is served as GET), or kDeskRouteCount; strAllow
// lists the methods the path has, empty for an unknown path.
unsigned int FindRoute(const char *pcPath, const char *pcMethod, std::string &strAllow) {
    const bool bHead = strcmp(pcMethod, "HEAD") == 0;
    unsigned int uiRoute = kDeskRouteCount;
    for (unsigned int i = 0; i < kDeskRouteCount; ++i) {
        const DeskRoute &stRoute = kDeskRoutes[i];
        if (strcmp(stRoute.pcPath, pcPath) != 0) {
            continue;
        }
        const bool bGet = strcmp(stRoute.pcMethod, "GET") == 0;
        strAllow += std::string(stRoute.pcMethod) + (bGet ? ", HEAD, " : ", ");
        if (strcmp(stRoute.pcMethod, pcMethod) == 0 || (bHead && bGet)) {
            uiRoute = i;
        }
    }
    if (!strAllow.empty()) {
        strAllow += "OPTIONS";
    }
    return uiRoute;
}

// The instance a request addresses: its route's path with the query values that address it,
// read as the module reads them. False when one of them is missing or does not parse.
bool ReadInstance(const DeskRoute &stRoute, tagHTTP_HEADER_S *pstHeader, std::string &strKey,
                  unsigned long long &ullChannel) {
    strKey = stRoute.pcPath;
    if (stRoute.enInstance == DeskInstance::kWhole) {
        return true;
    }
    if (GetURIQueryParamByKey<unsigned long long>(pstHeader, "ChannelId", &ullChannel) !=
        VW_RESULT_OK) {
        return false;
    }
    strKey += "?ChannelId=" + std::to_string(ullChannel);
    if (stRoute.enInstance == DeskInstance::kChannelPicBusiness) {
        unsigned int uiPicType = 0;
        char szBusiness[HTTP_QUERY_LEN];
        if (GetURIQueryParamByKey<unsigned int>(pstHeader, "OverlayPicType", &uiPicType) !=
                VW_RESULT_OK ||
            GetURIQueryParamByKey<char>(pstHeader, "BusinessType", szBusiness,
                                        sizeof(szBusiness)) != VW_RESULT_OK) {
            return false;
        }
        strKey += "&OverlayPicType=" + std::to_string(uiPicType) + "&BusinessType=" + szBusiness;
    }
    return true;
}

// The command body an upload route's Run stage sends (it has no PreProc or Parse stage to make
// one): zeroed, with the request's ChannelId first. Owned by the request.
bool FillUploadCommand(unsigned long long ullChannel, tagHTTP_CNTENT_INTER_S *pstCtIn) {
    vwCmdBody *pstBody = static_cast<vwCmdBody *>(calloc(1, sizeof(vwCmdBody)));
    if (pstBody == nullptr) {
        return false;
    }
    pstBody->ulChannelId = ullChannel;
    pstCtIn->pParseOut = pstBody;
    return true;
}

// What the stages before Format gave: the result, and the entity tag of the record read.
struct StagesOutcome {
    VW_RESULT_TYPE enResult = VW_RESULT_OK;
    std::string strETag;
    bool bPreconditionFailed = false;
};

// Calls PreProc, Parse (when the method has them) and Run, stopping at the first failure. A PUT
// whose If-Match does not hold for the record its PreProc read stops there too.
StagesOutcome RunUntilFormat(const Stages &stStages, const DeskRoute &stRoute,
                             tagHTTP_HEADER_S *pstHeader, tagHTTP_CLIENT_S *pstClient,
                             tagHTTP_CNTENT_INTER_S *pstCtIn, tagHTTP_BUF_S *pstIn,
                             const char *pcIfMatch) {
    StagesOutcome stOut;
    if (stStages.pfPreProc != nullptr) {
        stOut.enResult = stStages.pfPreProc(pstHeader, pstClient->pstUnixSocket, pstCtIn);
        if (stOut.enResult == VW_RESULT_OK && pstCtIn->pPreProcOut != nullptr) {
            stOut.strETag = EntityTagOf(pstCtIn->pPreProcOut, stRoute.uRecordSize);
        }
        if (stOut.enResult == VW_RESULT_OK && pcIfMatch != nullptr &&
            !IfMatchHolds(pcIfMatch, stOut.strETag)) {
            stOut.bPreconditionFailed = true;
            stOut.enResult = VW_RESULT_FAIL;
        }
    }
    if (stOut.enResult == VW_RESULT_OK && stStages.pfParse != nullptr) {
        stOut.enResult = stStages.pfParse(pstHeader, pstIn, pstCtIn);
    }
    if (stOut.enResult == VW_RESULT_OK) {
        stOut.enResult = stStages.pfRun(pstHeader, pstClient, pstCtIn);
        if (stOut.enResult == VW_RESULT_OK && stRoute.pcPreProc == nullptr &&
            stRoute.uRecordSize > 0 && pstCtIn->pRunOut != nullptr) {
            stOut.strETag = EntityTagOf(pstCtIn->pRunOut, stRoute.uRecordSize);
        }
    }
    return stOut;
}

// HTTP status of a request's result, as the common library maps it for the envelope:
//   0 (OK) -> 200, 4 (PARAM_ERR) -> 400, 6 (NOT_SUPPORT) -> 404, 1 (SEND_FAIL) -> 502,
//   any other failure -> 500.
int HttpStatusOf(VW_RESULT_TYPE enResult) {
    return static_cast<int>(FillResponseStatusParam(nullptr, enResult).ullHttpStatus);
}

}  // namespace

int HandleRequest(mg_connection *pstConn, void *pvServer) {
    DeskServer &stServer = *static_cast<DeskServer *>(pvServer);
    const mg_request_info *pstInfo = mg_get_request_info(pstConn);
    const char *pcPath = pstInfo->local_uri != nullptr ? pstInfo->local_uri : "";
    if (stServer.bServeFiles && !IsRoutePath(pcPath)) {
        // The files need the same credentials as the resources; CivetWeb then serves them
        // from its document root.
        char acUser[HTTP_USER_NAME_LEN];
        switch (Authenticate(pstConn, stServer.stAuth, false, acUser, sizeof(acUser))) {
            case Access::kGranted:
                return 0;
            case Access::kChallenged:
                return 401;
            default:
                mg_send_http_error(pstConn, 400, "%s", "bad user name");
                return 400;
        }
    }
    RequestRecords stReq;
    if (!stReq.Allocated()) {
        mg_send_http_error(pstConn, 500, "%s", "out of memory");
        return 500;
    }
    tagHTTP_HEADER_S *pstHeader = stReq.pstHeader;
    const char *pcQuery = pstInfo->query_string != nullptr ? pstInfo->query_string : "";
    if (!CopyText(pstHeader->url, sizeof(pstHeader->url), pcPath) ||
        !CopyText(pstHeader->queryString, sizeof(pstHeader->queryString), pcQuery)) {
        return SendEnvelope(pstConn, pstHeader, 414, VW_RESULT_PARAM_ERR);
    }

    // Routing.
    std::string strAllow;
    const unsigned int uiRoute = FindRoute(pstHeader->url, pstInfo->request_method, strAllow);
    if (strAllow.empty()) {
        return SendEnvelope(pstConn, pstHeader, 404, VW_RESULT_NOT_SUPPORT);
    }
    if (strcmp(pstInfo->request_method, "OPTIONS") == 0) {
        return SendEmpty(pstConn, 204, {strAllow.c_str()});
    }
    if (uiRoute == kDeskRouteCount) {
        return SendEnvelope(pstConn, pstHeader, 405, VW_RESULT_FAIL, {strAllow.c_str()});
    }
    const DeskRoute &stRoute = kDeskRoutes[uiRoute];
    const bool bWrites = strcmp(stRoute.pcMethod, "GET") != 0;
    (void)CopyText(pstHeader->method, sizeof(pstHeader->method), stRoute.pcMethod);

    // Access.
    switch (Authenticate(pstConn, stServer.stAuth, bWrites, pstHeader->userName,
                         sizeof(pstHeader->userName))) {
        case Access::kGranted:
            break;
        case Access::kChallenged:
            return 401;
        case Access::kForbidden:
            return SendEnvelope(pstConn, pstHeader, 403, VW_RESULT_FAIL);
        case Access::kBadName:
            return SendEnvelope(pstConn, pstHeader, 400, VW_RESULT_PARAM_ERR);
    }
    (void)CopyText(pstHeader->clientIp, sizeof(pstHeader->clientIp), pstInfo->remote_addr);
    pstHeader->clientPort = static_cast<unsigned long long>(pstInfo->remote_port);

    // Addressing and preconditions that need no record.
    std::string strInstance;
    unsigned long long ullChannel = 0;
    if (!ReadInstance(stRoute, pstHeader, strInstance, ullChannel)) {
        return SendEnvelope(pstConn, pstHeader, 400, VW_RESULT_PARAM_ERR);
    }
    const char *pcIfMatch =
        stRoute.pcPreProc != nullptr ? mg_get_header(pstConn, "If-Match") : nullptr;
    if (stRoute.pcPreProc != nullptr && stServer.bRequireIfMatch && pcIfMatch == nullptr) {
        return SendEnvelope(pstConn, pstHeader, 428, VW_RESULT_FAIL);
    }

    // The body, whole, before any stage runs.
    tagHTTP_CLIENT_S stClient{};
    stClient.pstUnixSocket = &t_workerBackend.stSocket;
    std::string strBody;
    UploadFile stUpload;
    BodyRead enRead = BodyRead::kOk;
    if (stRoute.enBody == DeskBody::kJson) {
        enRead = ReadJsonBody(pstConn, stServer.requestTimeout, strBody);
    } else if (stRoute.enBody == DeskBody::kUpload) {
        enRead = stUpload.Store(pstConn, stServer.requestTimeout);
        (void)CopyText(stClient.packetName, sizeof(stClient.packetName), stUpload.Path());
        if (enRead == BodyRead::kOk && !FillUploadCommand(ullChannel, stReq.pstCtIn)) {
            stUpload.Remove();
            return SendEnvelope(pstConn, pstHeader, 500, VW_RESULT_NO_MEMORY);
        }
    }
    if (enRead != BodyRead::kOk) {
        stUpload.Remove();
        ResponseHeaders stClose;
        stClose.bClose = enRead == BodyRead::kIncomplete || enRead == BodyRead::kMalformed;
        return SendEnvelope(pstConn, pstHeader, HttpStatusOf(enRead), ResultOf(enRead), stClose);
    }

    // The stages; a writer holds its instance's lock until its Run has answered.
    tagHTTP_BUF_S stIn{nullptr, nullptr, &strBody[0]};  // NUL-terminated by std::string
    std::optional<InstanceLocks::Guard> stWriter;
    if (bWrites) {
        stWriter.emplace(stServer.stWriters, strInstance);
    }
    const StagesOutcome stOutcome = RunUntilFormat(stServer.astStages[uiRoute], stRoute, pstHeader,
                                                   &stClient, stReq.pstCtIn, &stIn, pcIfMatch);
    stWriter.reset();
    stUpload.Remove();
    VW_RESULT_TYPE enResult = stOutcome.enResult;
    std::string strResponse;
    tagHTTP_BUF_S stOut{AppendToSink, &strResponse, nullptr};
    const VW_RESULT_TYPE enFormat =
        stServer.astStages[uiRoute].pfFormat(pstHeader, enResult, stReq.pstCtIn, &stOut);

    // The response.
    int iStatus = stOutcome.bPreconditionFailed ? 412 : HttpStatusOf(enResult);
    ResponseHeaders stHeaders;
    if (!bWrites && enResult == VW_RESULT_OK && !stOutcome.strETag.empty()) {
        stHeaders.pcETag = stOutcome.strETag.c_str();
        if (IfNoneMatchFails(mg_get_header(pstConn, "If-None-Match"), stOutcome.strETag)) {
            return SendEmpty(pstConn, 304, stHeaders);
        }
    }
    if (!strResponse.empty()) {
        return SendJson(pstConn, iStatus, strResponse, stHeaders);
    }
    // Format wrote nothing: the envelope of the result. A Format that failed after a successful
    // request is not answered as a success.
    if (enResult == VW_RESULT_OK && enFormat != VW_RESULT_OK) {
        enResult = enFormat;
        iStatus = HttpStatusOf(enResult);
        stHeaders.pcETag = nullptr;
    }
    return SendEnvelope(pstConn, pstHeader, iStatus, enResult, stHeaders);
}
