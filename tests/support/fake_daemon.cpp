// SPDX-License-Identifier: Apache-2.0
// The fake backend daemon: an accept thread and one thread per connection, on blocking sockets.
// Stopping shuts the sockets down, which ends every blocked accept and receive at once.
#include "fake_daemon.h"

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include "talapi_unix_socket.h"

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

std::vector<FakeRequest> FakeDaemon::Requests() const {
    std::lock_guard<std::recursive_mutex> lock(m_mtx);
    return m_vecRequests;
}

void FakeDaemon::Start() {
    if (m_iListenFd >= 0 || m_strRoot.empty()) {
        return;
    }
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    std::memcpy(stAddr.sun_path, m_strSocketPath.c_str(), m_strSocketPath.size() + 1);
    unlink(m_strSocketPath.c_str());  // left by Stop
    m_iListenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(m_iListenFd, reinterpret_cast<sockaddr *>(&stAddr), sizeof(stAddr)) != 0 ||
        listen(m_iListenFd, 64) != 0) {
        ADD_FAILURE() << "FakeDaemon: cannot listen on " << m_strSocketPath;
    }
    m_thAccept = std::thread([this] {
        for (int iFd; (iFd = accept4(m_iListenFd, nullptr, nullptr, SOCK_CLOEXEC)) >= 0 ||
                      errno == EINTR || errno == ECONNABORTED;) {
            if (iFd >= 0) {
                ++m_uConnections;
                std::lock_guard<std::recursive_mutex> lock(m_mtx);
                m_vecConnections.emplace_back(new Connection{iFd, {}});
                m_vecConnections.back()->thread =
                    std::thread(&FakeDaemon::Serve, this, m_vecConnections.back().get());
            }
        }
    });
}

void FakeDaemon::Stop() {
    if (m_iListenFd < 0) {
        return;
    }
    shutdown(m_iListenFd, SHUT_RDWR);  // accept fails from here on
    m_thAccept.join();
    {
        std::lock_guard<std::recursive_mutex> lock(m_mtx);
        for (auto &pstConnection : m_vecConnections) {
            shutdown(pstConnection->iFd, SHUT_RDWR);  // -1 (closed already) does nothing
        }
    }
    for (auto &pstConnection : m_vecConnections) {
        pstConnection->thread.join();
    }
    m_vecConnections.clear();
    close(m_iListenFd);
    m_iListenFd = -1;
}

// Serves exchanges on one connection until the client closes it, a reply behaviour ends it, a
// request is not well framed, or the daemon stops.
void FakeDaemon::Serve(Connection *pstConnection) {
    const int iFd = pstConnection->iFd;
    auto transfer = [iFd](void *pv, std::size_t uLen, bool bSend) {  // a receive of 0 would wait
        return uLen == 0 ||
               (bSend ? send(iFd, pv, uLen, MSG_NOSIGNAL) : recv(iFd, pv, uLen, MSG_WAITALL)) ==
                   static_cast<ssize_t>(uLen);
    };
    TALAPI_WIRE_REQUEST_S stHead{};
    while (transfer(&stHead, sizeof(stHead), false) &&
           stHead.uiMagic == TALAPI_WIRE_REQUEST_MAGIC && stHead.uiBodyLen <= VW_CMD_BODY_SIZE) {
        FakeRequest stRequest{stHead.enMsgType, stHead.enCmdType, stHead.ullValue,
                              std::vector<unsigned char>(stHead.uiBodyLen)};
        if (!transfer(stRequest.body.data(), stRequest.body.size(), false)) {
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
        if (!transfer(pstMsg.get(), uSend, true) || bShort || bOversize) {
            break;
        }
    }
    std::lock_guard<std::recursive_mutex> lock(m_mtx);
    close(iFd);
    pstConnection->iFd = -1;
}
