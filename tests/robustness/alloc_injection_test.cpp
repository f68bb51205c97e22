// SPDX-License-Identifier: Apache-2.0
// Allocation-failure injection through every exported stage: each run of a stage has its 1st,
// 2nd, ... allocation fail until a run no longer reaches the failure. Every run must end with one
// of the stage's documented results and consistent interchange records, without crash or leak.
//
// Three defects of json-c 0.16 are known. Each is recognised by the json-c function whose
// allocation failed and by what followed; it is then counted and reported instead of failing:
// - parser crash (json_tokener_parse_ex): it dereferences the null copy of an object key. Parse
//   stages therefore run each injection in a child process, and the child is killed by a signal.
// - member drop (json_object_object_add_ex, called by the parser): the parser ignores the failed
//   add, so the member is missing from the tree (Parse gives 0 without it) and its value is lost
//   (under valgrind the child exits with valgrind's error status).
// - printer gap (printbuf_memappend): the printer ignores a printbuf that could not grow and
//   answers the text without that piece (Format gives 0 with a response that is not JSON).
#include <filesystem>
#include <dlfcn.h>
#include <json-c/json.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <cstdio>
#include <string>
#include <vector>

#include "alloc_fault_stack.h"
#include "host_requests.h"
#include "talapi_log.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

struct Row {
    const Resource &resource;
    Stage enStage;
    const char *query, *body;
    std::vector<int> results;  // what the stage may give when an allocation fails
};

constexpr const char *kChannel1 = "ChannelId=1", *kChannel2 = "ChannelId=2";
constexpr const char *kTrafficDome = "ChannelId=1&OverlayPicType=0&BusinessType=TrafficDome";
constexpr const char *kVlpr = "ChannelId=2&OverlayPicType=1&BusinessType=Vlpr";
constexpr const char *kModeBody = "{\"mode\": 2}";
constexpr const char *kOsdBody =
    "{\"picOSDInfo\": {\"picOSDType\": [1, 2, 3], \"spaceNum\": [0, 1, 2], \"picOsdDetail\": "
    "[{\"prefixEnable\": 1, \"prefixContent\": \"No.\"}]}, \"roadIdOSD\": {\"osdContent\": \"Ring "
    "Road 3\"}, \"timeOSD\": {\"toMs\": 1}}";
constexpr const char *kDetectorBody = "{\"enable\": 0, \"rectInfo\": {\"x\": 40, \"width\": 99}}";

const Row kRows[] = {
    {kGetLanguage, kRun, kChannel1, "", {0, 18}},
    {kGetLanguage, kFormat, kChannel1, "", {0, -1}},
    {kPutLanguage, kPreProc, kChannel1, kModeBody, {0, 18}},
    {kPutLanguage, kParse, kChannel1, kModeBody, {0, 4}},
    {kPutLanguage, kRun, kChannel1, kModeBody, {0}},
    {kPutLanguage, kFormat, kChannel1, kModeBody, {0, -1}},
    {kGetFrameOsd, kRun, kVlpr, "", {0, 18}},
    {kGetFrameOsd, kFormat, kVlpr, "", {0, -1}},
    {kPutFrameOsd, kPreProc, kTrafficDome, kOsdBody, {0, 18}},
    {kPutFrameOsd, kParse, kTrafficDome, kOsdBody, {0, 4}},
    {kPutFrameOsd, kRun, kTrafficDome, kOsdBody, {0}},
    {kPutFrameOsd, kFormat, kTrafficDome, kOsdBody, {0, -1}},
    {kGetCapability, kRun, "", "", {0, 18}},
    {kGetCapability, kFormat, "", "", {0, -1}},
    {kGetDetector, kRun, kChannel2, "", {0, 18}},
    {kGetDetector, kFormat, kChannel2, "", {0, -1}},
    {kPutDetector, kPreProc, kChannel2, kDetectorBody, {0, 18}},
    {kPutDetector, kParse, kChannel2, kDetectorBody, {0, 4}},
    {kPutDetector, kRun, kChannel2, kDetectorBody, {0}},
    {kPutDetector, kFormat, kChannel2, kDetectorBody, {0, -1}},
    {kGetOsdCapability, kRun, "ChannelId=101", "", {0, 18}},
    {kGetOsdCapability, kFormat, "ChannelId=101", "", {0, -1}},
    {kPostVerify, kRun, "", "", {0, 4, 18}},  // 4: the upload cannot be opened
    {kPostVerify, kFormat, "", "", {0, -1}},
};

// One injected run, in memory shared with a child process that makes it.
struct Outcome {
    int iResult;
    bool bTriggered, bLeaked, bDone;  // bLeaked: the child's leak checker found an error
    char szWrong[64];  // what is wrong with the records or the response; empty when nothing
    FailingStack stack;
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
                return q.iCopies == 0 ? "" : "a failed Format stored a response";
            }
            return q.iCopies == 1 && IsJsonObject(q.acText) ? "" : kNotJson;
    }
}

void Inject(const Row &row, HostRequest &q, int iNth, const Bytes &parsed, Outcome &out) {
    {
        ScopedAllocationFailure failure(iNth);
        out.iResult = q.Call(row.enStage);
        out.bTriggered = failure.Triggered();
    }
    snprintf(out.szWrong, sizeof(out.szWrong), "%s",
             Inconsistency(q, row.enStage, out.iResult, parsed));
    out.bDone = true;
}

// The code that made the noted failing allocation, "object function": the first frames outside
// this program, the C library and the sanitizer runtimes, named by their object and the first of
// them with an exported name.
std::string FailingCall(const FailingStack &stack) {
    Dl_info self{};
    dladdr(reinterpret_cast<void *>(&FailingCall), &self);
    std::string object;
    for (int i = 0; i < stack.iFrames; ++i) {
        Dl_info info{};
        if (dladdr(stack.apvFrames[i], &info) == 0 || info.dli_fname == nullptr) {
            break;
        }
        std::string name = info.dli_fname;
        name = name.substr(name.rfind('/') + 1);
        bool bRuntime = info.dli_fbase == self.dli_fbase;
        for (const char *pcRuntime : {"libc.so", "libasan.so", "libtsan.so", "libubsan.so"}) {
            bRuntime = bRuntime || name.rfind(pcRuntime, 0) == 0;
        }
        if (object.empty() ? bRuntime : name != object) {
            continue;
        }
        object = name;
        if (info.dli_sname != nullptr) {
            return object + " " + info.dli_sname;
        }
    }
    return object.empty() ? "no allocation failed" : object;
}

class AllocationFailureTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char szDir[] = "/tmp/talapi-inject-XXXXXX";
        ASSERT_NE(mkdtemp(szDir), nullptr);
        dir = szDir;
        void *pv = mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(pv, MAP_FAILED);
        pstOut = static_cast<Outcome *>(pv);
        NoteFailingStacks(&pstOut->stack);
        daemon.SetHandler(ValidBackend());
    }
    void TearDown() override {
        NoteFailingStacks(nullptr);
        munmap(pstOut, sizeof(Outcome));
        std::filesystem::remove_all(dir);
    }

    // The injection in a child process (the daemon stopped, so that the child is a copy of a
    // single thread). False when the child did not report: then it crashed, the known defect or
    // a failure.
    bool InChild(const Row &row, HostRequest &q, int iNth, const Bytes &parsed) {
        daemon.Stop();
        fflush(stdout);
        pid_t pid = fork();
        if (pid == 0) {
            signal(SIGSEGV, SIG_DFL);  // a crash ends the child with its signal
            signal(SIGBUS, SIG_DFL);
            Inject(row, q, iNth, parsed, *pstOut);
            for (void **ppv : {&q.stCtInt.pPreProcOut, &q.stCtInt.pParseOut, &q.stCtInt.pRunOut}) {
                free(*ppv);
                *ppv = nullptr;
            }
#if defined(__SANITIZE_ADDRESS__)
            pstOut->bLeaked = __lsan_do_recoverable_leak_check() != 0;
#endif
            _exit(0);
        }
        int iStatus = 0;
        EXPECT_EQ(waitpid(pid, &iStatus, 0), pid);
        daemon.Start();
        if (WIFEXITED(iStatus) && pstOut->bDone) {
            pstOut->bLeaked |= WEXITSTATUS(iStatus) != 0;  // valgrind's error status
            return true;
        }
        EXPECT_TRUE(WIFSIGNALED(iStatus) &&
                    Known(row, iNth, "json_tokener_parse_ex", "parser crash",
                          "killed by signal " + std::to_string(WTERMSIG(iStatus))))
            << StageName(row.resource, row.enStage) << " allocation " << iNth << ": child status "
            << iStatus << " after " << FailingCall(pstOut->stack);
        return false;
    }

    // Notes a known json-c defect when the failing allocation was made by pcFunction of libjson-c.
    bool Known(const Row &row, int iNth, const char *pcFunction, const char *pcDefect,
               const std::string &sign) {
        std::string call = FailingCall(pstOut->stack);
        if (call.rfind("libjson-c.so", 0) != 0 || call.substr(call.find(' ') + 1) != pcFunction) {
            return false;
        }
        knownDefects.push_back(std::string(pcDefect) + ": " + StageName(row.resource, row.enStage) +
                               " allocation " + std::to_string(iNth) + ", " + sign);
        return true;
    }

    std::string dir;
    Outcome *pstOut = nullptr;
    std::vector<std::string> knownDefects;
    DiscardedLogs logs{VW_DEBUG_ALL};
    FakeDaemon daemon;
};

TEST_F(AllocationFailureTest, EveryStageEndsInADocumentedResultWithoutCrashOrLeak) {
    int iTotal = 0;
    printf("allocation failures injected per stage:\n");
    for (const Row &row : kRows) {
        Bytes parsed;  // a Parse stage's record without failure
        if (row.enStage == kParse) {
            HostRequest q(row.resource, row.query, row.body);
            ASSERT_EQ(q.CallUpTo(kParse), 0) << StageName(row.resource, row.enStage);
            const auto *pucRecord = static_cast<const unsigned char *>(q.stCtInt.pParseOut);
            parsed.assign(pucRecord, pucRecord + VW_CMD_BODY_SIZE);
        }
        int iNth = 1;
        for (bool bReached = true; bReached; ++iNth) {
            HostRequest q(row.resource, row.query, row.body);
            if (&row.resource == &kPostVerify) {
                q.Upload(dir + "/upload.jpg", 4502, 5);
            }
            ASSERT_EQ(q.CallUpTo(row.enStage - 1), 0) << StageName(row.resource, row.enStage);
            *pstOut = Outcome{};
            if (row.enStage != kParse) {
                Inject(row, q, iNth, parsed, *pstOut);
            } else if (!InChild(row, q, iNth, parsed)) {
                continue;
            }
            bReached = pstOut->bTriggered;
            const std::vector<int> &allowed = bReached ? row.results : std::vector<int>{0};
            EXPECT_NE(std::find(allowed.begin(), allowed.end(), pstOut->iResult), allowed.end())
                << StageName(row.resource, row.enStage) << " allocation " << iNth << " gave "
                << pstOut->iResult;
            const std::string wrong = pstOut->szWrong;
            bool bKnown =
                wrong == kNotJson ? Known(row, iNth, "printbuf_memappend", "printer gap",
                                          "Format gave 0, response not JSON")
                : wrong == kMemberMissing || pstOut->bLeaked
                    ? Known(row, iNth, "json_object_object_add_ex", "member drop",
                            wrong.empty() ? "value leaked" : "Parse gave 0, member missing")
                    : false;
            EXPECT_TRUE(bKnown || (wrong.empty() && !pstOut->bLeaked))
                << StageName(row.resource, row.enStage) << " allocation " << iNth << ": " << wrong
                << (pstOut->bLeaked ? " leaked" : "") << " after " << FailingCall(pstOut->stack);
        }
        printf("  %-36s %4d\n", StageName(row.resource, row.enStage).c_str(), iNth - 2);
        iTotal += iNth - 2;
    }
    printf("injections in total: %d; known json-c defects met: %zu\n", iTotal, knownDefects.size());
    for (const std::string &defect : knownDefects) {
        printf("  known defect: %s\n", defect.c_str());
    }
}

}  // namespace
