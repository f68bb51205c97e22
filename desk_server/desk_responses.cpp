// SPDX-License-Identifier: Apache-2.0
// Writing responses.
#include "desk_responses.h"

#include <cstring>
#include <ctime>
#include <new>

#include "talapi_common.h"

namespace {

std::string g_strCorsOrigin;  // written once before the server starts

// Starts a response with the headers every answer carries.
void StartResponse(mg_connection *pstConn, int iStatus, const ResponseHeaders &stHeaders) {
    mg_response_header_start(pstConn, iStatus);
    if (stHeaders.pcAllow != nullptr) {
        mg_response_header_add(pstConn, "Allow", stHeaders.pcAllow, -1);
    }
    if (stHeaders.pcETag != nullptr) {
        mg_response_header_add(pstConn, "ETag", stHeaders.pcETag, -1);
    }
    if (stHeaders.bClose) {
        mg_response_header_add(pstConn, "Connection", "close", -1);
    }
    if (!g_strCorsOrigin.empty()) {
        mg_response_header_add(pstConn, "Access-Control-Allow-Origin", g_strCorsOrigin.c_str(), -1);
        mg_response_header_add(pstConn, "Access-Control-Expose-Headers", "ETag", -1);
    }
}

// CivetWeb writes the Date header unless the response has one: it is written here.
void EndHeaders(mg_connection *pstConn) {
    const time_t now = time(nullptr);
    tm stNow{};
    char acDate[64];
    if (gmtime_r(&now, &stNow) != nullptr &&
        strftime(acDate, sizeof(acDate), "%a, %d %b %Y %H:%M:%S GMT", &stNow) > 0) {
        mg_response_header_add(pstConn, "Date", acDate, -1);
    }
    mg_response_header_send(pstConn);
}

}  // namespace

void SetCorsOrigin(const std::string &strOrigin) {
    g_strCorsOrigin = strOrigin;
}

int SendJson(mg_connection *pstConn, int iStatus, const std::string &strBody,
             const ResponseHeaders &stHeaders) {
    StartResponse(pstConn, iStatus, stHeaders);
    mg_response_header_add(pstConn, "Content-Type", "application/json", -1);
    mg_response_header_add(pstConn, "Content-Length", std::to_string(strBody.size()).c_str(), -1);
    EndHeaders(pstConn);
    if (strcmp(mg_get_request_info(pstConn)->request_method, "HEAD") != 0) {
        mg_write(pstConn, strBody.data(), strBody.size());
    }
    return iStatus;
}

int SendEmpty(mg_connection *pstConn, int iStatus, const ResponseHeaders &stHeaders) {
    StartResponse(pstConn, iStatus, stHeaders);
    EndHeaders(pstConn);
    return iStatus;
}

int SendEnvelope(mg_connection *pstConn, tagHTTP_HEADER_S *pstHeader, int iStatus,
                 VW_RESULT_TYPE enResult, const ResponseHeaders &stHeaders) {
    std::string strBody;
    tagHTTP_BUF_S stOut{AppendToSink, &strBody, nullptr};
    (void)FormatCommonStatus(pstHeader, enResult, nullptr, &stOut);
    return SendJson(pstConn, iStatus, strBody, stHeaders);
}

int SendDigestChallenge(mg_connection *pstConn, const char *pcRealm) {
    mg_send_digest_access_authentication_request(pstConn, pcRealm);
    return 401;
}

int AppendToSink(tagHTTP_BUF_S *pstBuf, const char *pcData, unsigned int uiLen) {
    if (pstBuf == nullptr || pstBuf->pvHostSink == nullptr || (pcData == nullptr && uiLen > 0)) {
        return -1;
    }
    try {
        static_cast<std::string *>(pstBuf->pvHostSink)->append(pcData, uiLen);
    } catch (const std::bad_alloc &) {
        return -1;
    }
    return 0;
}
