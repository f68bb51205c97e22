// SPDX-License-Identifier: Apache-2.0
// The fake backend daemon: an accept thread and one thread per connection. Every thread waits
// with poll on its socket and on a stop pipe, so stopping never depends on what clients do.
#include "fake_daemon.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include "talapi_unix_socket.h"

namespace {

// Waits until iFd is ready for sEvents; false once the daemon is told to stop.
bool WaitFor(int iFd, short sEvents, int iStopFd) {
    pollfd astPoll[2] = {{iFd, sEvents, 0}, {iStopFd, POLLIN, 0}};
    const int iRet = poll(astPoll, 2, -1);  // interrupted: the caller's retry polls again
    return (iRet > 0 || errno == EINTR) && astPoll[1].revents == 0;
}

// Sends or receives exactly uLen bytes; false on end of stream, error or stop.
bool Transfer(int iFd, void *pvData, std::size_t uLen, bool bSend, int iStopFd) {
    unsigned char *pucData = static_cast<unsigned char *>(pvData);
    while (uLen > 0 && WaitFor(iFd, bSend ? POLLOUT : POLLIN, iStopFd)) {
        const ssize_t lDone = bSend ? send(iFd, pucData, uLen, MSG_NOSIGNAL | MSG_DONTWAIT)
                                    : recv(iFd, pucData, uLen, MSG_DONTWAIT);
        if (lDone > 0) {
            pucData += lDone;
            uLen -= static_cast<std::size_t>(lDone);
        } else if (lDone == 0 || (errno != EINTR && errno != EAGAIN)) {
            return false;
        }
    }
    return uLen == 0;
}

}  // namespace

FakeDaemon::FakeDaemon() {
    char szRoot[] = "/tmp/talapi-fake-XXXXXX";
    if (mkdtemp(szRoot) == nullptr) {
        ADD_FAILURE() << "FakeDaemon: mkdtemp: " << std::strerror(errno);
        return;
    }
    m_strRoot = szRoot;
    mkdir((m_strRoot + "/tmp").c_str(), 0700);
    m_strSocketPath = m_strRoot + "/tmp/A";
    setenv("TALAPI_SOCKET_ROOT", m_strRoot.c_str(), 1);
    Start();
}

FakeDaemon::~FakeDaemon() {
    Stop();
    if (!m_strRoot.empty()) {
        unlink(m_strSocketPath.c_str());
        rmdir((m_strRoot + "/tmp").c_str());
        rmdir(m_strRoot.c_str());
        unsetenv("TALAPI_SOCKET_ROOT");
    }
}

void FakeDaemon::SetHandler(FakeHandler fnHandler) {
    std::lock_guard<std::recursive_mutex> lock(m_mtx);
    m_fnHandler = std::move(fnHandler);
}

void FakeDaemon::Start() {
    if (m_iListenFd >= 0 || m_strRoot.empty()) {
        return;
    }
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    std::memcpy(stAddr.sun_path, m_strSocketPath.c_str(), m_strSocketPath.size() + 1);
    unlink(m_strSocketPath.c_str());  // left by Stop
    const int iFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (iFd < 0 || bind(iFd, reinterpret_cast<sockaddr *>(&stAddr), sizeof(stAddr)) != 0 ||
        listen(iFd, 64) != 0 || pipe2(m_aiStopPipe, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "FakeDaemon: cannot listen on " << m_strSocketPath << ": "
                      << std::strerror(errno);
        close(iFd);
        return;
    }
    m_iListenFd = iFd;
    m_thAccept = std::thread(&FakeDaemon::AcceptLoop, this);
}

void FakeDaemon::Stop() {
    if (m_iListenFd < 0) {
        return;
    }
    while (write(m_aiStopPipe[1], "s", 1) < 0 && errno == EINTR) {
    }
    m_thAccept.join();  // no connection thread is added after this
    for (std::thread &th : m_vecConnThreads) {
        th.join();
    }
    m_vecConnThreads.clear();
    close(m_iListenFd);
    close(m_aiStopPipe[0]);
    close(m_aiStopPipe[1]);
    m_iListenFd = m_aiStopPipe[0] = m_aiStopPipe[1] = -1;
}

void FakeDaemon::AcceptLoop() {
    while (WaitFor(m_iListenFd, POLLIN, m_aiStopPipe[0])) {
        const int iFd = accept4(m_iListenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (iFd >= 0) {
            ++m_uConnections;
            m_vecConnThreads.emplace_back(&FakeDaemon::Serve, this, iFd);
        } else if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
            ADD_FAILURE() << "FakeDaemon: accept: " << std::strerror(errno);
            return;
        }
    }
}

// Serves exchanges on one connection until the client closes it, a reply behaviour ends it, a
// request is not well framed, or the daemon stops.
void FakeDaemon::Serve(int iFd) {
    const int iStopFd = m_aiStopPipe[0];
    TALAPI_WIRE_REQUEST_S stHead{};
    while (Transfer(iFd, &stHead, sizeof(stHead), false, iStopFd) &&
           stHead.uiMagic == TALAPI_WIRE_REQUEST_MAGIC && stHead.uiBodyLen <= VW_CMD_BODY_SIZE) {
        FakeRequest stRequest{stHead.enMsgType, stHead.enCmdType, stHead.ullValue, stHead.uiBodyLen,
                              std::vector<unsigned char>(stHead.uiBodyLen)};
        if (!Transfer(iFd, stRequest.body.data(), stRequest.body.size(), false, iStopFd)) {
            break;
        }
        FakeReply stReply;
        {
            std::lock_guard<std::recursive_mutex> lock(m_mtx);
            m_vecRequests.push_back(stRequest);
            stReply = m_fnHandler(stRequest);
        }
        const FakeBehaviour en = stReply.enBehaviour;
        if (en == FakeBehaviour::kSilent) {
            continue;  // until the client's next request or its close
        }
        if (en == FakeBehaviour::kCloseWithoutReply) {
            break;
        }
        // The 200-byte head, zero but for the fields set here, then the payload.
        const bool bOversize = en == FakeBehaviour::kOversizeLength;
        const std::size_t uLen = std::min(stReply.payload.size(), VW_CMD_BODY_SIZE);
        std::unique_ptr<MSG_DATA> pstMsg(new MSG_DATA());
        pstMsg->uiMagic = en == FakeBehaviour::kBadMagic ? 0xDEADBEEFu : TALAPI_WIRE_REPLY_MAGIC;
        pstMsg->enMsgType = stHead.enMsgType;
        pstMsg->enCmdType = stHead.enCmdType + (en == FakeBehaviour::kWrongCommand ? 1u : 0u);
        pstMsg->uiDataLen = static_cast<unsigned int>(bOversize ? VW_CMD_BODY_SIZE + 1 : uLen);
        pstMsg->ullValue = stHead.ullValue;
        pstMsg->recvMsg = stReply.iRecvMsg;
        pstMsg->Result = stReply.iResult;
        std::copy_n(stReply.payload.begin(), uLen, pstMsg->aucPayload);
        std::size_t uSend = VW_MSG_HEAD_SIZE + (bOversize ? 0 : uLen);
        const bool bShort = en == FakeBehaviour::kShortReply;
        uSend = bShort ? std::min(uSend, stReply.uShortBytes) : uSend;
        if (!Transfer(iFd, pstMsg.get(), uSend, true, iStopFd) || bShort || bOversize) {
            break;
        }
    }
    close(iFd);
}
