// SPDX-License-Identifier: Apache-2.0
// Eight threads, like the workers of an access server, run thousands of mixed requests through the
// exported stages against one fake daemon, each worker on its own channel and its own kept backend
// connection: every response must be the one its request expects. Verifications overlap, and each
// upload must get the verdict on its own picture, which the daemon reads at the fixed path.
#include <filesystem>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "host_requests.h"
#include "module_lines.h"

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 40;  // a round makes each of the 9 kinds of request once

std::string Envelope(const char *pcUrl) {
    return Printf(
        "{\n  \"ResponseStatus\": {\n    \"RequestURL\": \"%s\",\n    \"StatusCode\": 0,\n    "
        "\"StatusString\": \"OK\"\n  }\n}",
        pcUrl);
}

struct Worker {
    unsigned long long ullChannel = 0;
    tagUNIX_SOCKET_S stSocket{};
    int iMode = 3, iEnable = 1, iX = 10;  // the backend's defaults until this worker writes
    std::string frameOsd[2];              // TrafficDome, Vlpr: as first read
    int iWrong = 0;
    std::string firstWrong;

    std::string Do(const Resource &r, const std::string &query, const std::string &body = "") {
        HostRequest q(r, query, body);
        q.stClient.pstUnixSocket = &stSocket;
        return q.Perform();
    }
    std::string FrameOsdQuery(int iBusiness) const {
        return "ChannelId=" + std::to_string(ullChannel) +
               "&OverlayPicType=" + std::to_string(iBusiness) +
               (iBusiness == 0 ? "&BusinessType=TrafficDome" : "&BusinessType=Vlpr");
    }
    void Expect(const std::string &got, const std::string &expected) {
        if (got != expected && iWrong++ == 0) {
            firstWrong = "got " + got + "\nexpected " + expected;
        }
    }
};

struct Shared {
    std::string dir, capability, osdCapability;
};

// One round of a worker: every kind of request, in an order that differs between workers.
void Round(Worker &w, int iThread, int iRound, const Shared &shared) {
    const std::string channel = "ChannelId=" + std::to_string(w.ullChannel);
    for (int k = 0; k < 9; ++k) {
        switch ((k + iThread) % 9) {
            case 0:
                w.iMode = iThread * 1000 + iRound;
                w.Expect(w.Do(kPutLanguage, channel, Printf("{\"mode\": %d}", w.iMode)),
                         Envelope(kLanguageUrl));
                break;
            case 1:
                w.Expect(
                    w.Do(kGetLanguage, channel),
                    Printf("{\n  \"channelId\": %llu,\n  \"mode\": %d\n}", w.ullChannel, w.iMode));
                break;
            case 2:
                w.iEnable = iRound % 2;
                w.iX = iThread * 100 + iRound;
                w.Expect(
                    w.Do(kPutDetector, channel,
                         Printf("{\"enable\": %d, \"rectInfo\": {\"x\": %d}}", w.iEnable, w.iX)),
                    Envelope(kDetectorUrl));
                break;
            case 3:
                w.Expect(w.Do(kGetDetector, channel),
                         Printf("{\n  \"channelId\": %llu,\n  \"enable\": %d,\n  \"rectInfo\": {\n "
                                "   \"x\": %d,\n    \"y\": 20,\n    \"width\": 30,\n    "
                                "\"height\": 40\n  }\n}",
                                w.ullChannel, w.iEnable, w.iX));
                break;
            case 4:
            case 5: {
                int iBusiness = (k + iThread) % 9 - 4;
                w.Expect(w.Do(kGetFrameOsd, w.FrameOsdQuery(iBusiness)), w.frameOsd[iBusiness]);
                break;
            }
            case 6:
                w.Expect(w.Do(kGetCapability, ""), shared.capability);
                break;
            case 7:
                w.Expect(w.Do(kGetOsdCapability, "ChannelId=101"), shared.osdCapability);
                break;
            default: {
                unsigned int uiId = static_cast<unsigned int>(iThread * 100000 + iRound + 1);
                HostRequest q(kPostVerify, "");
                q.stClient.pstUnixSocket = &w.stSocket;
                q.Upload(shared.dir + "/upload-" + std::to_string(iThread) + "-" +
                             std::to_string(iRound) + ".jpg",
                         uiId, w.ullChannel);
                w.Expect(q.Perform(), Printf("{\n  \"channelId\": %llu,\n  \"verifyResult\": %u\n}",
                                             w.ullChannel, uiId));
                break;
            }
        }
    }
}

TEST(ConcurrencyTest, MixedRequestsOfEightWorkersEachGetTheirOwnResponses) {
    char szDir[] = "/tmp/talapi-concurrency-XXXXXX";
    ASSERT_NE(mkdtemp(szDir), nullptr);
    Shared shared{szDir, "", ""};
    FakeDaemon daemon;
    daemon.SetHandler(ValidBackend());
    VW_SetLanguageLogFile("/dev/null");  // thousands of operation-log events
    std::vector<Worker> workers(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        Worker &w = workers[t];
        w.ullChannel = 10 + t;
        UnixSocketInit(&w.stSocket);
        w.stSocket.uiTimeoutMs = 60000;  // valgrind may leave the daemon's thread waiting long
        for (int iBusiness : {0, 1}) {
            w.frameOsd[iBusiness] = w.Do(kGetFrameOsd, w.FrameOsdQuery(iBusiness));
            EXPECT_NE(w.frameOsd[iBusiness].find(iBusiness == 0 ? "TrafficDome road" : "Vlpr road"),
                      std::string::npos);
            EXPECT_NE(w.frameOsd[iBusiness].find("\"channelId\": " + std::to_string(10 + t)),
                      std::string::npos);
        }
    }
    shared.capability = workers[0].Do(kGetCapability, "");
    shared.osdCapability = workers[0].Do(kGetOsdCapability, "ChannelId=101");
    ASSERT_NE(shared.capability.find("\"audio\": true"), std::string::npos);
    ASSERT_NE(shared.osdCapability.find("\"TrafficDome\": {"), std::string::npos);

    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int r = 0; r < kRounds; ++r) {
                Round(workers[t], t, r, shared);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (Worker &w : workers) {
        EXPECT_EQ(w.iWrong, 0) << "channel " << w.ullChannel << ": " << w.firstWrong;
        UnixSocketClose(&w.stSocket);
    }
    EXPECT_EQ(daemon.ConnectionCount(), static_cast<std::size_t>(kThreads)) << "kept connections";
    VW_SetLanguageLogFile(nullptr);
    std::filesystem::remove_all(shared.dir);
}

}  // namespace
