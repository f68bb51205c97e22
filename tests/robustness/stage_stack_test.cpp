// SPDX-License-Identifier: Apache-2.0
// The stack each exported stage needs, measured: the stage runs alone on a thread whose stack was
// filled with a pattern, and the deepest byte that changed gives its high-water mark, host
// services, json-c and the C library included. A request thread must hold the command body and
// the reply (about 42 KB) and little more: every stage stays within 48 KiB.
#include <pthread.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host_requests.h"

namespace {

constexpr std::size_t kStageStackBudget = 48 * 1024;
constexpr std::size_t kThreadStack = 256 * 1024;
constexpr unsigned char kPaint = 0xA5;

struct Job {
    HostRequest *pq;
    Stage enStage;
    int iResult;
};

void *RunStage(void *pvJob) {
    auto *pstJob = static_cast<Job *>(pvJob);
    if (pstJob->pq != nullptr) {
        pstJob->iResult = pstJob->pq->Call(pstJob->enStage);
    }
    return nullptr;
}

// Bytes of a painted thread stack that the job changed (null request: the thread's own start).
std::size_t StackUsed(Job &job) {
    void *pvStack = nullptr;
    if (posix_memalign(&pvStack, 65536, kThreadStack) != 0) {
        return kThreadStack;
    }
    memset(pvStack, kPaint, kThreadStack);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstack(&attr, pvStack, kThreadStack);
    pthread_t thread;
    std::size_t uUsed = kThreadStack;
    if (pthread_create(&thread, &attr, RunStage, &job) == 0) {
        pthread_join(thread, nullptr);
        const auto *pucStack = static_cast<const unsigned char *>(pvStack);
        std::size_t uUntouched = 0;
        while (uUntouched < kThreadStack && pucStack[uUntouched] == kPaint) {
            ++uUntouched;
        }
        uUsed = kThreadStack - uUntouched;
    }
    pthread_attr_destroy(&attr);
    free(pvStack);
    return uUsed;
}

class StageStackTest : public ::testing::Test {
  protected:
    void SetUp() override { daemon.SetHandler(ValidBackend()); }
    DiscardedLogs logs{VW_DEBUG_ALL};
    FakeDaemon daemon;
};

TEST_F(StageStackTest, EveryStageNeedsAtMost48KiB) {
    Job idle{nullptr, kRun, 0};
    const std::size_t uThreadStart = StackUsed(idle);
    std::string table = "| stage | stack (bytes) |\n|---|---:|\n";
    for (const StageCase &row : kEveryStage) {
        HostRequest q(row.resource, row.query, row.body);
        ASSERT_EQ(q.PrepareFor(row.enStage), 0) << StageName(row.resource, row.enStage);
        Job job{&q, row.enStage, -1};
        std::size_t uUsed = StackUsed(job) - uThreadStart;
        EXPECT_EQ(job.iResult, 0) << StageName(row.resource, row.enStage);
        EXPECT_LE(uUsed, kStageStackBudget) << StageName(row.resource, row.enStage);
        table +=
            "| " + StageName(row.resource, row.enStage) + " | " + std::to_string(uUsed) + " |\n";
    }
    printf("%s", table.c_str());
}

}  // namespace
