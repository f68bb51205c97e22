// SPDX-License-Identifier: Apache-2.0
// Writing responses: every answer of the desk server goes out through these, so each carries
// the same framing (length, type, CORS) and a HEAD request never gets a body.
#ifndef TALAPI_DESK_RESPONSES_H
#define TALAPI_DESK_RESPONSES_H

#include <string>

#include <civetweb.h>

#include "talapi_types.h"

// Headers a response may carry besides its framing; null: not sent.
struct ResponseHeaders {
    const char *pcAllow = nullptr;
    const char *pcETag = nullptr;
    bool bClose = false;  // end the connection: what is left of the request cannot be trusted
};

// The origin allowed to read responses from a browser (--cors-origin); empty: none. Set once
// before the server starts.
void SetCorsOrigin(const std::string &strOrigin);

// Sends a JSON body (only its length on HEAD). Returns the status.
int SendJson(mg_connection *pstConn, int iStatus, const std::string &strBody,
             const ResponseHeaders &stHeaders = {});

// Sends a status without a body: 204 or 304.
int SendEmpty(mg_connection *pstConn, int iStatus, const ResponseHeaders &stHeaders);

// Sends the status envelope of a result, as the host writes it for a PUT.
int SendEnvelope(mg_connection *pstConn, tagHTTP_HEADER_S *pstHeader, int iStatus,
                 VW_RESULT_TYPE enResult, const ResponseHeaders &stHeaders = {});

// Sends CivetWeb's 401 Digest challenge for realm.
int SendDigestChallenge(mg_connection *pstConn, const char *pcRealm);

// Copy2Buf of a response buffer: appends to the std::string named by pvHostSink.
int AppendToSink(tagHTTP_BUF_S *pstBuf, const char *pcData, unsigned int uiLen);

#endif
