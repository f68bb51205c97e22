// SPDX-License-Identifier: Apache-2.0
// Backend messaging of the access server: synchronous request/reply exchanges with the backend
// daemon over a Unix-domain stream socket (framing in talapi_unix_socket.h), and the reading and
// writing services built on them.
//
// Every exchange is bounded by one deadline covering connect, send and receive. A connection is
// kept in the caller's socket record for the next exchange and dropped after any failure, since
// the stream may then be out of step. There is no shared state: each thread uses its own record.
#include <errno.h>
#include <poll.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "talapi_common.h"
#include "talapi_unix_socket.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "the wire is little-endian and records travel in native byte order");
static_assert(TALAPI_PEER_PATH_LEN == sizeof(sockaddr_un::sun_path), "peer path fits sun_path");

namespace {

constexpr const char *kSocketRootEnv = "TALAPI_SOCKET_ROOT";

// State of one exchange: its deadline and the errno of the last failing system call.
struct ExchangeCtx {
    int64_t llDeadlineNs;
    int iSysErr;
};

int64_t MonotonicNs() {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return static_cast<int64_t>(stNow.tv_sec) * 1000000000 + stNow.tv_nsec;
}

// Milliseconds left until the deadline, rounded up so that a poll never spins on 0; 0 when past.
int RemainingMs(const ExchangeCtx &stCtx) {
    const int64_t llLeftNs = stCtx.llDeadlineNs - MonotonicNs();
    if (llLeftNs <= 0) {
        return 0;
    }
    const int64_t llLeftMs = (llLeftNs + 999999) / 1000000;
    return llLeftMs > 0x7fffffff ? 0x7fffffff : static_cast<int>(llLeftMs);
}

// Waits until iFd is ready for usEvents (or reports an error or hang-up, which the following
// send or recv then turns into a status). 0 when ready, TIMEOUT or IO otherwise.
long long WaitReady(int iFd, short usEvents, ExchangeCtx &stCtx) {
    for (;;) {
        const int iLeftMs = RemainingMs(stCtx);
        if (iLeftMs == 0) {
            return TALAPI_SYN_ERR_TIMEOUT;
        }
        pollfd stPoll{iFd, usEvents, 0};
        const int iRet = poll(&stPoll, 1, iLeftMs);
        if (iRet > 0) {
            return TALAPI_SYN_OK;
        }
        if (iRet < 0 && errno != EINTR) {
            stCtx.iSysErr = errno;
            return TALAPI_SYN_ERR_IO;
        }
    }
}

long long SendAll(int iFd, const void *pvData, std::size_t uLen, ExchangeCtx &stCtx) {
    const unsigned char *pucData = static_cast<const unsigned char *>(pvData);
    while (uLen > 0) {
        const ssize_t lSent = send(iFd, pucData, uLen, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (lSent > 0) {
            pucData += lSent;
            uLen -= static_cast<std::size_t>(lSent);
            continue;
        }
        if (lSent < 0 && errno == EINTR) {
            continue;
        }
        if (lSent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            const long long llStatus = WaitReady(iFd, POLLOUT, stCtx);
            if (llStatus != TALAPI_SYN_OK) {
                return llStatus;
            }
            continue;
        }
        stCtx.iSysErr = lSent < 0 ? errno : EPIPE;
        return TALAPI_SYN_ERR_IO;
    }
    return TALAPI_SYN_OK;
}

// Receives exactly uLen bytes. End of stream gives CLOSED when nothing of the reply had arrived
// yet (bAnyReceived false and no byte of this call), SHORT otherwise.
long long RecvAll(int iFd, void *pvData, std::size_t uLen, bool bAnyReceived, ExchangeCtx &stCtx) {
    unsigned char *pucData = static_cast<unsigned char *>(pvData);
    std::size_t uDone = 0;
    while (uDone < uLen) {
        const ssize_t lGot = recv(iFd, pucData + uDone, uLen - uDone, MSG_DONTWAIT);
        if (lGot > 0) {
            uDone += static_cast<std::size_t>(lGot);
            continue;
        }
        if (lGot < 0 && errno == EINTR) {
            continue;
        }
        if (lGot < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            const long long llStatus = WaitReady(iFd, POLLIN, stCtx);
            if (llStatus != TALAPI_SYN_OK) {
                return llStatus;
            }
            continue;
        }
        // A reset is the daemon going away as surely as an orderly end of stream.
        if (lGot == 0 || errno == ECONNRESET) {
            stCtx.iSysErr = lGot == 0 ? 0 : errno;
            return (bAnyReceived || uDone > 0) ? TALAPI_SYN_ERR_SHORT : TALAPI_SYN_ERR_CLOSED;
        }
        stCtx.iSysErr = errno;
        return TALAPI_SYN_ERR_IO;
    }
    return TALAPI_SYN_OK;
}

// Connects the record to pcPath. A blocking AF_UNIX connect waits for room in the daemon's
// backlog at most SO_SNDTIMEO, which is set to the time left before the deadline.
long long Connect(tagUNIX_SOCKET_S *pstSocket, const char *pcPath, ExchangeCtx &stCtx) {
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    std::memcpy(stAddr.sun_path, pcPath, std::strlen(pcPath) + 1);

    const int iFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        stCtx.iSysErr = errno;
        return TALAPI_SYN_ERR_CONNECT;
    }
    for (;;) {
        const int iLeftMs = RemainingMs(stCtx);
        if (iLeftMs == 0) {
            close(iFd);
            return TALAPI_SYN_ERR_TIMEOUT;
        }
        timeval stTimeout{};
        stTimeout.tv_sec = static_cast<time_t>(iLeftMs / 1000);
        stTimeout.tv_usec = static_cast<suseconds_t>((iLeftMs % 1000) * 1000);
        (void)setsockopt(iFd, SOL_SOCKET, SO_SNDTIMEO, &stTimeout, sizeof(stTimeout));
        if (connect(iFd, reinterpret_cast<const sockaddr *>(&stAddr), sizeof(stAddr)) == 0 ||
            errno == EISCONN) {
            break;
        }
        if (errno == EINTR) {
            continue;
        }
        stCtx.iSysErr = errno;
        close(iFd);
        // EAGAIN: the backlog stayed full until SO_SNDTIMEO ran out.
        return (stCtx.iSysErr == EAGAIN || stCtx.iSysErr == ETIMEDOUT) ? TALAPI_SYN_ERR_TIMEOUT
                                                                       : TALAPI_SYN_ERR_CONNECT;
    }
    pstSocket->iFd = iFd;
    std::memcpy(pstSocket->szPeer, pcPath, std::strlen(pcPath) + 1);
    return TALAPI_SYN_OK;
}

// Drops a kept connection that cannot carry the next exchange: it leads to another peer, or it
// is readable while idle (the daemon closed it, or sent bytes no request asked for).
void DropStaleConnection(tagUNIX_SOCKET_S *pstSocket, const char *pcPath) {
    if (pstSocket->iFd < 0) {
        return;
    }
    if (std::strncmp(pstSocket->szPeer, pcPath, sizeof(pstSocket->szPeer)) != 0) {
        UnixSocketClose(pstSocket);
        return;
    }
    pollfd stPoll{pstSocket->iFd, POLLIN, 0};
    if (poll(&stPoll, 1, 0) != 0) {
        UnixSocketClose(pstSocket);
    }
}

long long SendRequest(int iFd, const TALAPI_WIRE_REQUEST_S &stHead, const void *pvBody,
                      ExchangeCtx &stCtx) {
    const long long llStatus = SendAll(iFd, &stHead, sizeof(stHead), stCtx);
    if (llStatus != TALAPI_SYN_OK) {
        return llStatus;
    }
    return SendAll(iFd, pvBody, stHead.uiBodyLen, stCtx);
}

long long ReceiveReply(int iFd, const TALAPI_WIRE_REQUEST_S &stRequest, MSG_DATA *pstReply,
                       ExchangeCtx &stCtx) {
    long long llStatus = RecvAll(iFd, pstReply, VW_MSG_HEAD_SIZE, false, stCtx);
    if (llStatus != TALAPI_SYN_OK) {
        return llStatus;
    }
    if (pstReply->uiMagic != TALAPI_WIRE_REPLY_MAGIC ||
        pstReply->enCmdType != stRequest.enCmdType || pstReply->uiDataLen > VW_CMD_BODY_SIZE) {
        return TALAPI_SYN_ERR_MALFORMED;
    }
    llStatus = RecvAll(iFd, pstReply->aucPayload, pstReply->uiDataLen, true, stCtx);
    if (llStatus != TALAPI_SYN_OK) {
        return llStatus;
    }
    std::memset(pstReply->aucPayload + pstReply->uiDataLen, 0,
                VW_CMD_BODY_SIZE - pstReply->uiDataLen);
    return TALAPI_SYN_OK;
}

// One exchange: uiBodyLen bytes of pvBody as the command body, the reply into pstReply.
// pcCaller names the public service in the failure log line.
long long SynExchange(const char *pcCaller, const char *pcPeerPath, unsigned int uiMsgType,
                      unsigned int uiCmd, const void *pvBody, unsigned int uiBodyLen,
                      tagUNIX_SOCKET_S *pstSocket, MSG_DATA *pstReply,
                      unsigned long long ullValue) {
    char szPath[TALAPI_PEER_PATH_LEN];
    if (pcPeerPath == nullptr || pvBody == nullptr || pstSocket == nullptr || pstReply == nullptr ||
        uiBodyLen > VW_CMD_BODY_SIZE || pcPeerPath[0] == '\0' ||
        UnixSocketResolvePeerPath(pcPeerPath, szPath, sizeof(szPath)) != 0) {
        VW_WriteLog(VW_LOG_MODULE_TALAPI, VW_LOG_ERROR, g_enDebugFlag, 0, __FILE__, __LINE__,
                    "[TALAPI]:%s: invalid param, peer[%s] body[%p] socket[%p] reply[%p]", pcCaller,
                    pcPeerPath == nullptr ? "(null)" : pcPeerPath, pvBody,
                    static_cast<void *>(pstSocket), static_cast<void *>(pstReply));
        return TALAPI_SYN_ERR_PARAM;
    }

    ExchangeCtx stCtx{MonotonicNs() + static_cast<int64_t>(pstSocket->uiTimeoutMs) * 1000000, 0};
    const TALAPI_WIRE_REQUEST_S stRequest{TALAPI_WIRE_REQUEST_MAGIC, uiMsgType, uiCmd, uiBodyLen,
                                          ullValue};
    long long llStatus = TALAPI_SYN_OK;

    DropStaleConnection(pstSocket, szPath);
    const bool bReused = pstSocket->iFd >= 0;
    if (!bReused) {
        llStatus = Connect(pstSocket, szPath, stCtx);
    }
    if (llStatus == TALAPI_SYN_OK) {
        llStatus = SendRequest(pstSocket->iFd, stRequest, pvBody, stCtx);
    }
    // The daemon may have dropped a kept connection just after the idle check: one fresh try.
    if (llStatus == TALAPI_SYN_ERR_IO && bReused &&
        (stCtx.iSysErr == EPIPE || stCtx.iSysErr == ECONNRESET)) {
        UnixSocketClose(pstSocket);
        llStatus = Connect(pstSocket, szPath, stCtx);
        if (llStatus == TALAPI_SYN_OK) {
            llStatus = SendRequest(pstSocket->iFd, stRequest, pvBody, stCtx);
        }
    }
    if (llStatus == TALAPI_SYN_OK) {
        llStatus = ReceiveReply(pstSocket->iFd, stRequest, pstReply, stCtx);
    }
    if (llStatus != TALAPI_SYN_OK) {
        UnixSocketClose(pstSocket);
        VW_WriteLog(VW_LOG_MODULE_TALAPI, VW_LOG_ERROR, g_enDebugFlag, stCtx.iSysErr, __FILE__,
                    __LINE__, "[TALAPI]:%s: cmd[%u] with peer[%s] failed, status[%lld]", pcCaller,
                    uiCmd, szPath, llStatus);
    }
    return llStatus;
}

}  // namespace

void UnixSocketInit(tagUNIX_SOCKET_S *pstSocket) {
    if (pstSocket == nullptr) {
        return;
    }
    pstSocket->iFd = -1;
    std::memset(pstSocket->szPeer, 0, sizeof(pstSocket->szPeer));
    pstSocket->uiTimeoutMs = TALAPI_BACKEND_TIMEOUT_MS_DEFAULT;
}

void UnixSocketClose(tagUNIX_SOCKET_S *pstSocket) {
    if (pstSocket == nullptr) {
        return;
    }
    if (pstSocket->iFd >= 0) {
        close(pstSocket->iFd);  // not retried on EINTR: on Linux the descriptor is gone anyway
    }
    pstSocket->iFd = -1;
    std::memset(pstSocket->szPeer, 0, sizeof(pstSocket->szPeer));
}

int UnixSocketResolvePeerPath(const char *pcPeerPath, char *pcOut, std::size_t uCapacity) {
    if (pcPeerPath == nullptr || pcOut == nullptr || uCapacity == 0) {
        return -1;
    }
    const char *pcRoot = std::getenv(kSocketRootEnv);
    if (pcRoot == nullptr) {
        pcRoot = "";
    }
    const std::size_t uRootLen = std::strlen(pcRoot);
    // "/tmp/A" under "/r" is "/r/tmp/A"; a relative path gets the separator it lacks.
    const char *pcSep =
        (uRootLen > 0 && pcRoot[uRootLen - 1] != '/' && pcPeerPath[0] != '/') ? "/" : "";
    const int iLen = std::snprintf(pcOut, uCapacity, "%s%s%s", pcRoot, pcSep, pcPeerPath);
    if (iLen < 0 || static_cast<std::size_t>(iLen) >= uCapacity) {
        pcOut[0] = '\0';
        return -1;
    }
    return 0;
}

long long RestSendSynUnixMsg(const char *pcPeerPath, VW_MSG_TYPE enMsgType, VW_CMD_TYPE enCmd,
                             const vwCmdBody *pstBody, tagUNIX_SOCKET_S *pstUnixSocket,
                             MSG_DATA *pstReply, unsigned long long ullValue) {
    return SynExchange("RestSendSynUnixMsg", pcPeerPath, static_cast<unsigned int>(enMsgType),
                       static_cast<unsigned int>(enCmd), pstBody, sizeof(vwCmdBody), pstUnixSocket,
                       pstReply, ullValue);
}

VW_RESULT_TYPE GetCommon(tagHTTP_HEADER_S *pstHeader, tagUNIX_SOCKET_S *pstUnixSocket,
                         VW_CMD_TYPE enCmd, const vwCmdBody *pstBody, void **ppvDest,
                         unsigned long long ullValue, const char *pcPeerPath) {
    if (pstHeader == nullptr || pstUnixSocket == nullptr || pstBody == nullptr ||
        ppvDest == nullptr || pcPeerPath == nullptr) {
        VW_WriteLog(VW_LOG_MODULE_TALAPI, VW_LOG_ERROR, g_enDebugFlag, 0, __FILE__, __LINE__,
                    "[TALAPI]:GetCommon: invalid param, header[%p] socket[%p] body[%p] dest[%p] "
                    "peer[%p]",
                    static_cast<void *>(pstHeader), static_cast<void *>(pstUnixSocket),
                    static_cast<const void *>(pstBody), static_cast<void *>(ppvDest),
                    static_cast<const void *>(pcPeerPath));
        return VW_RESULT_FAIL;
    }
    MSG_DATA stReply;
    if (SynExchange("GetCommon", pcPeerPath, VW_MSG_SYN_REQUEST, static_cast<unsigned int>(enCmd),
                    pstBody, sizeof(vwCmdBody), pstUnixSocket, &stReply, ullValue) != 0) {
        return VW_RESULT_SEND_FAIL;
    }
    if (stReply.Result != 0) {
        return static_cast<VW_RESULT_TYPE>(stReply.Result);
    }
    void *pvRecord = std::malloc(VW_CMD_BODY_SIZE);
    if (pvRecord == nullptr) {
        VW_WriteLog(VW_LOG_MODULE_TALAPI, VW_LOG_ERROR, g_enDebugFlag, ENOMEM, __FILE__, __LINE__,
                    "[TALAPI]:GetCommon: malloc fail, response for req[%s %s]", pstHeader->method,
                    pstHeader->url);
        return VW_RESULT_NO_MEMORY;
    }
    std::memcpy(pvRecord, stReply.aucPayload, VW_CMD_BODY_SIZE);
    *ppvDest = pvRecord;  // now the request's; the access server frees it after Format
    return VW_RESULT_OK;
}

VW_RESULT_TYPE SetCommon(tagHTTP_HEADER_S *pstHeader, void *pvRecord, unsigned int uiLen,
                         tagUNIX_SOCKET_S *pstUnixSocket, VW_CMD_TYPE enCmd,
                         unsigned long long ullValue, const char *pcPeerPath) {
    if (pstHeader == nullptr || pvRecord == nullptr || pstUnixSocket == nullptr ||
        pcPeerPath == nullptr) {
        VW_WriteLog(VW_LOG_MODULE_TALAPI, VW_LOG_ERROR, g_enDebugFlag, 0, __FILE__, __LINE__,
                    "[TALAPI]:SetCommon: invalid param, header[%p] record[%p] socket[%p] peer[%p]",
                    static_cast<void *>(pstHeader), pvRecord, static_cast<void *>(pstUnixSocket),
                    static_cast<const void *>(pcPeerPath));
        return VW_RESULT_FAIL;
    }
    if (uiLen > VW_CMD_BODY_SIZE) {
        VW_WriteLog(VW_LOG_MODULE_TALAPI, VW_LOG_ERROR, g_enDebugFlag, 0, __FILE__, __LINE__,
                    "[TALAPI]:SetCommon: record of %u bytes exceeds the command body", uiLen);
        return VW_RESULT_PARAM_ERR;
    }
    MSG_DATA stReply;
    if (SynExchange("SetCommon", pcPeerPath, VW_MSG_SYN_REQUEST, static_cast<unsigned int>(enCmd),
                    pvRecord, uiLen, pstUnixSocket, &stReply, ullValue) != 0) {
        return VW_RESULT_SEND_FAIL;
    }
    return static_cast<VW_RESULT_TYPE>(stReply.Result);
}
