// SPDX-License-Identifier: Apache-2.0
// The stages under stress, every harness driving the one request table of host_requests.h:
// allocation failures (each allocation of each stage fails in turn: a documented result, no crash,
// no leak) with the heap each stage allocates, the stack it needs, and concurrency. json-c 0.16's
// own defects are recognised by the json-c function whose allocation failed; anything else fails:
// - parser crash (json_tokener_parse_ex): a signal ends the child the injection runs in;
// - member drop (json_object_object_add_ex, or its table growing in lh_table_insert_w_hash): the
//   key copy leaks; the parser ignores the failed add and gives 0 without the member;
// - printer gap (printbuf_memappend): Format gives 0 with text that lacks a piece.
#include <dlfcn.h>
#include <json-c/json.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "alloc_fault.h"
#include "host_requests.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // their allocator and their larger frames
#else
constexpr bool kSanitized = false;
#endif

// The shared object and exported function of an instruction address ("" when it has none).
std::pair<std::string, std::string> CodeAt(void *pvAddress) {
    Dl_info info{};
    if (dladdr(pvAddress, &info) == 0 || info.dli_fname == nullptr) {
        return {"", ""};
    }
    std::string name = info.dli_fname;
    return {name.substr(name.rfind('/') + 1), info.dli_sname != nullptr ? info.dli_sname : ""};
}

// Who made an allocation: the first object on its stack past this program and the runtimes
// underneath it (C library, sanitizers), the first exported function of that object there, and
// whether it called the allocator itself rather than through a C library function.
struct Asker {
    std::string object, function;
    bool bDirect = true;
    std::string Name() const { return object.empty() ? "no allocation" : object + " " + function; }
};
Asker AskerOf(const NotedAllocation &stNoted) {
    static const std::string self = CodeAt(reinterpret_cast<void *>(&CodeAt)).first;
    Asker asker;
    for (int i = 0; i < stNoted.iFrames && asker.function.empty(); ++i) {
        auto [name, function] = CodeAt(stNoted.apvFrames[i]);
        if (asker.object.empty()) {
            bool bRuntime = name == self;
            for (const char *pcRuntime : {"libc.so", "libasan.so", "libtsan.so", "libubsan.so"}) {
                bRuntime = bRuntime || name.rfind(pcRuntime, 0) == 0;
            }
            asker.bDirect = asker.bDirect && (name == self || !bRuntime);
            asker.object = bRuntime ? "" : name;
        }
        if (!asker.object.empty() && name != asker.object) {
            break;
        }
        asker.function = asker.object.empty() ? "" : function;
    }
    return asker;
}

// One injected run, in memory shared with a child process that may make it.
struct Outcome {
    int iResult;
    bool bTriggered, bLeaked, bDone;
    unsigned int uiTextLength;  // of a Format stage's response
    char szWrong[64];  // what is wrong with the records or the response; empty when nothing
    NotedAllocation stFailed;
};
constexpr const char *kNotJson = "response not one JSON object";
constexpr const char *kMemberMissing = "Parse gave 0 without a member of the body";

bool IsJsonObject(const char *pcText) {
    json_object *pstRoot = json_tokener_parse(pcText);
    bool bObject = json_object_is_type(pstRoot, json_type_object);
    json_object_put(pstRoot);
    return bObject;
}

// What is wrong with the records or the response after the stage gave iResult; a Parse record
// must be the one decoded without failure.
const char *Inconsistency(const HostRequest &q, Stage enStage, int iResult, const Bytes &parsed) {
    const tagHTTP_CNTENT_INTER_S &ct = q.stCtInt;
    bool bOk = iResult == 0;
    switch (enStage) {
        case kPreProc:
            return bOk == (ct.pPreProcOut != nullptr) ? "" : "PreProc record";
        case kParse:
            if ((ct.pParseOut != nullptr) != bOk || (ct.pPreProcOut != nullptr) == bOk) {
                return "Parse moved the record wrongly";
            }
            return !bOk || memcmp(ct.pParseOut, parsed.data(), parsed.size()) == 0 ? ""
                                                                                   : kMemberMissing;
        case kRun:
            if (q.resource.preProc != nullptr) {
                return ct.pRunOut == nullptr && ct.pParseOut != nullptr ? "" : "PUT Run records";
            }
            return bOk == (ct.pRunOut != nullptr) ? "" : "Run record";
        default:
            if (!bOk) {
                return q.response.iCalls == 0 ? "" : "a failed Format stored a response";
            }
            return q.response.iCalls == 1 && IsJsonObject(q.response.text.c_str()) ? "" : kNotJson;
    }
}

// The stage with its nth allocation failing, then its records released: every block the stage
// allocated must be gone with them.
void Inject(const StageCase &row, HostRequest &q, int iNth, const Bytes &parsed, Outcome &out) {
    void **appvRecords[] = {&q.stCtInt.pPreProcOut, &q.stCtInt.pParseOut, &q.stCtInt.pRunOut};
    long long llBefore = AllocationBalance();
    for (void **ppv : appvRecords) {
        llBefore -= *ppv != nullptr ? 1 : 0;
    }
    {
        ScopedAllocationFailure failure(iNth, &out.stFailed);
        out.iResult = q.Call(row.enStage);
        out.bTriggered = failure.Triggered();
    }
    snprintf(out.szWrong, sizeof(out.szWrong), "%s",
             Inconsistency(q, row.enStage, out.iResult, parsed));
    for (void **ppv : appvRecords) {
        free(*ppv);
        *ppv = nullptr;
    }
    out.bLeaked = AllocationBalance() != llBefore;
    out.uiTextLength = static_cast<unsigned int>(q.response.text.size());
    out.bDone = true;
}

// Both logs go to /dev/null with every line formatted, as on the most verbose server.
using RobustnessTest = RequestTest;

class AllocationFailureTest : public RobustnessTest {
  protected:
    void SetUp() override {
        RobustnessTest::SetUp();
        void *pv = mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(pv, MAP_FAILED);
        pstOut = static_cast<Outcome *>(pv);
        HostRequest(kGetLanguage, kChannel1).Perform();  // the logs' one-time set-up
    }
    void TearDown() override {
        munmap(pstOut, sizeof(Outcome));
        RobustnessTest::TearDown();
    }

    // The injection in a child process (the daemon stopped, so that the child is a copy of a
    // single thread), for the stages that use json-c: its crash ends only the child, and what it
    // leaks stays there. False when the child did not report: then it crashed, which only the
    // known parser defect may do.
    bool InChild(const StageCase &row, HostRequest &q, int iNth, const Bytes &parsed) {
        daemon.Stop();
        fflush(stdout);
        pid_t pid = fork();
        if (pid == 0) {
            signal(SIGSEGV, SIG_DFL);  // a crash ends the child with its signal
            signal(SIGBUS, SIG_DFL);
            Inject(row, q, iNth, parsed, *pstOut);
            // Through the libraries' exit handlers (coverage counts the child) unless a sanitizer
            // would check the child's memory again at exit: its own count has done that.
            (kSanitized ? _exit : exit)(0);
        }
        int iStatus = 0;
        EXPECT_EQ(waitpid(pid, &iStatus, 0), pid);
        daemon.Start();
        if (WIFEXITED(iStatus) && pstOut->bDone) {
            return true;
        }
        EXPECT_TRUE(WIFSIGNALED(iStatus) &&
                    Known(row, iNth, "json_tokener_parse_ex", "parser crash",
                          "killed by signal " + std::to_string(WTERMSIG(iStatus))))
            << StageName(row.resource, row.enStage) << " allocation " << iNth << ": child status "
            << iStatus << " after " << AskerOf(pstOut->stFailed).Name();
        return false;
    }

    // Notes a known json-c defect when the failing allocation was made by pcFunction of json-c,
    // or anywhere within its pcWithin.
    bool Known(const StageCase &row, int iNth, const char *pcFunction, const char *pcDefect,
               const std::string &sign, const char *pcWithin = "") {
        const NotedAllocation &stFailed = pstOut->stFailed;
        Asker asker = AskerOf(stFailed);
        bool bKnown = asker.object.rfind("libjson-c.so", 0) == 0 && asker.function == pcFunction;
        for (int i = 0; i < stFailed.iFrames; ++i) {
            auto [object, function] = CodeAt(stFailed.apvFrames[i]);
            bKnown = bKnown || (object.rfind("libjson-c.so", 0) == 0 && function == pcWithin);
        }
        if (bKnown) {
            knownDefects.push_back(std::string(pcDefect) + ": " +
                                   StageName(row.resource, row.enStage) + " allocation " +
                                   std::to_string(iNth) + ", " + sign);
        }
        return bKnown;
    }

    Outcome *pstOut = nullptr;
    std::vector<std::string> knownDefects;
};

// The nth injection fails the nth allocation of a normal run, so the injections of a stage also
// tell what it allocates and who asks: json-c (its nodes, parser and printer), the stage's one
// response text, its one result record (the module's, or GetCommon's copy of the whole reply
// payload: the service is not told the record's size), and stdio's stream of the verification's
// picture check. Anything else fails; the table of counts and bytes is printed (the heap budget).
TEST_F(AllocationFailureTest, EveryStageFailsCleanlyAndAllocatesWithinItsHeapBudget) {
#if defined(TALAPI_TEST_CROSS)  // the emulated target's unwinder cannot walk json-c's frames
    GTEST_SKIP() << "json-c's defects are told apart by their stacks, on the build machine";
#endif
    std::string table =
        "| stage | json-c | response text | result record | stdio |\n"
        "|---|---:|---:|---:|---:|\n";
    int iTotal = 0;
    for (const StageCase &row : kEveryStage) {
        std::vector<std::pair<Asker, std::size_t>> asked;  // each allocation of the stage, in order
        unsigned int uiTextLength = 0;                     // of a Format stage's response
        const std::string stage = StageName(row.resource, row.enStage);
        Bytes parsed;  // a Parse stage's record without failure
        if (row.enStage == kParse) {
            HostRequest q(row.resource, row.query, row.body);
            ASSERT_EQ(q.CallUpTo(kParse), 0) << stage;
            const auto *pucRecord = static_cast<const unsigned char *>(q.stCtInt.pParseOut);
            parsed.assign(pucRecord, pucRecord + row.resource.uRecordSize);
        }
        int iNth = 1;
        for (bool bReached = true; bReached; ++iNth) {
            HostRequest q(row.resource, row.query, row.body);
            if (&row.resource == &kPostVerify) {
                q.Upload(dir + "/upload.jpg", JpegPicture(4502), 5);
            }
            ASSERT_EQ(q.CallUpTo(row.enStage - 1), 0) << stage;
            memset(static_cast<void *>(pstOut), 0, sizeof(Outcome));
            if (row.enStage == kPreProc || row.enStage == kRun) {
                Inject(row, q, iNth, parsed, *pstOut);
            } else if (!InChild(row, q, iNth, parsed)) {
                asked.emplace_back(AskerOf(pstOut->stFailed), pstOut->stFailed.uSize);
                continue;
            }
            bReached = pstOut->bTriggered;
            if (bReached) {
                asked.emplace_back(AskerOf(pstOut->stFailed), pstOut->stFailed.uSize);
            }
            uiTextLength = pstOut->uiTextLength;
            const std::vector<int> &allowed = bReached ? row.failureResults : std::vector<int>{0};
            EXPECT_NE(std::find(allowed.begin(), allowed.end(), pstOut->iResult), allowed.end())
                << stage << " allocation " << iNth << " gave " << pstOut->iResult;
            const std::string wrong = pstOut->szWrong;
            bool bKnown =
                wrong == kNotJson ? Known(row, iNth, "printbuf_memappend", "printer gap",
                                          "Format gave 0, response not JSON")
                : wrong == kMemberMissing || pstOut->bLeaked
                    ? Known(row, iNth, "json_object_object_add_ex", "member drop",
                            wrong.empty() ? "key or value leaked" : "Parse gave 0, member missing",
                            "lh_table_insert_w_hash")
                    : false;
            EXPECT_TRUE(bKnown || (wrong.empty() && !pstOut->bLeaked))
                << stage << " allocation " << iNth << ": " << wrong
                << (pstOut->bLeaked ? " leaked" : "") << " after "
                << AskerOf(pstOut->stFailed).Name();
        }
        iTotal += iNth - 2;
        std::size_t auCount[4] = {}, auBytes[4] = {};  // json-c, text, record, stdio
        for (const auto &[asker, uSize] : asked) {
            bool bOurs = asker.object.rfind("liborbapiITGT", 0) == 0 ||
                         asker.object.rfind("libtalapicommon", 0) == 0;
            bool bDirect = bOurs && asker.bDirect;
            int iKind =
                asker.object.rfind("libjson-c", 0) == 0 ? 0
                : bDirect && row.enStage == kFormat && auCount[1] == 0 && uSize == uiTextLength + 1
                    ? 1
                : bDirect && auCount[2] == 0 &&
                        (uSize == row.resource.uRecordSize ||
                         (asker.object.rfind("libtalapicommon", 0) == 0 &&
                          uSize == VW_CMD_BODY_SIZE))
                    ? 2
                : bOurs && !bDirect && &row.resource == &kPostVerify ? 3
                                                                     : -1;
            EXPECT_GE(iKind, 0) << stage << " allocated " << uSize << " bytes for " << asker.Name();
            auCount[std::max(iKind, 0)] += 1, auBytes[std::max(iKind, 0)] += uSize;
        }
        table += "| " + stage;
        for (int iKind = 0; iKind < 4; ++iKind) {
            table += " | " + (auCount[iKind] == 0 ? std::string("-")
                                                  : std::to_string(auCount[iKind]) + " (" +
                                                        std::to_string(auBytes[iKind]) + " B)");
        }
        table += " |\n";
    }
    printf("%sinjections in total: %d; known json-c defects met: %zu\n", table.c_str(), iTotal,
           knownDefects.size());
    for (const std::string &defect : knownDefects) {
        printf("  known defect: %s\n", defect.c_str());
    }
}

// The stack a stage needs: it runs alone on a thread whose stack was painted, and the deepest
// byte that changed, less the thread's own start, gives its high-water mark (host services,
// json-c and the C library included). A request thread holds the command body and the reply
// (about 42 KB) and little more: every stage stays within 48 KiB.
TEST_F(RobustnessTest, EveryStageFitsIn48KiBOfStackBudget) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizers' frames are larger";
    }
    struct Job {
        HostRequest *pq;  // null: the thread's own start
        Stage enStage;
        int iResult;
    };
    auto stackUsed = [](Job job) {  // the bytes of a painted stack that the job changed
        alignas(65536) static unsigned char aucStack[256 * 1024];
        memset(aucStack, 0xA5, sizeof(aucStack));
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setstack(&attr, aucStack, sizeof(aucStack));
        pthread_t thread;
        auto run = [](void *pv) -> void * {
            auto *pstJob = static_cast<Job *>(pv);
            pstJob->iResult = pstJob->pq ? pstJob->pq->Call(pstJob->enStage) : 0;
            return nullptr;
        };
        EXPECT_EQ(pthread_create(&thread, &attr, run, &job), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attr);
        std::size_t uUntouched = 0;
        while (uUntouched < sizeof(aucStack) && aucStack[uUntouched] == 0xA5) {
            ++uUntouched;
        }
        return std::make_pair(sizeof(aucStack) - uUntouched, job.iResult);
    };
    const std::size_t uThreadStart = stackUsed({nullptr, kRun, 0}).first;
    std::string table = "| stage | stack (bytes) |\n|---|---:|\n";
    for (const StageCase &row : kEveryStage) {
        const std::string stage = StageName(row.resource, row.enStage);
        HostRequest q(row.resource, row.query, row.body);
        ASSERT_EQ(q.PrepareFor(row.enStage), 0) << stage;
        auto [uStack, iResult] = stackUsed({&q, row.enStage, -1});
        std::size_t uUsed = uStack - uThreadStart;
        EXPECT_EQ(iResult, 0) << stage;
        EXPECT_LE(uUsed, 48u * 1024) << stage;
        table += "| " + stage + " | " + std::to_string(uUsed) + " |\n";
    }
    printf("%s", table.c_str());
}

// Eight workers, each with its own kept backend connection, make every request of the table 20
// times, in orders that differ, against one daemon: each response is the one the request gave
// alone (the PUTs write the same values whoever wins). Each verification is of the worker's own
// picture, which the daemon reads at the one fixed path, and must get that picture's verdict.
TEST_F(RobustnessTest, EightWorkersEachGetTheResponsesTheyGetAlone) {
    constexpr int kWorkers = 8, kRequests = std::size(kResources);
    std::vector<tagUNIX_SOCKET_S> sockets(kWorkers);
    auto perform = [&](int iWorker, int iRequest, int iRound) {
        const Resource &r = *kResources[iRequest];
        HostRequest q(r, TableRequest(r).query, TableRequest(r).body);
        q.stClient.pstUnixSocket = &sockets[iWorker];
        const std::string id = std::to_string(1000 + iWorker * 100 + iRound);
        if (&r != &kPostVerify) {
            return q.Perform();
        }
        q.Upload(dir + "/" + std::to_string(iWorker) + ".jpg", JpegPicture(std::stoul(id)), 3);
        std::string text = q.Perform();  // its own number, and a mix-up would show another
        const std::size_t uAt = text.find(id);
        return uAt == std::string::npos ? text : text.replace(uAt, id.size(), "<its own>");
    };
    for (tagUNIX_SOCKET_S &stSocket : sockets) {
        UnixSocketInit(&stSocket);
        stSocket.uiTimeoutMs = 60000;  // valgrind may leave the daemon's thread waiting long
    }
    std::vector<std::string> alone(kRequests), wrong(kWorkers);
    for (int i = 0; i < 2 * kRequests; ++i) {  // the second pass reads what the first wrote
        alone[i % kRequests] = perform(0, i % kRequests, 0);
    }
    std::vector<std::thread> threads;
    for (int w = 0; w < kWorkers; ++w) {
        threads.emplace_back([&, w] {
            for (int k = 0; k < 20 * kRequests && wrong[w].empty(); ++k) {
                const int i = (k + w) % kRequests;
                const std::string got = perform(w, i, 1 + k / kRequests);
                wrong[w] = got == alone[i] ? "" : got + "\ninstead of\n" + alone[i];
            }
        });
    }
    for (int w = 0; w < kWorkers; ++w) {
        threads[w].join();
        EXPECT_EQ(wrong[w], "") << "worker " << w;
        UnixSocketClose(&sockets[w]);
    }
    EXPECT_EQ(daemon.ConnectionCount(), static_cast<std::size_t>(kWorkers)) << "kept connections";
}

}  // namespace
