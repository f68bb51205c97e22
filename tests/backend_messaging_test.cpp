// Backend messaging of the host: the socket record, RestSendSynUnixMsg, GetCommon and SetCommon,
// exchanging over a real Unix-domain socket with the fake daemon.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "fake_daemon.h"
#include "log_capture.h"
#include "talapi_common.h"
#include "talapi_unix_socket.h"

namespace {

constexpr const char *kPeer = "/tmp/A";
using Bytes = std::vector<unsigned char>;

// A socket record that drops its connection at scope end.
struct Socket {
    tagUNIX_SOCKET_S st;
    explicit Socket(unsigned int uiTimeoutMs = TALAPI_BACKEND_TIMEOUT_MS_DEFAULT) {
        UnixSocketInit(&st);
        st.uiTimeoutMs = uiTimeoutMs;
    }
    ~Socket() { UnixSocketClose(&st); }
};

// Bytes that differ from their neighbours and with the seed, so a cut or shifted copy shows.
Bytes Pattern(std::size_t uLen, unsigned int uiSeed) {
    Bytes vec(uLen);
    for (std::size_t i = 0; i < uLen; ++i) {
        vec[i] = static_cast<unsigned char>(i * 31 + uiSeed * 7 + 1);
    }
    return vec;
}

Bytes BytesOf(const void *pv, std::size_t uLen) {
    const unsigned char *puc = static_cast<const unsigned char *>(pv);
    return Bytes(puc, puc + uLen);
}

std::unique_ptr<vwCmdBody> MakeBody(unsigned int uiSeed) {
    std::unique_ptr<vwCmdBody> pstBody(new vwCmdBody);
    const Bytes vec = Pattern(sizeof(vwCmdBody), uiSeed);
    std::memcpy(pstBody.get(), vec.data(), vec.size());
    return pstBody;
}

FakeReply Normal(int iResult, Bytes payload, int iRecvMsg = 0) {
    FakeReply st;
    st.iResult = iResult;
    st.iRecvMsg = iRecvMsg;
    st.payload = std::move(payload);
    return st;
}

FakeReply Misbehave(FakeBehaviour enBehaviour, std::size_t uShortBytes = 0, Bytes payload = {}) {
    FakeReply st = Normal(0, std::move(payload));
    st.enBehaviour = enBehaviour;
    st.uShortBytes = uShortBytes;
    return st;
}

// Answers the first request with stFirst and every later one with stRest.
FakeHandler FirstThen(FakeReply stFirst, FakeReply stRest) {
    auto pbFirst = std::make_shared<bool>(true);
    return [=](const FakeRequest &) {
        const bool bFirst = *pbFirst;
        *pbFirst = false;
        return bFirst ? stFirst : stRest;
    };
}

long long Exchange(Socket &sock, MSG_DATA *pstReply) {
    const std::unique_ptr<vwCmdBody> pstBody = MakeBody(1);
    return RestSendSynUnixMsg(kPeer, VW_MSG_SYN_REQUEST, VW_CMD_SYS_BACK_LANGUAGE, pstBody.get(),
                              &sock.st, pstReply, 0);
}

tagHTTP_HEADER_S Header() {
    tagHTTP_HEADER_S st{};
    std::strcpy(st.method, "GET");
    std::strcpy(st.url, "/test");
    return st;
}

}  // namespace

TEST(UnixSocketResolvePeerPath, PrefixesTheRootWhenSetAndRejectsWhatDoesNotFit) {
    struct Row {
        const char *pcRoot;  // null: variable unset
        const char *pcPath;
        std::size_t uCapacity;
        int iExpected;
        const char *pcExpected;
    };
    const Row aRows[] = {
        {nullptr, "/tmp/A", TALAPI_PEER_PATH_LEN, 0, "/tmp/A"},
        {"", "/tmp/A", TALAPI_PEER_PATH_LEN, 0, "/tmp/A"},
        {"/r", "/tmp/A", TALAPI_PEER_PATH_LEN, 0, "/r/tmp/A"},
        {"/r", "/tmp/A", 9, 0, "/r/tmp/A"},  // exactly fits with its NUL
        {"/r", "/tmp/A", 8, -1, ""},
        {nullptr, "/tmp/A", 6, -1, ""},
    };
    for (const Row &row : aRows) {
        SCOPED_TRACE(std::string(row.pcRoot ? row.pcRoot : "(unset)") + " " + row.pcPath + " " +
                     std::to_string(row.uCapacity));
        if (row.pcRoot == nullptr) {
            unsetenv("TALAPI_SOCKET_ROOT");
        } else {
            setenv("TALAPI_SOCKET_ROOT", row.pcRoot, 1);
        }
        char szOut[TALAPI_PEER_PATH_LEN];
        std::memset(szOut, 'z', sizeof(szOut));
        EXPECT_EQ(row.iExpected, UnixSocketResolvePeerPath(row.pcPath, szOut, row.uCapacity));
        if (row.iExpected == 0) {
            EXPECT_STREQ(row.pcExpected, szOut);
        }
    }
    unsetenv("TALAPI_SOCKET_ROOT");
}

// All rows go over one socket record, which must keep one connection for all of them.
TEST(RestSendSynUnixMsg, CarriesRequestAndReplyFieldsOverOneKeptConnection) {
    struct Row {
        VW_CMD_TYPE enCmd;
        unsigned long long ullValue;
        std::size_t uPayloadLen;
        int iResult;
        int iRecvMsg;
    };
    const Row aRows[] = {
        {VW_CMD_SYS_BACK_LANGUAGE, 0, 0, 0, 1},
        {VW_CMD_VIDEO_VEHICLE_DETECTOR, 1, 24, 0, 2},
        {VW_CMD_ITGT_CAPABILITY, 0xFFFFFFFFFFFFFFFFull, 38, 7, 3},
        {VW_CMD_VLPR_PIC_OSD, 0x100000000ull, VW_CMD_BODY_SIZE, -1, 4},
    };
    FakeDaemon daemon;
    tagUNIX_SOCKET_S stSock;
    UnixSocketInit(&stSock);
    EXPECT_EQ(-1, stSock.iFd);
    EXPECT_STREQ("", stSock.szPeer);
    EXPECT_EQ(TALAPI_BACKEND_TIMEOUT_MS_DEFAULT, stSock.uiTimeoutMs);
    for (const Row &row : aRows) {
        SCOPED_TRACE("cmd " + std::to_string(row.enCmd));
        const Bytes payload = Pattern(row.uPayloadLen, row.enCmd);
        daemon.SetHandler(
            [&](const FakeRequest &) { return Normal(row.iResult, payload, row.iRecvMsg); });
        const std::unique_ptr<vwCmdBody> pstBody = MakeBody(row.enCmd);
        std::unique_ptr<MSG_DATA> pstReply(new MSG_DATA);
        std::memset(pstReply.get(), 0xAA, sizeof(MSG_DATA));

        ASSERT_EQ(0, RestSendSynUnixMsg(kPeer, VW_MSG_SYN_REQUEST, row.enCmd, pstBody.get(),
                                        &stSock, pstReply.get(), row.ullValue));

        const FakeRequest stReq = daemon.Requests().back();
        EXPECT_EQ(static_cast<unsigned int>(VW_MSG_SYN_REQUEST), stReq.uiMsgType);
        EXPECT_EQ(static_cast<unsigned int>(row.enCmd), stReq.uiCmd);
        EXPECT_EQ(row.ullValue, stReq.ullValue);
        EXPECT_EQ(VW_CMD_BODY_SIZE, stReq.uiBodyLen);
        EXPECT_EQ(BytesOf(pstBody.get(), sizeof(vwCmdBody)), stReq.body);

        EXPECT_EQ(TALAPI_WIRE_REPLY_MAGIC, pstReply->uiMagic);
        EXPECT_EQ(static_cast<unsigned int>(VW_MSG_SYN_REQUEST), pstReply->enMsgType);
        EXPECT_EQ(static_cast<unsigned int>(row.enCmd), pstReply->enCmdType);
        EXPECT_EQ(row.uPayloadLen, pstReply->uiDataLen);
        EXPECT_EQ(row.ullValue, pstReply->ullValue);
        EXPECT_EQ(row.iRecvMsg, pstReply->recvMsg);
        EXPECT_EQ(row.iResult, pstReply->Result);
        Bytes expected = payload;
        expected.resize(VW_CMD_BODY_SIZE, 0);
        EXPECT_EQ(expected, BytesOf(pstReply->aucPayload, VW_CMD_BODY_SIZE));
    }
    EXPECT_EQ(1u, daemon.ConnectionCount());
    EXPECT_STREQ(daemon.SocketPath().c_str(), stSock.szPeer);

    const int iFd = stSock.iFd;
    UnixSocketClose(&stSock);
    EXPECT_EQ(-1, stSock.iFd);
    EXPECT_EQ(-1, fcntl(iFd, F_GETFD));  // really closed
    UnixSocketClose(&stSock);            // and safe to repeat
    EXPECT_EQ(-1, stSock.iFd);
}

TEST(RestSendSynUnixMsg, FailuresReportTheirStatusDropTheConnectionAndTheNextExchangeWorks) {
    struct Row {
        const char *pcName;
        FakeReply stFirst;
        unsigned int uiTimeoutMs;
        long long llExpected;
    };
    const Row aRows[] = {
        {"close", Misbehave(FakeBehaviour::kCloseWithoutReply), 3000, TALAPI_SYN_ERR_CLOSED},
        {"short in head", Misbehave(FakeBehaviour::kShortReply, 10), 3000, TALAPI_SYN_ERR_SHORT},
        {"short in payload", Misbehave(FakeBehaviour::kShortReply, 250, Pattern(1000, 1)), 3000,
         TALAPI_SYN_ERR_SHORT},
        {"bad magic", Misbehave(FakeBehaviour::kBadMagic), 3000, TALAPI_SYN_ERR_MALFORMED},
        {"wrong command", Misbehave(FakeBehaviour::kWrongCommand), 3000, TALAPI_SYN_ERR_MALFORMED},
        {"oversize length", Misbehave(FakeBehaviour::kOversizeLength), 3000,
         TALAPI_SYN_ERR_MALFORMED},
        {"silent", Misbehave(FakeBehaviour::kSilent), 200, TALAPI_SYN_ERR_TIMEOUT},
    };
    FakeDaemon daemon;
    LogCapture logs;
    for (const Row &row : aRows) {
        SCOPED_TRACE(row.pcName);
        const Bytes payload = Pattern(16, 5);
        daemon.SetHandler(FirstThen(row.stFirst, Normal(0, payload)));
        Socket sock(row.uiTimeoutMs);
        MSG_DATA stReply;
        logs.Clear();

        const auto tStart = std::chrono::steady_clock::now();
        EXPECT_EQ(row.llExpected, Exchange(sock, &stReply));
        const auto tElapsed = std::chrono::steady_clock::now() - tStart;
        EXPECT_LT(tElapsed, std::chrono::milliseconds(row.uiTimeoutMs + 2000));
        EXPECT_EQ(-1, sock.st.iFd);

        ASSERT_EQ(0, Exchange(sock, &stReply));
        EXPECT_EQ(payload, BytesOf(stReply.aucPayload, payload.size()));

        // One error line for the failed exchange, none for the good one.
        const std::vector<DebugLogEntry> entries = logs.DebugEntries();
        ASSERT_EQ(1u, entries.size());
        EXPECT_EQ(VW_LOG_ERROR, entries[0].level);
        EXPECT_EQ(0u, entries[0].message.find("[TALAPI]:RestSendSynUnixMsg: cmd[54] "));
        EXPECT_NE(std::string::npos,
                  entries[0].message.find("status[" + std::to_string(row.llExpected) + "]"));
    }
}

TEST(RestSendSynUnixMsg, ReportsConnectWhenNothingListensAndRecoversWhenTheDaemonReturns) {
    FakeDaemon daemon;
    Socket sock;
    MSG_DATA stReply;
    daemon.Stop();

    struct Row {
        const char *pcName;
        std::function<void()> fnSetUp;
    };
    const Row aRows[] = {
        {"no socket file", [] {}},
        {"stale socket file",
         [&] {
             sockaddr_un stAddr{};
             stAddr.sun_family = AF_UNIX;
             std::strcpy(stAddr.sun_path, daemon.SocketPath().c_str());
             const int iFd = socket(AF_UNIX, SOCK_STREAM, 0);
             ASSERT_EQ(0, bind(iFd, reinterpret_cast<sockaddr *>(&stAddr), sizeof(stAddr)));
             close(iFd);  // the file stays, nobody listens: refused
         }},
    };
    for (const Row &row : aRows) {
        SCOPED_TRACE(row.pcName);
        row.fnSetUp();
        EXPECT_EQ(TALAPI_SYN_ERR_CONNECT, Exchange(sock, &stReply));
        EXPECT_EQ(-1, sock.st.iFd);
        unlink(daemon.SocketPath().c_str());
    }
    daemon.Start();
    EXPECT_EQ(0, Exchange(sock, &stReply));
}

TEST(RestSendSynUnixMsg, KeptConnectionIsReplacedWhenTheDaemonRestartsOrThePeerChanges) {
    FakeDaemon first;
    Socket sock;
    MSG_DATA stReply;
    ASSERT_EQ(0, Exchange(sock, &stReply));
    first.Stop();
    first.Start();
    EXPECT_EQ(0, Exchange(sock, &stReply));  // the dead connection is replaced, no failure
    EXPECT_EQ(2u, first.ConnectionCount());

    FakeDaemon second;  // redirects "/tmp/A" to its own directory; first stays up
    ASSERT_EQ(0, Exchange(sock, &stReply));
    EXPECT_EQ(2u, first.RequestCount());
    EXPECT_EQ(1u, second.RequestCount());
    EXPECT_STREQ(second.SocketPath().c_str(), sock.st.szPeer);
}

TEST(HostServices, RejectMissingArgumentsWithoutReachingTheDaemon) {
    FakeDaemon daemon;
    const std::string strLong = "/" + std::string(100, 'x');  // fits only without the root
    ASSERT_LT(strLong.size(), TALAPI_PEER_PATH_LEN);
    ASSERT_GE(daemon.SocketPath().size() - std::strlen(kPeer) + strLong.size(),
              TALAPI_PEER_PATH_LEN);
    const char *pcLong = strLong.c_str();

    Socket sock;
    tagUNIX_SOCKET_S *s = &sock.st;
    tagHTTP_HEADER_S stHeader = Header();
    tagHTTP_HEADER_S *h = &stHeader;
    const std::unique_ptr<vwCmdBody> pstBody = MakeBody(1);
    const vwCmdBody *b = pstBody.get();
    std::unique_ptr<MSG_DATA> pstReply(new MSG_DATA);
    MSG_DATA *r = pstReply.get();
    int iSentinel = 0;
    void *pvDest = &iSentinel;
    void **d = &pvDest;
    unsigned char aucRecord[16] = {1, 2, 3};
    void *rec = aucRecord;
    const auto send = [](const char *pcPeer, const vwCmdBody *pb, tagUNIX_SOCKET_S *ps,
                         MSG_DATA *pr) {
        return RestSendSynUnixMsg(pcPeer, VW_MSG_SYN_REQUEST, VW_CMD_SYS_BACK_LANGUAGE, pb, ps, pr,
                                  0);
    };
    const auto get = [](tagHTTP_HEADER_S *ph, tagUNIX_SOCKET_S *ps, const vwCmdBody *pb, void **ppv,
                        const char *pcPeer) {
        return GetCommon(ph, ps, VW_CMD_SYS_BACK_LANGUAGE, pb, ppv, 0, pcPeer);
    };
    const auto set = [](tagHTTP_HEADER_S *ph, void *pv, tagUNIX_SOCKET_S *ps, const char *pcPeer) {
        return SetCommon(ph, pv, 16, ps, VW_CMD_SYS_BACK_LANGUAGE, 0, pcPeer);
    };

    constexpr long long kParam = TALAPI_SYN_ERR_PARAM, kFail = VW_RESULT_FAIL,
                        kSendFail = VW_RESULT_SEND_FAIL;
    struct Row {
        const char *pcName;  // the service, then the case
        std::function<long long()> fnCall;
        long long llExpected;
    };
    const Row aRows[] = {
        {"RestSendSynUnixMsg: null peer", [&] { return send(nullptr, b, s, r); }, kParam},
        {"RestSendSynUnixMsg: empty peer", [&] { return send("", b, s, r); }, kParam},
        {"RestSendSynUnixMsg: long peer", [&] { return send(pcLong, b, s, r); }, kParam},
        {"RestSendSynUnixMsg: null body", [&] { return send(kPeer, nullptr, s, r); }, kParam},
        {"RestSendSynUnixMsg: null socket", [&] { return send(kPeer, b, nullptr, r); }, kParam},
        {"RestSendSynUnixMsg: null reply", [&] { return send(kPeer, b, s, nullptr); }, kParam},
        {"GetCommon: null header", [&] { return get(nullptr, s, b, d, kPeer); }, kFail},
        {"GetCommon: null socket", [&] { return get(h, nullptr, b, d, kPeer); }, kFail},
        {"GetCommon: null body", [&] { return get(h, s, nullptr, d, kPeer); }, kFail},
        {"GetCommon: null dest", [&] { return get(h, s, b, nullptr, kPeer); }, kFail},
        {"GetCommon: null peer", [&] { return get(h, s, b, d, nullptr); }, kFail},
        {"GetCommon: long peer", [&] { return get(h, s, b, d, pcLong); }, kSendFail},
        {"SetCommon: null header", [&] { return set(nullptr, rec, s, kPeer); }, kFail},
        {"SetCommon: null record", [&] { return set(h, nullptr, s, kPeer); }, kFail},
        {"SetCommon: null socket", [&] { return set(h, rec, nullptr, kPeer); }, kFail},
        {"SetCommon: null peer", [&] { return set(h, rec, s, nullptr); }, kFail},
        {"SetCommon: long peer", [&] { return set(h, rec, s, pcLong); }, kSendFail},
    };
    LogCapture logs;
    for (const Row &row : aRows) {
        SCOPED_TRACE(row.pcName);
        logs.Clear();
        EXPECT_EQ(row.llExpected, row.fnCall());
        const std::vector<DebugLogEntry> entries = logs.DebugEntries();
        ASSERT_EQ(1u, entries.size());  // one error line, naming the service
        EXPECT_EQ(VW_LOG_ERROR, entries[0].level);
        const std::string strName = row.pcName;
        EXPECT_EQ(0u, entries[0].message.find("[TALAPI]:" + strName.substr(0, strName.find(':'))));
    }
    EXPECT_EQ(&iSentinel, pvDest);
    EXPECT_EQ(0u, daemon.ConnectionCount());
    EXPECT_EQ(0u, daemon.RequestCount());
}

TEST(GetCommon, StoresTheWholePayloadOrReturnsTheFailureLeavingTheDestinationAlone) {
    struct Row {
        const char *pcName;
        FakeReply stReply;
        VW_RESULT_TYPE enExpected;
    };
    const Row aRows[] = {
        {"record", Normal(0, Pattern(16, 2)), VW_RESULT_OK},
        {"full payload", Normal(0, Pattern(VW_CMD_BODY_SIZE, 3)), VW_RESULT_OK},
        {"daemon failure", Normal(9, Pattern(16, 4)), static_cast<VW_RESULT_TYPE>(9)},
        {"negative failure", Normal(-3, {}), static_cast<VW_RESULT_TYPE>(-3)},
        {"no reply", Misbehave(FakeBehaviour::kCloseWithoutReply), VW_RESULT_SEND_FAIL},
    };
    FakeDaemon daemon;
    Socket sock;
    tagHTTP_HEADER_S stHeader = Header();
    for (const Row &row : aRows) {
        SCOPED_TRACE(row.pcName);
        daemon.SetHandler([&](const FakeRequest &) { return row.stReply; });
        const std::unique_ptr<vwCmdBody> pstBody = MakeBody(6);
        int iSentinel = 0;
        void *pvDest = &iSentinel;

        EXPECT_EQ(row.enExpected, GetCommon(&stHeader, &sock.st, VW_CMD_VIDEO_VEHICLE_DETECTOR,
                                            pstBody.get(), &pvDest, 42, kPeer));

        const FakeRequest stReq = daemon.Requests().back();
        EXPECT_EQ(static_cast<unsigned int>(VW_CMD_VIDEO_VEHICLE_DETECTOR), stReq.uiCmd);
        EXPECT_EQ(42u, stReq.ullValue);
        EXPECT_EQ(BytesOf(pstBody.get(), sizeof(vwCmdBody)), stReq.body);
        if (row.enExpected != VW_RESULT_OK) {
            EXPECT_EQ(&iSentinel, pvDest);
            continue;
        }
        ASSERT_NE(&iSentinel, pvDest);
        Bytes expected = row.stReply.payload;
        expected.resize(VW_CMD_BODY_SIZE, 0);
        EXPECT_EQ(expected, BytesOf(pvDest, VW_CMD_BODY_SIZE));  // the whole record is readable
        free(pvDest);
    }
}

TEST(SetCommon, SendsExactlyTheRecordAndReturnsTheResult) {
    struct Row {
        unsigned int uiLen;
        FakeReply stReply;
        VW_RESULT_TYPE enExpected;
        std::size_t uRequestsSent;
    };
    const Row aRows[] = {
        {16, Normal(0, {}), VW_RESULT_OK, 1},
        {24, Normal(5, {}), static_cast<VW_RESULT_TYPE>(5), 1},
        {6456, Normal(0, Pattern(8, 1)), VW_RESULT_OK, 1},
        {VW_CMD_BODY_SIZE, Normal(0, {}), VW_RESULT_OK, 1},
        {0, Normal(0, {}), VW_RESULT_OK, 1},
        {16, Misbehave(FakeBehaviour::kCloseWithoutReply), VW_RESULT_SEND_FAIL, 1},
        {VW_CMD_BODY_SIZE + 1, Normal(0, {}), VW_RESULT_PARAM_ERR, 0},
    };
    FakeDaemon daemon;
    Socket sock;
    tagHTTP_HEADER_S stHeader = Header();
    for (const Row &row : aRows) {
        SCOPED_TRACE("length " + std::to_string(row.uiLen));
        daemon.SetHandler([&](const FakeRequest &) { return row.stReply; });
        Bytes storage = Pattern(row.uiLen + 1, row.uiLen);  // never empty: a real address
        const Bytes record(storage.begin(), storage.begin() + row.uiLen);
        const std::size_t uBefore = daemon.RequestCount();

        EXPECT_EQ(row.enExpected, SetCommon(&stHeader, storage.data(), row.uiLen, &sock.st,
                                            VW_CMD_SYS_BACK_LANGUAGE, 7, kPeer));

        ASSERT_EQ(uBefore + row.uRequestsSent, daemon.RequestCount());
        if (row.uRequestsSent == 0) {
            continue;
        }
        const FakeRequest stReq = daemon.Requests().back();
        EXPECT_EQ(static_cast<unsigned int>(VW_CMD_SYS_BACK_LANGUAGE), stReq.uiCmd);
        EXPECT_EQ(7u, stReq.ullValue);
        EXPECT_EQ(row.uiLen, stReq.uiBodyLen);
        EXPECT_EQ(record, stReq.body);
    }
}

// Every thread tags its requests; the daemon answers with the tag as Result and, for a whole
// command body, also echoes the tag as the payload. Reads and writes alternate on one connection.
TEST(HostServices, ConcurrentThreadsEachGetTheirOwnReplies) {
    constexpr unsigned int kThreads = 8;
    constexpr unsigned int kExchanges = 300;
    FakeDaemon daemon;
    daemon.SetHandler([](const FakeRequest &stReq) {
        unsigned long long ullTag = 0;
        std::memcpy(&ullTag, stReq.body.data(), sizeof(ullTag));
        const Bytes echo = stReq.uiBodyLen == VW_CMD_BODY_SIZE ? BytesOf(&ullTag, 8) : Bytes{};
        return Normal(static_cast<int>(ullTag), echo);
    });

    std::atomic<unsigned int> uiMismatches{0};
    std::vector<std::thread> vecThreads;
    for (unsigned int t = 0; t < kThreads; ++t) {
        vecThreads.emplace_back([&, t] {
            Socket sock;
            tagHTTP_HEADER_S stHeader = Header();
            std::unique_ptr<vwCmdBody> pstBody(new vwCmdBody());
            std::unique_ptr<MSG_DATA> pstReply(new MSG_DATA);
            for (unsigned int i = 0; i < kExchanges; ++i) {
                const unsigned long long ullTag = ((t + 1ull) << 20) | i;
                pstBody->ulChannelId = ullTag;
                long long llResult;
                if (i % 2 == 0) {
                    llResult =
                        RestSendSynUnixMsg(kPeer, VW_MSG_SYN_REQUEST, VW_CMD_SYS_BACK_LANGUAGE,
                                           pstBody.get(), &sock.st, pstReply.get(), 0);
                    llResult = llResult != 0 || pstReply->uiDataLen != 8 ||
                                       std::memcmp(pstReply->aucPayload, &ullTag, 8) != 0
                                   ? -1
                                   : pstReply->Result;
                } else {
                    llResult = SetCommon(&stHeader, pstBody.get(), 16, &sock.st,
                                         VW_CMD_SYS_BACK_LANGUAGE, 0, kPeer);
                }
                if (llResult != static_cast<long long>(ullTag)) {
                    ++uiMismatches;
                }
            }
        });
    }
    for (std::thread &th : vecThreads) {
        th.join();
    }
    EXPECT_EQ(0u, uiMismatches.load());
    EXPECT_EQ(kThreads * kExchanges, daemon.RequestCount());
    EXPECT_EQ(kThreads, daemon.ConnectionCount());  // each record kept its one connection
}
