// A scriptable stand-in for the backend daemon, for tests. It listens on a real Unix-domain
// socket in a private temporary directory, points the host's peer-path redirection there
// (TALAPI_SOCKET_ROOT), records every request and answers each one through a handler that the
// test installs. Only one daemon per process should own the redirection at a time: the newest
// one's directory is used, and destroying any daemon unsets the variable.
#ifndef TALAPI_FAKE_DAEMON_H
#define TALAPI_FAKE_DAEMON_H

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// One request as received.
struct FakeRequest {
    unsigned int uiMsgType = 0;
    unsigned int uiCmd = 0;
    unsigned long long ullValue = 0;
    unsigned int uiBodyLen = 0;
    std::vector<unsigned char> body;  // the uiBodyLen bytes as received
};

// How the daemon answers a request.
enum class FakeBehaviour {
    kNormal,             // the whole reply
    kCloseWithoutReply,  // close the connection, no byte of reply
    kShortReply,         // the first uShortBytes of the reply, then close
    kBadMagic,           // a whole reply with a wrong magic
    kWrongCommand,       // a whole reply echoing another command
    kOversizeLength,     // a head announcing more payload than a reply may carry, then close
    kSilent,             // never reply; hold the connection until the client or daemon ends it
};

struct FakeReply {
    int iResult = 0;
    int iRecvMsg = 0;
    std::vector<unsigned char> payload;  // at most 21208 bytes; more are cut
    FakeBehaviour enBehaviour = FakeBehaviour::kNormal;
    std::size_t uShortBytes = 0;  // kShortReply only: bytes of head and payload sent
};

using FakeHandler = std::function<FakeReply(const FakeRequest &)>;

class FakeDaemon {
  public:
    // Listens at once on the redirected path of strPeerPath (the default daemon path).
    explicit FakeDaemon(const std::string &strPeerPath = "/tmp/A");
    ~FakeDaemon();
    FakeDaemon(const FakeDaemon &) = delete;
    FakeDaemon &operator=(const FakeDaemon &) = delete;

    // Calls of the handler are serialised, so it may keep plain state of its own.
    void SetHandler(FakeHandler fnHandler);

    // Stop closes every connection and removes the socket (clients then cannot connect);
    // Start listens again. Both do nothing when already in that state.
    void Stop();
    void Start();

    std::vector<FakeRequest> Requests() const;
    std::size_t RequestCount() const;
    std::size_t ConnectionCount() const;  // connections accepted since construction
    const std::string &SocketPath() const { return m_strSocketPath; }

  private:
    void AcceptLoop(int iListenFd, int iStopFd);
    void Serve(int iFd, int iStopFd);
    FakeReply Answer(const FakeRequest &stRequest);

    std::string m_strRoot;
    std::string m_strSocketPath;
    std::vector<std::string> m_vecMadeDirs;  // made under the root, innermost last

    int m_iListenFd = -1;
    int m_aiStopPipe[2] = {-1, -1};  // a byte written to [1] tells every thread to end
    std::thread m_thAccept;

    mutable std::mutex m_mtx;  // guards the members below
    std::vector<std::thread> m_vecConnThreads;
    std::vector<FakeRequest> m_vecRequests;
    std::size_t m_uConnections = 0;

    std::mutex m_mtxHandler;
    FakeHandler m_fnHandler;
};

#endif
