// SPDX-License-Identifier: Apache-2.0
// The host records of one request, as an access server prepares them for the module's stages,
// with a response buffer that keeps what Copy2Buf received. Frees the three records after use.
#ifndef TESTS_SUPPORT_STAGE_REQUEST_H
#define TESTS_SUPPORT_STAGE_REQUEST_H

#include <cstdlib>
#include <cstring>
#include <string>

#include "talapi_types.h"
#include "talapi_unix_socket.h"

// A response buffer; Copy2Buf answers with iAnswer. Its text has room reserved up front, so that
// a copy allocates nothing on the host's side of a Format stage.
struct CapturingBuffer {
    tagHTTP_BUF_S stBuf{};
    std::string text;
    int iCalls = 0;
    int iAnswer = 0;

    CapturingBuffer() {
        stBuf.Copy2Buf = &CapturingBuffer::Copy;
        stBuf.pvHostSink = this;
        text.reserve(1 << 16);
    }
    CapturingBuffer(const CapturingBuffer &) = delete;
    CapturingBuffer &operator=(const CapturingBuffer &) = delete;

    static int Copy(tagHTTP_BUF_S *pstBuf, const char *pcData, unsigned int uiLen) {
        auto *self = static_cast<CapturingBuffer *>(pstBuf->pvHostSink);
        self->text.assign(pcData, uiLen);
        ++self->iCalls;
        return self->iAnswer;
    }
};

struct StageRequest {
    tagHTTP_HEADER_S stHeader{};
    tagHTTP_CNTENT_INTER_S stCtInt{};
    tagUNIX_SOCKET_S stSocket{};
    tagHTTP_CLIENT_S stClient{};
    CapturingBuffer response;
    tagHTTP_BUF_S stBody{};
    std::string body;

    StageRequest(const char *pcMethod, const char *pcUrl, const char *pcQuery) {
        strncpy(stHeader.method, pcMethod, sizeof(stHeader.method) - 1);
        strncpy(stHeader.url, pcUrl, sizeof(stHeader.url) - 1);
        strncpy(stHeader.queryString, pcQuery, sizeof(stHeader.queryString) - 1);
        strcpy(stHeader.userName, "admin");
        strcpy(stHeader.clientIp, "192.168.1.20");
        stHeader.clientPort = 50123;
        UnixSocketInit(&stSocket);
        stClient.pstUnixSocket = &stSocket;
    }
    ~StageRequest() {
        free(stCtInt.pPreProcOut);
        free(stCtInt.pParseOut);
        free(stCtInt.pRunOut);
        UnixSocketClose(&stSocket);
    }

    tagHTTP_BUF_S *Body(const std::string &text) {
        body = text;
        stBody.pBody = &body[0];
        return &stBody;
    }
};

#endif
