// SPDX-License-Identifier: Apache-2.0
// A scriptable stand-in for the backend daemon. It listens on a real Unix-domain socket in a
// private temporary directory and points TALAPI_SOCKET_ROOT there, so that the peer path "/tmp/A"
// reaches it; it records every request and answers each through the test's handler. The newest
// daemon owns the redirection; destroying any daemon unsets it.
#ifndef TALAPI_FAKE_DAEMON_H
#define TALAPI_FAKE_DAEMON_H

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct FakeRequest {
    unsigned int uiMsgType = 0, uiCmd = 0;
    unsigned long long ullValue = 0;
    std::vector<unsigned char> body;  // as received, of the head's uiBodyLen bytes
};

enum class FakeBehaviour {
    kNormal,             // the whole reply
    kCloseWithoutReply,  // close the connection, no byte of reply
    kShortReply,         // the first uShortBytes of the reply, then close
    kBadMagic,           // a whole reply with a wrong magic
    kWrongCommand,       // a whole reply echoing another command
    kOversizeLength,     // a head announcing more payload than a reply may carry, then close
    kSilent,             // no reply; the connection stays open
};

struct FakeReply {
    int iResult = 0, iRecvMsg = 0;
    std::vector<unsigned char> payload;  // bytes beyond 21208 are cut
    FakeBehaviour enBehaviour = FakeBehaviour::kNormal;
    std::size_t uShortBytes = 0;  // kShortReply only
};

using FakeHandler = std::function<FakeReply(const FakeRequest &)>;

class FakeDaemon {
  public:
    FakeDaemon();  // listening at once
    ~FakeDaemon();

    // Calls of the handler are serialised; it may read the requests but not stop the daemon.
    void SetHandler(FakeHandler fnHandler);
    // Stop closes every connection and the listening socket but, like a crashed daemon, leaves
    // the socket file; Start listens again. Both do nothing when already in that state.
    void Stop();
    void Start();

    std::vector<FakeRequest> Requests() const;
    std::size_t RequestCount() const { return Requests().size(); }
    std::size_t ConnectionCount() const { return m_uConnections; }  // accepted since construction
    const std::string &SocketPath() const { return m_strSocketPath; }

  private:
    struct Connection {
        int iFd;  // -1 once closed
        std::thread thread;
    };
    void Serve(Connection *pstConnection);

    std::string m_strRoot, m_strSocketPath;
    int m_iListenFd = -1;
    std::thread m_thAccept;
    std::vector<std::unique_ptr<Connection>> m_vecConnections;
    std::atomic<std::size_t> m_uConnections{0};
    mutable std::recursive_mutex m_mtx;  // guards the requests, the handler, the connections
    std::vector<FakeRequest> m_vecRequests;
    FakeHandler m_fnHandler = [](const FakeRequest &) { return FakeReply{}; };
};

#endif
