// SPDX-License-Identifier: Apache-2.0
// Backend messaging of the host: the socket record, RestSendSynUnixMsg, GetCommon and SetCommon,
// exchanging over a real Unix-domain socket with the fake daemon.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "fake_daemon.h"
#include "log_capture.h"
#include "talapi_common.h"
#include "talapi_unix_socket.h"

namespace {

constexpr const char *kPeer = "/tmp/A";
constexpr VW_CMD_TYPE kCmd = VW_CMD_SYS_BACK_LANGUAGE;
using Bytes = std::vector<unsigned char>;
using B = FakeBehaviour;

// Bytes that differ from their neighbours and with the seed, so a cut or shifted copy shows.
Bytes Pattern(std::size_t uLen, unsigned int uiSeed) {
    Bytes vec(uLen);
    for (std::size_t i = 0; i < uLen; ++i) {
        vec[i] = static_cast<unsigned char>(i * 31 + uiSeed * 7 + 1);
    }
    return vec;
}

Bytes BytesOf(const void *pv, std::size_t uLen, std::size_t uPadTo = 0) {
    const unsigned char *puc = static_cast<const unsigned char *>(pv);
    Bytes vec(puc, puc + uLen);
    vec.resize(std::max(uLen, uPadTo), 0);
    return vec;
}

vwCmdBody *AsBody(Bytes &body) {
    return reinterpret_cast<vwCmdBody *>(body.data());
}

// A daemon, a socket record that drops its connection at the end, and what calls need.
class Backend : public ::testing::Test {
  protected:
    void SetUp() override { UnixSocketInit(&sock); }
    void TearDown() override { UnixSocketClose(&sock); }
    long long Send(VW_CMD_TYPE enCmd = kCmd, unsigned long long ullValue = 0) {
        return RestSendSynUnixMsg(kPeer, VW_MSG_SYN_REQUEST, enCmd, AsBody(body), &sock,
                                  pstReply.get(), ullValue);
    }

    FakeDaemon daemon;
    tagUNIX_SOCKET_S sock;
    tagHTTP_HEADER_S stHeader{};
    Bytes body = Pattern(sizeof(vwCmdBody), 1);
    std::unique_ptr<MSG_DATA> pstReply{new MSG_DATA};
    int iSentinel = 0;
    void *pvDest = &iSentinel;  // the destination of GetCommon, left alone unless it succeeds
    LogCapture logs;
};

}  // namespace

// With a root the host sees only the daemon's paths; the boundaries are in the argument table.
TEST(UnixSocketResolvePeerPath, UsesThePathAsGivenWithoutARoot) {
    unsetenv("TALAPI_SOCKET_ROOT");
    char szOut[TALAPI_PEER_PATH_LEN];
    ASSERT_EQ(0, UnixSocketResolvePeerPath(kPeer, szOut, sizeof(szOut)));
    EXPECT_STREQ(kPeer, szOut);
}

// All rows go over one socket record: a completed exchange keeps its connection, a failed one is
// logged and drops it, and the next row connects afresh.
TEST_F(Backend, ExchangesCarryTheirFieldsOrReportTheirFailureOverOneRecord) {
    const struct {
        VW_CMD_TYPE enCmd;
        unsigned long long ullValue;
        FakeReply stReply;
        long long llExpected;
    } aRows[] = {
        {kCmd, 0, {0, 1, {}}, TALAPI_SYN_OK},
        {kCmd, 0, {0, 0, {}, B::kCloseWithoutReply}, TALAPI_SYN_ERR_CLOSED},
        {VW_CMD_VIDEO_VEHICLE_DETECTOR, 1, {0, 2, Pattern(24, 2)}, TALAPI_SYN_OK},
        {kCmd, 0, {0, 0, Pattern(30, 1), B::kShortReply, 10}, TALAPI_SYN_ERR_SHORT},
        {kCmd, 0, {0, 0, Pattern(30, 1), B::kShortReply, 200}, TALAPI_SYN_ERR_SHORT},
        {kCmd, 0, {0, 0, {}, B::kBadMagic}, TALAPI_SYN_ERR_MALFORMED},
        {VW_CMD_ITGT_CAPABILITY, ~0ull, {7, 3, Pattern(38, 3)}, TALAPI_SYN_OK},
        {kCmd, 0, {0, 0, {}, B::kWrongCommand}, TALAPI_SYN_ERR_MALFORMED},
        {kCmd, 0, {0, 0, {}, B::kOversizeLength}, TALAPI_SYN_ERR_MALFORMED},
        {kCmd, 0, {0, 0, {}, B::kSilent}, TALAPI_SYN_ERR_TIMEOUT},
        {VW_CMD_VLPR_PIC_OSD, 1ull << 32, {-1, 4, Pattern(VW_CMD_BODY_SIZE, 4)}, TALAPI_SYN_OK},
    };
    EXPECT_EQ(TALAPI_BACKEND_TIMEOUT_MS_DEFAULT, sock.uiTimeoutMs);
    const MSG_DATA &r = *pstReply;
    std::size_t uFailures = 0;
    for (const auto &row : aRows) {
        SCOPED_TRACE("row " + std::to_string(&row - aRows));
        const FakeReply &stReply = row.stReply;
        daemon.SetHandler([&](const FakeRequest &) { return stReply; });
        sock.uiTimeoutMs = stReply.enBehaviour == B::kSilent ? 200 : 3000;
        std::memset(pstReply.get(), 0xAA, sizeof(MSG_DATA));

        const auto tStart = std::chrono::steady_clock::now();
        EXPECT_EQ(row.llExpected, Send(row.enCmd, row.ullValue));
        EXPECT_LT(std::chrono::steady_clock::now() - tStart,
                  std::chrono::milliseconds(sock.uiTimeoutMs + 2000));

        const FakeRequest stReq = daemon.Requests().back();
        const unsigned int uiCmd = row.enCmd;
        EXPECT_EQ(std::make_tuple(0u, uiCmd, row.ullValue, body),
                  std::make_tuple(stReq.uiMsgType, stReq.uiCmd, stReq.ullValue, stReq.body));
        const std::vector<DebugLogEntry> entries = logs.DebugEntries();
        logs.Clear();
        if (row.llExpected != TALAPI_SYN_OK) {
            ++uFailures;
            EXPECT_EQ(-1, sock.iFd);
            ASSERT_EQ(1u, entries.size());
            EXPECT_EQ(VW_LOG_ERROR, entries[0].level);
            EXPECT_EQ(0u, entries[0].message.find("[TALAPI]:RestSendSynUnixMsg: cmd[54] "));
            const std::string strStatus = "status[" + std::to_string(row.llExpected) + "]";
            EXPECT_NE(std::string::npos, entries[0].message.find(strStatus));
            continue;
        }
        EXPECT_TRUE(entries.empty());
        EXPECT_EQ(std::make_tuple(TALAPI_WIRE_REPLY_MAGIC, 0u, uiCmd, stReply.payload.size(),
                                  row.ullValue, stReply.iRecvMsg, stReply.iResult),
                  std::make_tuple(r.uiMagic, r.enMsgType, r.enCmdType, std::size_t{r.uiDataLen},
                                  r.ullValue, r.recvMsg, r.Result));
        EXPECT_EQ(BytesOf(stReply.payload.data(), stReply.payload.size(), VW_CMD_BODY_SIZE),
                  BytesOf(r.aucPayload, VW_CMD_BODY_SIZE));
    }
    EXPECT_EQ(1 + uFailures, daemon.ConnectionCount());
    const int iFd = sock.iFd;
    UnixSocketClose(&sock);
    EXPECT_EQ(-1, fcntl(iFd, F_GETFD));  // really closed; TearDown closes again, harmlessly
}

TEST_F(Backend, ReconnectsAfterARestartAndReportsConnectWhileNobodyListens) {
    ASSERT_EQ(0, Send());
    daemon.Stop();
    daemon.Start();
    EXPECT_EQ(0, Send());  // the dead connection is replaced, no failure
    EXPECT_EQ(2u, daemon.ConnectionCount());

    daemon.Stop();
    EXPECT_EQ(TALAPI_SYN_ERR_CONNECT, Send());  // a socket file nobody listens on
    unlink(daemon.SocketPath().c_str());
    EXPECT_EQ(TALAPI_SYN_ERR_CONNECT, Send());  // no socket file
    daemon.Start();
    EXPECT_EQ(0, Send());

    FakeDaemon second;  // takes over the redirection of "/tmp/A"; the first stays up
    EXPECT_EQ(0, Send());
    EXPECT_EQ(1u, second.RequestCount());
}

TEST_F(Backend, ServicesRejectUnusableArgumentsWithoutReachingTheDaemon) {
    // Under the daemon's root f fits the socket path limit exactly (nothing listens there); l
    // is one byte longer.
    const std::size_t uRootLen = daemon.SocketPath().size() - std::strlen(kPeer);
    const std::string strFits = "/" + std::string(TALAPI_PEER_PATH_LEN - 2 - uRootLen, 'x');
    const std::string strLong = strFits + "x";
    const char *f = strFits.c_str(), *l = strLong.c_str(), *p = kPeer;
    tagUNIX_SOCKET_S *s = &sock;
    tagHTTP_HEADER_S *h = &stHeader;
    vwCmdBody *b = AsBody(body);
    MSG_DATA *r = pstReply.get();
    void **d = &pvDest;
    constexpr VW_MSG_TYPE m = VW_MSG_SYN_REQUEST;
    constexpr long long kParam = TALAPI_SYN_ERR_PARAM, kFail = VW_RESULT_FAIL,
                        kConnect = TALAPI_SYN_ERR_CONNECT;
    const struct {
        const char *pcService;  // the log line names it
        std::function<long long()> fnCall;
        long long llExpected;
    } aRows[] = {
        {"RestSend", [&] { return RestSendSynUnixMsg(nullptr, m, kCmd, b, s, r, 0); }, kParam},
        {"RestSend", [&] { return RestSendSynUnixMsg("", m, kCmd, b, s, r, 0); }, kParam},
        {"RestSend", [&] { return RestSendSynUnixMsg(l, m, kCmd, b, s, r, 0); }, kParam},
        {"RestSend", [&] { return RestSendSynUnixMsg(p, m, kCmd, nullptr, s, r, 0); }, kParam},
        {"RestSend", [&] { return RestSendSynUnixMsg(p, m, kCmd, b, nullptr, r, 0); }, kParam},
        {"RestSend", [&] { return RestSendSynUnixMsg(p, m, kCmd, b, s, nullptr, 0); }, kParam},
        {"RestSend", [&] { return RestSendSynUnixMsg(f, m, kCmd, b, s, r, 0); }, kConnect},
        {"GetCommon", [&] { return GetCommon(nullptr, s, kCmd, b, d, 0, p); }, kFail},
        {"GetCommon", [&] { return GetCommon(h, nullptr, kCmd, b, d, 0, p); }, kFail},
        {"GetCommon", [&] { return GetCommon(h, s, kCmd, nullptr, d, 0, p); }, kFail},
        {"GetCommon", [&] { return GetCommon(h, s, kCmd, b, nullptr, 0, p); }, kFail},
        {"GetCommon", [&] { return GetCommon(h, s, kCmd, b, d, 0, nullptr); }, kFail},
        {"GetCommon", [&] { return GetCommon(h, s, kCmd, b, d, 0, l); }, VW_RESULT_SEND_FAIL},
        {"SetCommon", [&] { return SetCommon(nullptr, b, 16, s, kCmd, 0, p); }, kFail},
        {"SetCommon", [&] { return SetCommon(h, nullptr, 16, s, kCmd, 0, p); }, kFail},
        {"SetCommon", [&] { return SetCommon(h, b, 16, nullptr, kCmd, 0, p); }, kFail},
        {"SetCommon", [&] { return SetCommon(h, b, 16, s, kCmd, 0, nullptr); }, kFail},
        {"SetCommon", [&] { return SetCommon(h, b, 16, s, kCmd, 0, l); }, VW_RESULT_SEND_FAIL},
    };
    for (const auto &row : aRows) {
        SCOPED_TRACE("row " + std::to_string(&row - aRows));
        EXPECT_EQ(row.llExpected, row.fnCall());
        const std::vector<DebugLogEntry> entries = logs.DebugEntries();
        logs.Clear();
        ASSERT_EQ(1u, entries.size());
        EXPECT_EQ(VW_LOG_ERROR, entries[0].level);
        EXPECT_EQ(0u, entries[0].message.find(std::string("[TALAPI]:") + row.pcService));
    }
    EXPECT_EQ(&iSentinel, pvDest);
    EXPECT_EQ(0u, daemon.ConnectionCount());
    EXPECT_EQ(0, Send());  // the record is still fit for use
}

// GetCommon rows read (kGet); the others write a record of uiLen bytes with SetCommon.
TEST_F(Backend, GetAndSetCommonCarryTheRecordAndPassTheResultOn) {
    constexpr unsigned int kGet = ~0u;
    const struct {
        unsigned int uiLen;
        FakeReply stReply;
        int iExpected;
    } aRows[] = {
        {VW_CMD_BODY_SIZE + 1, {}, VW_RESULT_PARAM_ERR},  // nothing sent
        {kGet, {0, 0, Pattern(16, 2)}, VW_RESULT_OK},
        {kGet, {0, 0, Pattern(VW_CMD_BODY_SIZE, 3)}, VW_RESULT_OK},
        {kGet, {9, 0, Pattern(16, 4)}, 9},
        {kGet, {-3, 0, {}}, -3},
        {kGet, {0, 0, {}, B::kCloseWithoutReply}, VW_RESULT_SEND_FAIL},
        {24, {5, 0, {}}, 5},
        {0, {}, VW_RESULT_OK},
        {VW_CMD_BODY_SIZE, {}, VW_RESULT_OK},
        {16, {0, 0, {}, B::kCloseWithoutReply}, VW_RESULT_SEND_FAIL},
    };
    constexpr VW_CMD_TYPE kVd = VW_CMD_VIDEO_VEHICLE_DETECTOR;
    for (const auto &row : aRows) {
        SCOPED_TRACE("row " + std::to_string(&row - aRows));
        daemon.SetHandler([&](const FakeRequest &) { return row.stReply; });
        const bool bGet = row.uiLen == kGet;
        Bytes sent = Pattern(bGet ? sizeof(vwCmdBody) : row.uiLen + 1, row.uiLen);  // never empty
        pvDest = &iSentinel;

        EXPECT_EQ(row.iExpected,
                  bGet ? GetCommon(&stHeader, &sock, kVd, AsBody(sent), &pvDest, 42, kPeer)
                       : SetCommon(&stHeader, sent.data(), row.uiLen, &sock, kVd, 42, kPeer));

        if (row.iExpected == VW_RESULT_PARAM_ERR) {
            EXPECT_EQ(0u, daemon.RequestCount());  // the first row
            continue;
        }
        const FakeRequest stReq = daemon.Requests().back();
        sent.resize(bGet ? sent.size() : row.uiLen);
        EXPECT_EQ(std::make_tuple(20100u, 42ull, sent),
                  std::make_tuple(stReq.uiCmd, stReq.ullValue, stReq.body));
        if (!bGet || row.iExpected != VW_RESULT_OK) {
            EXPECT_EQ(&iSentinel, pvDest);
            continue;
        }
        ASSERT_NE(&iSentinel, pvDest);
        const Bytes &payload = row.stReply.payload;
        EXPECT_EQ(BytesOf(payload.data(), payload.size(), VW_CMD_BODY_SIZE),
                  BytesOf(pvDest, VW_CMD_BODY_SIZE));
        free(pvDest);
    }
}

// Every thread tags its requests; the daemon answers with the tag as Result and echoes it as the
// payload. Each thread writes and reads in turn over its own record.
TEST_F(Backend, ConcurrentThreadsEachGetTheirOwnReplies) {
    constexpr int kThreads = 8, kRounds = 150;
    daemon.SetHandler([](const FakeRequest &stReq) {
        int iTag = 0;
        std::memcpy(&iTag, stReq.body.data(), sizeof(iTag));
        return FakeReply{iTag, 0, BytesOf(&iTag, sizeof(iTag))};
    });
    std::atomic<int> iMismatches{0};
    std::vector<std::thread> vecThreads;
    for (int t = 0; t < kThreads; ++t) {
        vecThreads.emplace_back([&, t] {
            tagUNIX_SOCKET_S stSock;
            UnixSocketInit(&stSock);
            Bytes own = Pattern(sizeof(vwCmdBody), t);
            std::unique_ptr<MSG_DATA> pstOwn(new MSG_DATA);
            for (int i = 0; i < kRounds; ++i) {
                const int iTag = (t + 1) << 20 | i;
                std::memcpy(own.data(), &iTag, sizeof(iTag));
                iMismatches +=
                    SetCommon(&stHeader, own.data(), 16, &stSock, kCmd, 0, kPeer) != iTag;
                iMismatches += RestSendSynUnixMsg(kPeer, VW_MSG_SYN_REQUEST, kCmd, AsBody(own),
                                                  &stSock, pstOwn.get(), 0) != 0 ||
                               pstOwn->Result != iTag ||
                               std::memcmp(pstOwn->aucPayload, &iTag, sizeof(iTag)) != 0;
            }
            UnixSocketClose(&stSock);
        });
    }
    for (std::thread &th : vecThreads) {
        th.join();
    }
    EXPECT_EQ(0, iMismatches.load());
    EXPECT_EQ(2u * kThreads * kRounds, daemon.RequestCount());
    EXPECT_EQ(8u, daemon.ConnectionCount());  // each record kept its one connection
}
