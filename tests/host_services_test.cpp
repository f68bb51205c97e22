// SPDX-License-Identifier: Apache-2.0
// The host services: backend messaging with a fake daemon, query parameters, status, JSON, logs.
#include <fcntl.h>
#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <regex>

#include <gtest/gtest.h>

#include "fake_daemon.h"
#include "log_capture.h"
#include "stage_request.h"
#include "talapi_common.h"
#include "talapi_json.h"
#include "talapi_log.h"
#include "talapi_unix_socket.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;
using B = FakeBehaviour;
constexpr const char *kPeer = "/tmp/A";
constexpr VW_CMD_TYPE kCmd = VW_CMD_SYS_BACK_LANGUAGE, kVd = VW_CMD_VIDEO_VEHICLE_DETECTOR;
const char *const R = "RestSendSynUnixMsg", *const G = "GetCommon", *const S = "SetCommon";

// Bytes that differ from their neighbours and with the seed, so a cut or shifted copy shows.
Bytes Pattern(std::size_t uLen, std::size_t uSeed) {
    Bytes vec(uLen);
    std::iota(vec.begin(), vec.end(), static_cast<unsigned char>(uSeed * 7 + 1));
    return vec;
}

// uLen bytes at pv, zero-padded to a whole command body.
Bytes Body(const void *pv, std::size_t uLen) {
    Bytes vec(VW_CMD_BODY_SIZE, 0);
    std::copy_n(static_cast<const unsigned char *>(pv), uLen, vec.begin());
    return vec;
}

// A daemon, a socket record that drops its connection at the end, and what calls need.
class Backend : public ::testing::Test {
  protected:
    Backend() { UnixSocketInit(&sock); }
    ~Backend() override { UnixSocketClose(&sock); }
    // Calls a service with the fixture's records but its pointer argument iNull (from 0) null.
    long long Call(const char *pcSvc, VW_CMD_TYPE enCmd = kCmd, unsigned long long ullValue = 0,
                   unsigned int uiLen = 16, int iNull = -1, const char *pcPeer = kPeer) {
        const auto n = [iNull](auto *pv, int i) { return i == iNull ? nullptr : pv; };
        vwCmdBody *pstBody = reinterpret_cast<vwCmdBody *>(body.data());
        return pcSvc == R   ? RestSendSynUnixMsg(n(pcPeer, 0), VW_MSG_SYN_REQUEST, enCmd,
                                                 n(pstBody, 1), n(&sock, 2), n(&stReply, 3), ullValue)
               : pcSvc == G ? +GetCommon(n(&stHeader, 0), n(&sock, 1), enCmd, n(pstBody, 2),
                                         n(&pvDest, 3), ullValue, n(pcPeer, 4))
                            : +SetCommon(n(&stHeader, 0), n(body.data(), 1), uiLen, n(&sock, 2),
                                         enCmd, ullValue, n(pcPeer, 3));
    }
    // Exactly one error line since the last look, and it starts with strStart.
    void ExpectOneError(const std::string &strStart) {
        const std::vector<DebugLogEntry> entries = logs.DebugEntries();
        logs.Clear();
        ASSERT_EQ(1u, entries.size());
        EXPECT_EQ(VW_LOG_ERROR, entries[0].level);
        EXPECT_EQ(0u, entries[0].message.find(strStart)) << entries[0].message;
    }
    FakeDaemon daemon;
    tagUNIX_SOCKET_S sock;
    tagHTTP_HEADER_S stHeader{};
    Bytes body = Pattern(sizeof(vwCmdBody), 1);
    MSG_DATA stReply{};  // what RestSendSynUnixMsg fills
    int iSentinel = 0;
    void *pvDest = &iSentinel;  // the destination of GetCommon, left alone unless it succeeds
    LogCapture logs;
};

// Over one record: an exchange carries its fields; a failure is logged and drops the connection;
// a dead connection is replaced, a missing daemon reported, a newer one reached.
TEST_F(Backend, ExchangesCarryTheirFieldsOrReportTheirFailureAndReconnectOverOneRecord) {
    const std::tuple<const char *, unsigned int, unsigned long long, unsigned int, FakeReply,
                     long long>
        aRows[] = {
            {R, kCmd, 0, 0, {0, 0, {}, B::kCloseWithoutReply}, TALAPI_SYN_ERR_CLOSED},
            {R, kCmd, 0, 0, {0, 0, Pattern(30, 1), B::kShortReply, 10}, TALAPI_SYN_ERR_SHORT},
            {R, kCmd, 0, 0, {0, 0, Pattern(30, 1), B::kShortReply, 200}, TALAPI_SYN_ERR_SHORT},
            {R, kCmd, 0, 0, {0, 0, {}, B::kBadMagic}, TALAPI_SYN_ERR_MALFORMED},
            {R, VW_CMD_ITGT_CAPABILITY, ~0ull, 0, {7, 3, Pattern(38, 3)}, TALAPI_SYN_OK},
            {R, kCmd, 0, 0, {0, 0, {}, B::kWrongCommand}, TALAPI_SYN_ERR_MALFORMED},
            {R, kCmd, 0, 0, {0, 0, {}, B::kOversizeLength}, TALAPI_SYN_ERR_MALFORMED},
            {R, kCmd, 0, 0, {0, 0, {}, B::kSilent}, TALAPI_SYN_ERR_TIMEOUT},
            {R, VW_CMD_VLPR_PIC_OSD, 1ull << 32, 0, {-1, 4, Pattern(VW_CMD_BODY_SIZE, 4)}, 0},
            {G, kVd, 42, 0, {0, 0, Pattern(VW_CMD_BODY_SIZE, 3)}, VW_RESULT_OK},
            {G, kVd, 42, 0, {9, 0, Pattern(16, 4)}, 9},
            {G, kVd, 42, 0, {-3, 0, {}}, -3},
            {G, kVd, 42, 0, {0, 0, {}, B::kCloseWithoutReply}, VW_RESULT_SEND_FAIL},
            {S, kVd, 42, 16, {0, 0, {}, B::kCloseWithoutReply}, VW_RESULT_SEND_FAIL},
            {S, kVd, 42, 0, {}, VW_RESULT_OK},
            {S, kVd, 42, VW_CMD_BODY_SIZE, {5, 0, {}}, 5},
        };
    std::size_t uFailures = 0;
    for (const auto &row : aRows) {
        const auto &[pcSvc, uiCmd, ullValue, uiLen, stAnswer, llExpected] = row;
        SCOPED_TRACE("row " + std::to_string(&row - aRows));
        daemon.SetHandler([stCopy = stAnswer](const FakeRequest &) { return stCopy; });
        sock.uiTimeoutMs = stAnswer.enBehaviour == B::kSilent ? 200 : 3000;
        body = Pattern(sizeof(vwCmdBody), static_cast<std::size_t>(&row - aRows));
        std::memset(&stReply, 0xAA, sizeof(stReply));
        const auto tStart = std::chrono::steady_clock::now();
        EXPECT_EQ(llExpected, Call(pcSvc, static_cast<VW_CMD_TYPE>(uiCmd), ullValue, uiLen));
        EXPECT_LT(std::chrono::steady_clock::now() - tStart,
                  std::chrono::milliseconds(sock.uiTimeoutMs + 2000));
        const FakeRequest stReq = daemon.Requests().back();
        body.resize(pcSvc == S ? uiLen : body.size());
        EXPECT_EQ(std::make_tuple(0u, uiCmd, ullValue, body),
                  std::make_tuple(stReq.uiMsgType, stReq.uiCmd, stReq.ullValue, stReq.body));
        const Bytes payload = Body(stAnswer.payload.data(), stAnswer.payload.size());
        if (pcSvc == G && llExpected == VW_RESULT_OK) {
            ASSERT_NE(&iSentinel, pvDest);
            EXPECT_EQ(payload, Body(pvDest, VW_CMD_BODY_SIZE));
            free(std::exchange(pvDest, &iSentinel));
        }
        EXPECT_EQ(&iSentinel, pvDest);
        if (stAnswer.enBehaviour != B::kNormal) {  // the Get and Set failure rows close at once
            ++uFailures;
            EXPECT_EQ(-1, sock.iFd);
            ExpectOneError(std::string("[TALAPI]:") + pcSvc + ": cmd[" + std::to_string(uiCmd) +
                           "] with peer[" + daemon.SocketPath() + "] failed, status[" +
                           std::to_string(pcSvc == R ? llExpected : TALAPI_SYN_ERR_CLOSED) + "]");
        } else if (pcSvc == R) {  // the payload zero-padded
            EXPECT_EQ(payload, Body(stReply.aucPayload, VW_CMD_BODY_SIZE));
        }
    }
    EXPECT_EQ(1 + uFailures, daemon.ConnectionCount());
    daemon.Stop();
    daemon.Start();
    EXPECT_EQ(0, Call(R));  // no failure
    daemon.Stop();
    EXPECT_EQ(TALAPI_SYN_ERR_CONNECT, Call(R));  // a socket file nobody listens on
    daemon.Start();
    EXPECT_EQ(0, Call(R));
    {
        FakeDaemon second;  // the first stays up
        EXPECT_EQ(0, Call(R));
        EXPECT_EQ(1u, second.RequestCount());
    }
    char szOut[TALAPI_PEER_PATH_LEN];  // without a daemon the path is used as it is
    ASSERT_EQ(0, UnixSocketResolvePeerPath(kPeer, szOut, sizeof(szOut)));
    EXPECT_STREQ(kPeer, szOut);
    const int iFd = sock.iFd;
    UnixSocketClose(&sock);
    EXPECT_EQ(-1, fcntl(iFd, F_GETFD));  // really closed; the fixture closes again, harmlessly
}

// Each unusable argument alone: one error line naming the service, nothing reaches the daemon.
TEST_F(Backend, ServicesRejectUnusableArgumentsWithoutReachingTheDaemon) {
    // Under the daemon's root f just fits the socket path limit (nobody listens); l does not.
    const std::size_t uRootLen = daemon.SocketPath().size() - std::strlen(kPeer);
    const std::string f = "/" + std::string(TALAPI_PEER_PATH_LEN - 2 - uRootLen, 'x'), l = f + "x";
    // Service, pointer argument passed null (-1 none), peer, record length, result.
    std::vector<std::tuple<const char *, int, std::string, unsigned int, long long>> rows = {
        {R, -1, "", 16, TALAPI_SYN_ERR_PARAM},
        {R, -1, l, 16, TALAPI_SYN_ERR_PARAM},
        {R, -1, f, 16, TALAPI_SYN_ERR_CONNECT},
        {S, -1, kPeer, VW_CMD_BODY_SIZE + 1, VW_RESULT_PARAM_ERR},
    };
    for (int i = 0; i < 5; ++i) {  // each pointer argument null in turn; GetCommon has five
        rows.emplace_back(G, i, kPeer, 16, VW_RESULT_FAIL);
        if (i < 4) {
            rows.emplace_back(R, i, kPeer, 16, TALAPI_SYN_ERR_PARAM);
            rows.emplace_back(S, i, kPeer, 16, VW_RESULT_FAIL);
        }
    }
    for (const auto &[pcSvc, iNull, strPeer, uiLen, llExpected] : rows) {
        SCOPED_TRACE(std::string(pcSvc) + " null " + std::to_string(iNull) + " peer " + strPeer);
        EXPECT_EQ(llExpected, Call(pcSvc, kCmd, 0, uiLen, iNull, strPeer.c_str()));
        ExpectOneError(std::string("[TALAPI]:") + pcSvc + ": ");
    }
    EXPECT_EQ(0u, daemon.ConnectionCount());
}

// "Id" read as both numbers, "Type" as text; a refused read (kNone, null) leaves the destination.
TEST(QueryParams, NumbersAndTextsAreReadOrRefused) {
    constexpr unsigned long long kNone = 0xA5A5A5A5A5A5A5A5ULL;
    std::vector<std::tuple<const char *, unsigned long long, unsigned long long, int, const char *>>
        rows = {
            {"Id=4294967295", 4294967295ULL, 4294967295ULL, 40, nullptr},
            {"Id=4294967296", 4294967296ULL, kNone, 40, nullptr},
            {"Id=18446744073709551615", 18446744073709551615ULL, kNone, 40, nullptr},
            {"a=b&c&%49d=0%32%33&Type=Vlpr", 23, 23, 40, "Vlpr"},
            {"Id=1&Id=2&Type=Traffic+Dome%2fx%2F", 1, 1, 40, "Traffic Dome/x/"},
            {"I%G1=5&Id=2&%54ype=%E4%B8%AD", 2, 2, 40, "\xe4\xb8\xad"},  // I%G1 does not decode
            {"Type=&Type=Vlpr", kNone, kNone, 40, ""},
            {"Type", kNone, kNone, 40, ""},
            {"Type=", kNone, kNone, 1, ""},
            {"Type=a", kNone, kNone, -1, nullptr},
        };
    for (const char *pcQuery :
         {"Id=x&Id=2", "Id=%G1&Id=2", "IdX=1&XId=1&I=1", "Id", "Id=+1", "Id=1+", "Id=%201",
          "Id=0x1", "Id=1%4", "Id=1%00", "Type=a%", "Type=%00", "Type=%G1", "Type=%1G"}) {
        rows.emplace_back(pcQuery, kNone, kNone, 40, nullptr);
    }
    auto result = [](bool bRead) { return bRead ? VW_RESULT_OK : VW_RESULT_PARAM_ERR; };
    for (const auto &[pcQuery, ullWant, uiWant, iCap, pcText] : rows) {
        SCOPED_TRACE(pcQuery);
        tagHTTP_HEADER_S stHeader{};
        strncpy(stHeader.queryString, pcQuery, sizeof(stHeader.queryString) - 1);
        unsigned long long ull = kNone;
        auto ui = static_cast<unsigned int>(kNone);
        std::string text(40, 'Z'), want = pcText ? pcText + std::string(1, '\0') : "";
        want.resize(40, 'Z');
        auto read = [&, iCap = iCap](tagHTTP_HEADER_S *pstHeader, bool bDest) {
            return std::make_tuple(
                GetURIQueryParamByKey<unsigned long long>(pstHeader, "Id", bDest ? &ull : nullptr),
                GetURIQueryParamByKey<unsigned int>(pstHeader, "Id", bDest ? &ui : nullptr),
                GetURIQueryParamByKey<char>(pstHeader, "Type", bDest ? &text[0] : nullptr, iCap));
        };
        const auto fail = std::make_tuple(VW_RESULT_FAIL, VW_RESULT_FAIL, VW_RESULT_FAIL);
        EXPECT_EQ(std::make_tuple(fail, fail),
                  std::make_tuple(read(nullptr, true), read(&stHeader, false)));
        EXPECT_EQ(
            std::make_tuple(result(ullWant != kNone), result(uiWant != kNone), result(pcText)),
            read(&stHeader, true));
        EXPECT_EQ(std::make_tuple(ullWant, static_cast<unsigned int>(uiWant), want),
                  std::make_tuple(ull, ui, text));
    }
}

// Each result's HTTP status, code and word; the envelope fails only when it cannot be copied.
TEST(StatusEnvelope, MapsEachResultToAnHttpStatusAndFailsOnlyWhenItCannotBeCopied) {
    StageRequest request("PUT", "/x", "");
    CapturingBuffer &out = request.response;
    // Result, HTTP status, word, and what Copy2Buf answers.
    const std::tuple<long long, unsigned long long, std::string, int> aRows[] = {
        {0, 200, "OK", 0},
        {-1, 500, "Failed", -2},
        {1, 502, "BackendUnreachable", 12345},
        {4, 400, "InvalidParameter", -1},
        {6, 404, "NotSupported", 0},
        {18, 500, "OutOfMemory", 0},
        {4502, 500, "DeviceError", 0}};
    for (const auto &[llResult, ullHttp, strWord, iCopy] : aRows) {
        const auto enResult = static_cast<VW_RESULT_TYPE>(llResult);
        const TALAPI_RESPONSE stResponse = FillResponseStatusParam(&request.stHeader, enResult);
        EXPECT_EQ(std::make_tuple(ullHttp, llResult, strWord),
                  std::make_tuple(stResponse.ullHttpStatus, stResponse.ResponseStatus.StatusCode,
                                  std::string(stResponse.ResponseStatus.StatusString)));
        out.iAnswer = iCopy;
        EXPECT_EQ(iCopy == -1 ? -1 : 0,
                  FormatCommonStatus(&request.stHeader, enResult, nullptr, &out.stBuf));
    }
    memset(request.stHeader.url, 'u', sizeof(request.stHeader.url));  // copied whole, unterminated
    EXPECT_EQ(FillResponseStatusParam(&request.stHeader, VW_RESULT_OK).ResponseStatus.RequestURL,
              std::string(sizeof(request.stHeader.url) - 1, 'u'));
    EXPECT_STREQ(FillResponseStatusParam(nullptr, VW_RESULT_OK).ResponseStatus.RequestURL, "");
    out.stBuf.Copy2Buf = nullptr;
    EXPECT_EQ(FormatCommonStatus(&request.stHeader, VW_RESULT_OK, nullptr, &out.stBuf), -1);
    EXPECT_EQ(out.iCalls, 7);  // one per row, none for the refusal
}

// Lookups and adds refuse what does not fit (releasing the item); only strict text parses.
TEST(JsonValues, LookupsAndAddsRefuseWhatDoesNotFitAndOnlyStrictTextParses) {
    json_object *pstRoot = cJSON_CreateObject(), *pstList = cJSON_CreateArray();
    cJSON_AddItemToObject(pstRoot, "k", pstList);
    cJSON_AddItemToArray(pstList, cJSON_CreateString(nullptr));  // no string: a JSON null
    // Container, key (null: the array calls) and index that find nothing, its size as an array,
    // and whether it keeps an item added there (a reference kept here then outlives our release).
    const std::tuple<json_object *, const char *, int, int, bool> aRows[] = {
        {nullptr, "k", 0, 0, false},   {nullptr, nullptr, 0, 0, false},
        {pstRoot, "none", 0, 0, true}, {pstRoot, nullptr, -1, 0, false},
        {pstList, "k", -1, 1, false},  {pstList, nullptr, 0, 1, true}};
    for (const auto &[pstIn, pcKey, iIndex, iSize, bKept] : aRows) {
        EXPECT_EQ(std::make_tuple(nullptr, nullptr, iSize),
                  std::make_tuple(cJSON_GetObjectItem(pstIn, pcKey),
                                  cJSON_GetArrayItem(pstIn, iIndex), cJSON_GetArraySize(pstIn)));
        json_object *pstItem = json_object_get(cJSON_CreateNumber(1));
        pcKey ? cJSON_AddItemToObject(pstIn, pcKey, pstItem) : cJSON_AddItemToArray(pstIn, pstItem);
        EXPECT_EQ(json_object_put(pstItem) == 1, !bKept) << pcKey;  // 1: freed
    }
    cJSON_Delete(pstRoot);
    // Exactly one strict value parses, at most 32 levels deep counting scalars; null does not.
    auto parses = [](const std::string &text) {
        json_object *pstRoot = cJSON_Parse(text.c_str());
        cJSON_Delete(pstRoot);
        return pstRoot != nullptr;
    };
    for (const char *pcText :
         {" {\"a\": [1, -2.5e3, true, null]}\n", "\t[]\r\n", "0", "\"\xe4\xb8\xad\\u00e9\""}) {
        EXPECT_TRUE(parses(pcText)) << pcText;
    }
    for (const char *pcText :
         {"{} x",        "{}{}",     "1 2",          "{\"a\": 1",        "",       "  ",  "NaN",
          "[-Infinity]", "1e400",    "'a'",          "{'a': 1}",         "1.",     "01",  "[1,]",
          "\"a\tb\"",    "\"\xff\"", "\"\xc0\xaf\"", "\"\xed\xa0\x80\"", "/*c*/1", "null"}) {
        EXPECT_FALSE(parses(pcText)) << pcText;
    }
    const std::string a32(32, '['), z32(32, ']');
    EXPECT_EQ(std::make_tuple(true, true, false, false),
              std::make_tuple(parses(a32 + z32), parses(a32.substr(1) + "1" + z32.substr(1)),
                              parses("[" + a32 + z32 + "]"), parses(a32 + "1" + z32)));
    EXPECT_EQ(cJSON_Parse(nullptr), nullptr);
}

// Points both logs at fresh files for one test and back at stderr afterwards.
class LogFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        char acDir[] = "/tmp/talapi_logging_XXXXXX";
        ASSERT_NE(mkdtemp(acDir), nullptr);
        m_dir = acDir;
        ASSERT_EQ(VW_SetDebugLogFile((m_dir / "debug.log").c_str()), 0);
        ASSERT_EQ(VW_SetLanguageLogFile((m_dir / "language.log").c_str()), 0);
    }
    void TearDown() override {
        VW_SetDebugLogFile(nullptr);
        VW_SetLanguageLogFile(nullptr);
        fs::remove_all(m_dir);
    }
    // The file's lines without their time stamps; a missing stamp or newline is marked.
    Texts Lines(const char *pcName) const {
        const std::regex stamp(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )");
        Texts lines;
        std::ifstream in(m_dir / pcName);
        for (std::string line; std::getline(in, line);) {
            const bool bStamped = std::regex_match(line.substr(0, 24), stamp);
            lines.push_back((bStamped ? line.substr(24) : "unstamped " + line) +
                            (in.eof() ? " <no newline>" : ""));
        }
        return lines;
    }
    fs::path m_dir;
};

// Files swap without a leak (the old one stays if the new does not open); sinks take every call,
// unfiltered. Lines: stamped, filtered by flag, source, errno, both texts, cut whole, never mixed.
TEST_F(LogFiles, LinesAreFilteredCutWholeAndNeverInterleaveAndFilesSwapCleanly) {
    auto openFiles = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = openFiles();
    ASSERT_EQ(VW_SetDebugLogFile((m_dir / "debug.log").c_str()), 0);
    ASSERT_EQ(VW_SetLanguageLogFile((m_dir / "language.log").c_str()), 0);
    EXPECT_EQ(openFiles(), before);
    EXPECT_EQ(VW_SetDebugLogFile((m_dir / "missing" / "x.log").c_str()), -1);
    {
        LogCapture capture;
        VW_WriteLog(4, VW_LOG_TRACE, VW_DEBUG_OFF, EIO, "/p/m.cpp", 9, "%s", "x");
        VW_WriteLanguageLog(1, 4, "en", "中");
        EXPECT_EQ(capture.DebugEntries(),
                  (std::vector<DebugLogEntry>{{4, 0, 4, EIO, "/p/m.cpp", 9, "x"}}));
    }
    EXPECT_EQ(VW_WriteLanguageLog(2, 4, "%s set %d", "%s 设置 %d", "admin", 1), 0);
    g_enDebugFlag = VW_DEBUG_ALL;
    for (int flag : {VW_DEBUG_ALL, VW_DEBUG_WARNINGS, VW_DEBUG_FAILURES, VW_DEBUG_OFF}) {
        for (int level = VW_LOG_TRACE; level <= VW_LOG_ERROR; ++level) {
            EXPECT_EQ(VW_WriteLog(4, level, flag, 0, "/src/a/f.cpp", 1, "flag %d", flag), 0);
        }
    }
    g_enDebugFlag = VW_DEBUG_FAILURES;
    VW_WriteLog(4, 3, 3, ENOENT, "/a/b.cpp", 121, "e");
    const std::string message = std::regex_replace(std::string(2000, 'x'), std::regex("x"), "中");
    const std::string heads[] = {"", "a", "ab"};
    for (const std::string &head : heads) {
        VW_WriteLog(4, 3, 3, 0, "f.cpp", 1, "%s%s", head.c_str(), message.c_str());
    }
    const std::string filler(1500, 'x');
    const auto write = [&] {
        for (int i = 0; i < 300; ++i) {
            VW_WriteLog(4, 3, 3, 0, "f.cpp", 1, "%s", filler.c_str());
        }
    };
    std::thread threads[8];
    std::generate(std::begin(threads), std::end(threads), [&] { return std::thread(write); });
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(Lines("language.log"), Texts{"N2 M4 admin set 1 | admin 设置 1"});
    Texts lines = Lines("debug.log");
    ASSERT_EQ(lines.size(), 2411U);
    EXPECT_TRUE(Texts(lines.begin() + 11, lines.end()) == Texts(2400, "L3 M4 f.cpp:1 " + filler));
    for (size_t i = 0; i < 3; ++i) {
        const std::string prefix = "L3 M4 f.cpp:1 " + heads[i], &line = lines[8 + i];
        const size_t kept = (line.size() - prefix.size() - 3) / 3 * 3;
        EXPECT_GT(kept, 1500U);
        EXPECT_EQ(line, prefix + message.substr(0, kept) + "...");
    }
    lines.resize(8);
    EXPECT_EQ(lines, (Texts{"L0 M4 f.cpp:1 flag 0", "L1 M4 f.cpp:1 flag 0", "L2 M4 f.cpp:1 flag 0",
                            "L3 M4 f.cpp:1 flag 0", "L2 M4 f.cpp:1 flag 2", "L3 M4 f.cpp:1 flag 2",
                            "L3 M4 f.cpp:1 flag 3",
                            "L3 M4 b.cpp:121 e: " + std::string(strerror(ENOENT))}));
}

}  // namespace
