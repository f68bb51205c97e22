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

#include <gtest/gtest.h>

#include "talapi_types.h"
#include "talapi_unix_socket.h"

namespace {

constexpr const char *kSocketRootEnv = "TALAPI_SOCKET_ROOT";

// Waits until iFd is ready for usEvents; false once the daemon is told to stop.
bool WaitFor(int iFd, short usEvents, int iStopFd) {
    pollfd astPoll[2] = {{iFd, usEvents, 0}, {iStopFd, POLLIN, 0}};
    for (;;) {
        const int iRet = poll(astPoll, 2, -1);
        if (iRet < 0 && errno == EINTR) {
            continue;
        }
        return iRet > 0 && astPoll[1].revents == 0;
    }
}

bool ReadAll(int iFd, void *pvData, std::size_t uLen, int iStopFd) {
    unsigned char *pucData = static_cast<unsigned char *>(pvData);
    while (uLen > 0) {
        if (!WaitFor(iFd, POLLIN, iStopFd)) {
            return false;
        }
        const ssize_t lGot = recv(iFd, pucData, uLen, MSG_DONTWAIT);
        if (lGot > 0) {
            pucData += lGot;
            uLen -= static_cast<std::size_t>(lGot);
        } else if (lGot == 0 || (errno != EINTR && errno != EAGAIN)) {
            return false;
        }
    }
    return true;
}

bool WriteAll(int iFd, const void *pvData, std::size_t uLen, int iStopFd) {
    const unsigned char *pucData = static_cast<const unsigned char *>(pvData);
    while (uLen > 0) {
        if (!WaitFor(iFd, POLLOUT, iStopFd)) {
            return false;
        }
        const ssize_t lSent = send(iFd, pucData, uLen, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (lSent > 0) {
            pucData += lSent;
            uLen -= static_cast<std::size_t>(lSent);
        } else if (lSent == 0 || (errno != EINTR && errno != EAGAIN)) {
            return false;
        }
    }
    return true;
}

template <typename T>
void Put(std::vector<unsigned char> &vecBytes, std::size_t uOffset, T value) {
    std::memcpy(vecBytes.data() + uOffset, &value, sizeof(value));
}

// The reply's bytes: the 200-byte head, then the payload, shaped by the behaviour.
std::vector<unsigned char> EncodeReply(const TALAPI_WIRE_REQUEST_S &stRequest,
                                       const FakeReply &stReply) {
    const std::size_t uPayloadLen = std::min(stReply.payload.size(), VW_CMD_BODY_SIZE);
    std::vector<unsigned char> vecBytes(VW_MSG_HEAD_SIZE + uPayloadLen, 0);
    const bool bBadMagic = stReply.enBehaviour == FakeBehaviour::kBadMagic;
    const bool bWrongCmd = stReply.enBehaviour == FakeBehaviour::kWrongCommand;
    const bool bOversize = stReply.enBehaviour == FakeBehaviour::kOversizeLength;
    Put(vecBytes, offsetof(MSG_DATA, uiMagic), bBadMagic ? 0xDEADBEEFu : TALAPI_WIRE_REPLY_MAGIC);
    Put(vecBytes, offsetof(MSG_DATA, enMsgType), stRequest.enMsgType);
    Put(vecBytes, offsetof(MSG_DATA, enCmdType), stRequest.enCmdType + (bWrongCmd ? 1u : 0u));
    Put(vecBytes, offsetof(MSG_DATA, uiDataLen),
        static_cast<unsigned int>(bOversize ? VW_CMD_BODY_SIZE + 1 : uPayloadLen));
    Put(vecBytes, offsetof(MSG_DATA, ullValue), stRequest.ullValue);
    Put(vecBytes, offsetof(MSG_DATA, recvMsg), stReply.iRecvMsg);
    Put(vecBytes, offsetof(MSG_DATA, Result), stReply.iResult);
    std::copy_n(stReply.payload.begin(), uPayloadLen, vecBytes.begin() + VW_MSG_HEAD_SIZE);
    if (bOversize) {
        vecBytes.resize(VW_MSG_HEAD_SIZE);
    } else if (stReply.enBehaviour == FakeBehaviour::kShortReply) {
        vecBytes.resize(std::min(stReply.uShortBytes, vecBytes.size()));
    }
    return vecBytes;
}

// Holds a connection without replying until the client closes it or the daemon stops.
void HoldSilently(int iFd, int iStopFd) {
    unsigned char aucDiscard[256];
    while (WaitFor(iFd, POLLIN, iStopFd)) {
        const ssize_t lGot = recv(iFd, aucDiscard, sizeof(aucDiscard), MSG_DONTWAIT);
        if (lGot == 0 || (lGot < 0 && errno != EINTR && errno != EAGAIN)) {
            return;
        }
    }
}

}  // namespace

FakeDaemon::FakeDaemon(const std::string &strPeerPath)
    : m_fnHandler([](const FakeRequest &) { return FakeReply{}; }) {
    char szTemplate[] = "/tmp/talapi-fake-XXXXXX";
    if (mkdtemp(szTemplate) == nullptr) {
        ADD_FAILURE() << "FakeDaemon: mkdtemp: " << std::strerror(errno);
        return;
    }
    m_strRoot = szTemplate;
    setenv(kSocketRootEnv, m_strRoot.c_str(), 1);

    // The peer path's directories, made under the root: "/tmp/A" needs <root>/tmp.
    const std::string strPeer =
        strPeerPath.empty() || strPeerPath[0] != '/' ? "/" + strPeerPath : strPeerPath;
    for (std::size_t uPos = strPeer.find('/', 1); uPos != std::string::npos;
         uPos = strPeer.find('/', uPos + 1)) {
        const std::string strDir = m_strRoot + strPeer.substr(0, uPos);
        if (mkdir(strDir.c_str(), 0700) == 0) {
            m_vecMadeDirs.push_back(strDir);
        }
    }
    m_strSocketPath = m_strRoot + strPeer;
    Start();
}

FakeDaemon::~FakeDaemon() {
    Stop();
    for (auto it = m_vecMadeDirs.rbegin(); it != m_vecMadeDirs.rend(); ++it) {
        rmdir(it->c_str());
    }
    if (!m_strRoot.empty()) {
        rmdir(m_strRoot.c_str());
        unsetenv(kSocketRootEnv);
    }
}

void FakeDaemon::SetHandler(FakeHandler fnHandler) {
    std::lock_guard<std::mutex> lock(m_mtxHandler);
    m_fnHandler = std::move(fnHandler);
}

void FakeDaemon::Start() {
    if (m_iListenFd >= 0 || m_strRoot.empty()) {
        return;
    }
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    if (m_strSocketPath.size() >= sizeof(stAddr.sun_path)) {
        ADD_FAILURE() << "FakeDaemon: socket path too long: " << m_strSocketPath;
        return;
    }
    std::memcpy(stAddr.sun_path, m_strSocketPath.c_str(), m_strSocketPath.size() + 1);

    const int iFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (iFd < 0 || bind(iFd, reinterpret_cast<sockaddr *>(&stAddr), sizeof(stAddr)) != 0 ||
        listen(iFd, 64) != 0 || pipe2(m_aiStopPipe, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "FakeDaemon: cannot listen on " << m_strSocketPath << ": "
                      << std::strerror(errno);
        if (iFd >= 0) {
            close(iFd);
        }
        unlink(m_strSocketPath.c_str());
        return;
    }
    m_iListenFd = iFd;
    m_thAccept = std::thread(&FakeDaemon::AcceptLoop, this, m_iListenFd, m_aiStopPipe[0]);
}

void FakeDaemon::Stop() {
    if (m_iListenFd < 0) {
        return;
    }
    const char cStop = 's';
    while (write(m_aiStopPipe[1], &cStop, 1) < 0 && errno == EINTR) {
    }
    m_thAccept.join();  // no connection thread is added after this
    std::vector<std::thread> vecThreads;
    {
        std::lock_guard<std::mutex> lock(m_mtx);
        vecThreads.swap(m_vecConnThreads);
    }
    for (std::thread &th : vecThreads) {
        th.join();
    }
    close(m_iListenFd);
    unlink(m_strSocketPath.c_str());
    close(m_aiStopPipe[0]);
    close(m_aiStopPipe[1]);
    m_iListenFd = -1;
    m_aiStopPipe[0] = m_aiStopPipe[1] = -1;
}

std::vector<FakeRequest> FakeDaemon::Requests() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_vecRequests;
}

std::size_t FakeDaemon::RequestCount() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_vecRequests.size();
}

std::size_t FakeDaemon::ConnectionCount() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_uConnections;
}

void FakeDaemon::AcceptLoop(int iListenFd, int iStopFd) {
    while (WaitFor(iListenFd, POLLIN, iStopFd)) {
        const int iFd = accept4(iListenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (iFd < 0) {
            if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            ADD_FAILURE() << "FakeDaemon: accept: " << std::strerror(errno);
            return;
        }
        std::lock_guard<std::mutex> lock(m_mtx);
        ++m_uConnections;
        m_vecConnThreads.emplace_back(&FakeDaemon::Serve, this, iFd, iStopFd);
    }
}

// Serves exchanges on one connection until the client closes it, a reply behaviour ends it, a
// request is not well framed, or the daemon stops.
void FakeDaemon::Serve(int iFd, int iStopFd) {
    TALAPI_WIRE_REQUEST_S stHead{};
    while (ReadAll(iFd, &stHead, sizeof(stHead), iStopFd) &&
           stHead.uiMagic == TALAPI_WIRE_REQUEST_MAGIC && stHead.uiBodyLen <= VW_CMD_BODY_SIZE) {
        FakeRequest stRequest;
        stRequest.uiMsgType = stHead.enMsgType;
        stRequest.uiCmd = stHead.enCmdType;
        stRequest.ullValue = stHead.ullValue;
        stRequest.uiBodyLen = stHead.uiBodyLen;
        stRequest.body.resize(stHead.uiBodyLen);
        if (!ReadAll(iFd, stRequest.body.data(), stRequest.body.size(), iStopFd)) {
            break;
        }
        {
            std::lock_guard<std::mutex> lock(m_mtx);
            m_vecRequests.push_back(stRequest);
        }
        const FakeReply stReply = Answer(stRequest);
        if (stReply.enBehaviour == FakeBehaviour::kSilent) {
            HoldSilently(iFd, iStopFd);
            break;
        }
        if (stReply.enBehaviour == FakeBehaviour::kCloseWithoutReply) {
            break;
        }
        const std::vector<unsigned char> vecBytes = EncodeReply(stHead, stReply);
        if (!WriteAll(iFd, vecBytes.data(), vecBytes.size(), iStopFd) ||
            stReply.enBehaviour == FakeBehaviour::kShortReply ||
            stReply.enBehaviour == FakeBehaviour::kOversizeLength) {
            break;
        }
    }
    close(iFd);
}

FakeReply FakeDaemon::Answer(const FakeRequest &stRequest) {
    std::lock_guard<std::mutex> lock(m_mtxHandler);
    return m_fnHandler(stRequest);
}
