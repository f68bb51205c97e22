// SPDX-License-Identifier: Apache-2.0
// The backend daemon simulator: listens on the daemon's Unix-domain socket, speaks the host's wire
// framing (talapi_unix_socket.h) and serves the daemon's commands from a persistent store.
// One blocking thread per connection; on SIGINT/SIGTERM every connection is shut down, so the
// program stops promptly whatever clients do, after the exchanges in hand.
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "simulator_store.h"
#include "talapi_types.h"
#include "talapi_unix_socket.h"

namespace {

constexpr const char *kUsage =
    "usage: backend_simulator (--state FILE [--no-sync] | --memory) [--peer PATH] [--verbose]\n"
    "  --state FILE  where the settings are kept; created with defaults when missing, set aside\n"
    "                as FILE.corrupt and recreated when unreadable as a state file\n"
    "  --peer PATH   the daemon's socket path (default /tmp/A); like every path the host uses,\n"
    "                it is taken under $TALAPI_SOCKET_ROOT when that is set\n"
    "  --no-sync     answer a write once the new state file is in place, without waiting\n"
    "                for the disk (it then survives a killed simulator, not a power cut)\n"
    "  --memory      keep the settings in memory only, from the defaults; nothing survives\n"
    "                the simulator (for load tests of the desk, not of a storage)\n"
    "  --verbose     one stderr line per request\n"
    "Security code verification (command 20101) checks the picture the module moved to its fixed\n"
    "path /tmp/securityCode.jpg (never redirected: the module names it directly): verdict 4502\n"
    "when it starts FF D8 and ends with the end-of-image\n"
    "marker FF D9, 4501 when it is there but does not (truncated or altered), and Result 4 (no\n"
    "verdict) when it is missing or unreadable.\n";

constexpr std::size_t kMaxConnections = 64;

struct Server {
    SimulatorStore *pstStore;
    bool bVerbose;
    std::atomic<int> iReplyNo{0};
    std::mutex mtx;
    std::condition_variable cvIdle;
    std::set<int> setConnections;  // open connection sockets, guarded by mtx
};

bool RecvAll(int iFd, void *pvData, std::size_t uLen) {
    unsigned char *pucData = static_cast<unsigned char *>(pvData);
    while (uLen > 0) {
        const ssize_t lGot = recv(iFd, pucData, uLen, 0);
        if (lGot < 0 && errno == EINTR) {
            continue;
        }
        if (lGot <= 0) {
            return false;
        }
        pucData += lGot;
        uLen -= static_cast<std::size_t>(lGot);
    }
    return true;
}

bool SendAll(int iFd, const unsigned char *pucData, std::size_t uLen) {
    while (uLen > 0) {
        const ssize_t lSent = send(iFd, pucData, uLen, MSG_NOSIGNAL);
        if (lSent < 0 && errno == EINTR) {
            continue;
        }
        if (lSent <= 0) {
            return false;
        }
        pucData += lSent;
        uLen -= static_cast<std::size_t>(lSent);
    }
    return true;
}

template <typename T>
void Put(std::vector<unsigned char> &vecBytes, std::size_t uOffset, T value) {
    std::memcpy(vecBytes.data() + uOffset, &value, sizeof(value));
}

// Serves exchanges until the client closes, a request is malformed or the program stops.
void ServeConnection(Server &stServer, int iFd) {
    std::vector<unsigned char> vecBody(VW_CMD_BODY_SIZE);
    std::vector<unsigned char> vecPayload;
    TALAPI_WIRE_REQUEST_S stHead{};
    while (RecvAll(iFd, &stHead, sizeof(stHead))) {
        if (stHead.uiMagic != TALAPI_WIRE_REQUEST_MAGIC || stHead.uiBodyLen > VW_CMD_BODY_SIZE) {
            SimLog("malformed request (magic 0x%08x, body %u bytes): connection closed",
                   stHead.uiMagic, stHead.uiBodyLen);
            break;
        }
        if (!RecvAll(iFd, vecBody.data(), stHead.uiBodyLen)) {
            break;
        }
        const int iResult = stServer.pstStore->Serve(stHead.enCmdType, vecBody.data(),
                                                     stHead.uiBodyLen, vecPayload);
        const int iReplyNo = ++stServer.iReplyNo;
        if (stServer.bVerbose) {
            SimLog("#%d cmd %u, body %u bytes: Result %d, %zu bytes", iReplyNo, stHead.enCmdType,
                   stHead.uiBodyLen, iResult, vecPayload.size());
        }
        std::vector<unsigned char> vecReply(VW_MSG_HEAD_SIZE, 0);
        Put(vecReply, offsetof(MSG_DATA, uiMagic), TALAPI_WIRE_REPLY_MAGIC);
        Put(vecReply, offsetof(MSG_DATA, enMsgType), stHead.enMsgType);
        Put(vecReply, offsetof(MSG_DATA, enCmdType), stHead.enCmdType);
        Put(vecReply, offsetof(MSG_DATA, uiDataLen), static_cast<unsigned int>(vecPayload.size()));
        Put(vecReply, offsetof(MSG_DATA, ullValue), stHead.ullValue);
        Put(vecReply, offsetof(MSG_DATA, recvMsg), iReplyNo);
        Put(vecReply, offsetof(MSG_DATA, Result), iResult);
        vecReply.insert(vecReply.end(), vecPayload.begin(), vecPayload.end());
        if (!SendAll(iFd, vecReply.data(), vecReply.size())) {
            break;
        }
    }
    std::lock_guard<std::mutex> lock(stServer.mtx);
    close(iFd);  // under the lock, so that a stop never shuts down a reused descriptor
    stServer.setConnections.erase(iFd);
    stServer.cvIdle.notify_all();
}

// Makes the directories above strPath that are missing ("<root>/tmp" for "<root>/tmp/A").
void MakeParents(const std::string &strPath) {
    for (std::size_t uPos = strPath.find('/', 1); uPos != std::string::npos;
         uPos = strPath.find('/', uPos + 1)) {
        mkdir(strPath.substr(0, uPos).c_str(), 0755);
    }
}

// Binds and listens on strPath, replacing a socket file that no daemon answers on any more.
int Listen(const std::string &strPath, std::string &strError) {
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    std::memcpy(stAddr.sun_path, strPath.c_str(), strPath.size() + 1);
    const sockaddr *pstAddr = reinterpret_cast<const sockaddr *>(&stAddr);
    const int iFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        strError = std::strerror(errno);
        return -1;
    }
    struct stat stStat {};
    if (lstat(strPath.c_str(), &stStat) == 0 && S_ISSOCK(stStat.st_mode)) {
        if (connect(iFd, pstAddr, sizeof(stAddr)) == 0) {
            strError = "another daemon is listening there";
            close(iFd);
            return -1;
        }
        unlink(strPath.c_str());
    }
    MakeParents(strPath);
    if (bind(iFd, pstAddr, sizeof(stAddr)) != 0 || listen(iFd, 64) != 0) {
        strError = std::strerror(errno);
        close(iFd);
        return -1;
    }
    return iFd;
}

// Accepts connections until SIGINT or SIGTERM arrives on iSignalFd.
void AcceptLoop(Server &stServer, int iListenFd, int iSignalFd) {
    pollfd astPoll[2] = {{iListenFd, POLLIN, 0}, {iSignalFd, POLLIN, 0}};
    for (;;) {
        if (poll(astPoll, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            SimLog("poll: %s", std::strerror(errno));
            return;
        }
        if (astPoll[1].revents != 0) {
            signalfd_siginfo stInfo{};
            const ssize_t lGot = read(iSignalFd, &stInfo, sizeof(stInfo));
            SimLog("stopping on signal %u", lGot == sizeof(stInfo) ? stInfo.ssi_signo : 0u);
            return;
        }
        const int iFd = accept4(iListenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (iFd < 0) {
            if (errno != EINTR && errno != ECONNABORTED && errno != EAGAIN) {
                SimLog("accept: %s", std::strerror(errno));
            }
            continue;
        }
        std::lock_guard<std::mutex> lock(stServer.mtx);
        if (stServer.setConnections.size() >= kMaxConnections) {
            SimLog("more than %zu connections: refusing one", kMaxConnections);
            close(iFd);
            continue;
        }
        stServer.setConnections.insert(iFd);
        std::thread(ServeConnection, std::ref(stServer), iFd).detach();
    }
}

}  // namespace

int main(int argc, char **argv) {
    std::string strState;
    std::string strPeer = "/tmp/A";
    bool bVerbose = false;
    bool bSync = true;
    bool bMemory = false;
    for (int i = 1; i < argc; ++i) {
        const std::string strArg = argv[i];
        if (strArg == "--help" || strArg == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (strArg == "--verbose") {
            bVerbose = true;
        } else if (strArg == "--no-sync") {
            bSync = false;
        } else if (strArg == "--memory") {
            bMemory = true;
        } else if ((strArg == "--state" || strArg == "--peer") && i + 1 < argc && argv[i + 1][0]) {
            (strArg == "--state" ? strState : strPeer) = argv[++i];
        } else {
            std::fprintf(stderr, "backend_simulator: bad argument '%s'\n%s", argv[i], kUsage);
            return 2;
        }
    }
    if (strState.empty() == !bMemory) {
        std::fprintf(stderr, "backend_simulator: give --state FILE or --memory\n%s", kUsage);
        return 2;
    }

    char szSocket[sizeof(sockaddr_un::sun_path)];
    const char *szPicture = SIM_SECURITY_PICTURE_PATH;
    if (UnixSocketResolvePeerPath(strPeer.c_str(), szSocket, sizeof(szSocket)) != 0) {
        SimLog("cannot bind: socket path for %s is too long", strPeer.c_str());
        return 1;
    }

    // SIGINT and SIGTERM are taken through a descriptor, blocked in every thread started later.
    sigset_t stSignals;
    sigemptyset(&stSignals);
    sigaddset(&stSignals, SIGINT);
    sigaddset(&stSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    const int iSignalFd = signalfd(-1, &stSignals, SFD_CLOEXEC);
    if (iSignalFd < 0) {
        SimLog("cannot set up signal handling: %s", std::strerror(errno));
        return 1;
    }

    SimulatorStore stStore(strState, szPicture, bSync);
    std::string strError;
    if (!stStore.Open(strError)) {
        SimLog("%s", strError.c_str());
        return 1;
    }
    const int iListenFd = Listen(szSocket, strError);
    if (iListenFd < 0) {
        SimLog("cannot bind %s: %s", szSocket, strError.c_str());
        return 1;
    }
    SimLog("started: state %s, socket %s", bMemory ? "in memory" : strState.c_str(), szSocket);
    std::printf("backend_simulator listening on %s\n", szSocket);
    std::fflush(stdout);

    Server stServer;
    stServer.pstStore = &stStore;
    stServer.bVerbose = bVerbose;
    AcceptLoop(stServer, iListenFd, iSignalFd);

    // Connection threads finish the exchange in hand, see their socket shut down and leave.
    close(iListenFd);
    unlink(szSocket);
    {
        std::unique_lock<std::mutex> lock(stServer.mtx);
        for (int iFd : stServer.setConnections) {
            shutdown(iFd, SHUT_RDWR);
        }
        stServer.cvIdle.wait(lock, [&stServer] { return stServer.setConnections.empty(); });
    }
    SimLog("stopped");
    return 0;
}
