// SPDX-License-Identifier: Apache-2.0
// The heap use of every exported stage, counted by a replacement malloc while the stage runs and
// sorted by who asked: json-c (its nodes, parser and printer), the stage's one response text,
// its one result record (the module's, or GetCommon's copy of the reply payload), stdio's FILE of
// the verification's picture check, or anything else.
// Anything else fails the test. The table of counts and bytes is printed for the budgets.
#include <dlfcn.h>
#include <unwind.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "host_requests.h"

extern "C" {
void *__libc_malloc(size_t uSize);
void *__libc_calloc(size_t uCount, size_t uSize);
void *__libc_realloc(void *pvOld, size_t uSize);
}

namespace {

constexpr int kFrames = 24;

struct Allocation {
    std::size_t uSize;
    void *apvFrames[kFrames];
    int iFrames;
};

// The allocations of the one thread that counts; a fixed array, so that noting one allocates
// nothing.
struct Tally {
    int iCount = 0;
    Allocation astAllocations[4096];
};
Tally g_tally;
thread_local bool t_bCounting = false;

_Unwind_Reason_Code AddFrame(_Unwind_Context *pstContext, void *pvAllocation) {
    auto *pstAllocation = static_cast<Allocation *>(pvAllocation);
    if (pstAllocation->iFrames == kFrames) {
        return _URC_END_OF_STACK;
    }
    pstAllocation->apvFrames[pstAllocation->iFrames++] =
        reinterpret_cast<void *>(_Unwind_GetIP(pstContext));
    return _URC_NO_REASON;
}

void Note(std::size_t uSize) {
    if (!t_bCounting) {
        return;
    }
    Tally &tally = g_tally;
    t_bCounting = false;  // the unwinder must not count itself
    if (tally.iCount < static_cast<int>(std::size(tally.astAllocations))) {
        Allocation &allocation = tally.astAllocations[tally.iCount];
        allocation.uSize = uSize;
        allocation.iFrames = 0;
        _Unwind_Backtrace(AddFrame, &allocation);
    }
    ++tally.iCount;
    t_bCounting = true;
}

// Who asked for an allocation: the first library on its stack other than this program and the C
// library ("" when none), and the C library function that allocated for it, if any ("libc" when
// it has no exported name).
struct Asker {
    std::string library, libcFunction;
};

std::string ObjectName(const Dl_info &info) {
    std::string name = info.dli_fname != nullptr ? info.dli_fname : "";
    name = name.substr(name.rfind('/') + 1);
    return name.substr(0, name.find(".so"));
}

Asker AskerOf(const Allocation &allocation) {
    Dl_info self{};
    dladdr(reinterpret_cast<void *>(&AskerOf), &self);
    Asker asker;
    for (int i = 0; i < allocation.iFrames; ++i) {
        Dl_info info{};
        if (dladdr(allocation.apvFrames[i], &info) == 0) {
            continue;
        }
        std::string name = ObjectName(info);
        if (info.dli_fbase == self.dli_fbase) {
            continue;
        }
        if (name == "libc") {
            if (asker.libcFunction.empty()) {
                asker.libcFunction = info.dli_sname != nullptr ? info.dli_sname : "libc";
            }
            continue;
        }
        asker.library = name;
        break;
    }
    return asker;
}

}  // namespace

extern "C" void *malloc(size_t uSize) {
    Note(uSize);
    return __libc_malloc(uSize);
}

extern "C" void *calloc(size_t uCount, size_t uSize) {
    Note(uCount * uSize);
    return __libc_calloc(uCount, uSize);
}

extern "C" void *realloc(void *pvOld, size_t uSize) {
    Note(uSize);
    return __libc_realloc(pvOld, uSize);
}

namespace {

// The allocations of one stage call, by kind.
struct Use {
    int iCount = 0;
    std::size_t uBytes = 0;
    void Add(std::size_t uSize) {
        ++iCount;
        uBytes += uSize;
    }
};
struct StageUse {
    Use jsonC, text, record, stdio;
    std::string other;  // the first allocation of no allowed kind
};

// The size of the result record of a resource's stages.
std::size_t RecordSize(const Resource &r) {
    const std::string name = r.name;
    return name == "SysBackLanguage"        ? sizeof(VW_SYS_BACK_LANGUAGE_PARAM)
           : name == "FrameOSD"             ? sizeof(_VW_PIC_OSD_PARA_S)
           : name == "VideoVehicleDetector" ? sizeof(VW_TRAFFIC_FLOW_PARA)
           : name == "Capability"           ? sizeof(ITGT_ABILITY_REST_API)
           : name == "OsdCapability"        ? sizeof(_tagITGT_OSD_ABILITY_REST_API_S)
                                            : sizeof(VerifyResultParam);
}

// Sorts the counted allocations of a stage that stored uTextLength bytes of response (0: none).
StageUse Sort(const StageCase &row, std::size_t uTextLength) {
    StageUse use;
    const Tally &tally = g_tally;
    for (int i = 0; i < tally.iCount; ++i) {
        const Allocation &allocation = tally.astAllocations[i];
        Asker asker = AskerOf(allocation);
        bool bOurs = asker.library == "liborbapiITGT" || asker.library == "libtalapicommon";
        if (asker.library == "libjson-c") {
            use.jsonC.Add(allocation.uSize);
        } else if (bOurs && asker.libcFunction.empty() && uTextLength != 0 &&
                   allocation.uSize == uTextLength + 1 && use.text.iCount == 0) {
            use.text.Add(allocation.uSize);
        } else if (bOurs && asker.libcFunction.empty() && use.record.iCount == 0 &&
                   (allocation.uSize == RecordSize(row.resource) ||
                    (asker.library == "libtalapicommon" && allocation.uSize == VW_CMD_BODY_SIZE))) {
            // GetCommon's record is the whole reply payload: the service is not told the
            // record's size, and a short reply must not leave the module reading past it.
            use.record.Add(allocation.uSize);
        } else if (asker.library == "liborbapiITGT" && !asker.libcFunction.empty() &&
                   row.resource.run == RunPostITGTSecurityCodeVerify && row.enStage == kRun) {
            use.stdio.Add(allocation.uSize);
        } else if (use.other.empty()) {
            use.other = asker.library + " " + asker.libcFunction + " " +
                        std::to_string(allocation.uSize) + " bytes";
        }
    }
    return use;
}

std::string Cell(const Use &use) {
    return use.iCount == 0 ? "-"
                           : std::to_string(use.iCount) + " (" + std::to_string(use.uBytes) + " B)";
}

class StageHeapTest : public ::testing::Test {
  protected:
    void SetUp() override {
        daemon.SetHandler(ValidBackend());
        // The steady state of a running server: the C library's one-time set-up (the time zone
        // that log lines read, for one) is behind it.
        HostRequest(kGetLanguage, kBudgetChannel).Perform();
    }
    DiscardedLogs logs{VW_DEBUG_FAILURES};
    FakeDaemon daemon;
};

TEST_F(StageHeapTest, StagesAllocateOnlyJsonNodesTheirTextAndTheirRecord) {
    std::string table =
        "| stage | json-c | response text | result record | stdio |\n|---|---:|---:|---:|---:|\n";
    for (const StageCase &row : kEveryStage) {
        HostRequest q(row.resource, row.query, row.body);
        ASSERT_EQ(q.PrepareFor(row.enStage), 0) << StageName(row.resource, row.enStage);
        g_tally.iCount = 0;
        t_bCounting = true;
        int iResult = q.Call(row.enStage);
        t_bCounting = false;
        ASSERT_EQ(iResult, 0) << StageName(row.resource, row.enStage);
        ASSERT_LE(g_tally.iCount, static_cast<int>(std::size(g_tally.astAllocations)));
        StageUse use = Sort(row, row.enStage == kFormat ? q.uiLength : 0);
        EXPECT_EQ(use.other, "") << StageName(row.resource, row.enStage)
                                 << " allocated something else";
        table += "| " + StageName(row.resource, row.enStage) + " | " + Cell(use.jsonC) + " | " +
                 Cell(use.text) + " | " + Cell(use.record) + " | " + Cell(use.stdio) + " |\n";
    }
    printf("%s", table.c_str());
}

}  // namespace
