// SPDX-License-Identifier: Apache-2.0
// Replaces the program's malloc, calloc, realloc, free, strdup and strndup with versions that can
// fail, count and note on request and otherwise forward to the allocator underneath (the
// sanitizer's when one is linked in).
#include "alloc_fault.h"

#include <unwind.h>

#include <cerrno>
#include <cstddef>
#include <iterator>

extern "C" {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
void *__interceptor_malloc(size_t uSize);
void *__interceptor_calloc(size_t uCount, size_t uSize);
void *__interceptor_realloc(void *pvOld, size_t uSize);
void __interceptor_free(void *pv);
#define REAL_ALLOCATOR(name) __interceptor_##name
#else
void *__libc_malloc(size_t uSize);
void *__libc_calloc(size_t uCount, size_t uSize);
void *__libc_realloc(void *pvOld, size_t uSize);
void __libc_free(void *pv);
#define REAL_ALLOCATOR(name) __libc_##name
#endif
}

// The sanitizer runtimes allocate while they start, before they can take instrumented calls: the
// replacements must not be instrumented.
#define PROBE_UNINSTRUMENTED __attribute__((no_sanitize("address", "thread", "undefined")))

namespace {

thread_local int t_iCountdown = 0;  // allocations left before the failing one; 0 = disarmed
thread_local bool t_bTriggered = false;
thread_local long long t_llBalance = 0;
thread_local NotedAllocation *t_pstFailed = nullptr;

PROBE_UNINSTRUMENTED _Unwind_Reason_Code AddFrame(_Unwind_Context *pstContext, void *pvNoted) {
    auto *pstNoted = static_cast<NotedAllocation *>(pvNoted);
    if (pstNoted->iFrames == kNotedFrames) {
        return _URC_END_OF_STACK;
    }
    pstNoted->apvFrames[pstNoted->iFrames++] = reinterpret_cast<void *>(_Unwind_GetIP(pstContext));
    return _URC_NO_REASON;
}

// Whether this allocation is to fail; notes its stack when asked to. The unwinder is called
// directly: glibc's backtrace loads it with dlopen on first use.
PROBE_UNINSTRUMENTED bool FailThisAllocation(std::size_t uSize) {
    if (t_iCountdown == 0 || --t_iCountdown != 0) {
        return false;
    }
    if (t_pstFailed != nullptr) {
        t_pstFailed->uSize = uSize;
        t_pstFailed->iFrames = 0;
        _Unwind_Backtrace(AddFrame, t_pstFailed);
    }
    t_bTriggered = true;
    errno = ENOMEM;
    return true;
}

PROBE_UNINSTRUMENTED void *Counted(void *pv) {
    t_llBalance += pv != nullptr ? 1 : 0;
    return pv;
}

}  // namespace

extern "C" PROBE_UNINSTRUMENTED void *malloc(size_t uSize) {
    return FailThisAllocation(uSize) ? nullptr : Counted(REAL_ALLOCATOR(malloc)(uSize));
}

extern "C" PROBE_UNINSTRUMENTED void *calloc(size_t uCount, size_t uSize) {
    return FailThisAllocation(uCount * uSize) ? nullptr
                                              : Counted(REAL_ALLOCATOR(calloc)(uCount, uSize));
}

extern "C" PROBE_UNINSTRUMENTED void *realloc(void *pvOld, size_t uSize) {
    if (FailThisAllocation(uSize)) {
        return nullptr;
    }
    void *pvNew = REAL_ALLOCATOR(realloc)(pvOld, uSize);
    // A new block from nothing, or an old one released for size 0; otherwise one block still.
    t_llBalance += pvOld == nullptr ? (pvNew != nullptr ? 1 : 0) : (uSize == 0 ? -1 : 0);
    return pvNew;
}

// The sanitizers' own string copies would bypass the replacements above: these go through them.
extern "C" PROBE_UNINSTRUMENTED char *strndup(const char *pcText, size_t uMax) noexcept {
    size_t uLength = 0;
    while (uLength < uMax && pcText[uLength] != '\0') {
        ++uLength;
    }
    auto *pcCopy = static_cast<char *>(malloc(uLength + 1));
    if (pcCopy != nullptr) {
        __builtin_memcpy(pcCopy, pcText, uLength);
        pcCopy[uLength] = '\0';
    }
    return pcCopy;
}

extern "C" PROBE_UNINSTRUMENTED char *strdup(const char *pcText) noexcept {
    return strndup(pcText, static_cast<size_t>(-1));
}

extern "C" PROBE_UNINSTRUMENTED void free(void *pv) {
    t_llBalance -= pv != nullptr ? 1 : 0;
    REAL_ALLOCATOR(free)(pv);
}

ScopedAllocationFailure::ScopedAllocationFailure(int iNth, NotedAllocation *pstFailed) {
    t_bTriggered = false;
    t_iCountdown = iNth;
    t_pstFailed = pstFailed;
}

ScopedAllocationFailure::~ScopedAllocationFailure() {
    t_iCountdown = 0;
    t_pstFailed = nullptr;
}

bool ScopedAllocationFailure::Triggered() const {
    return t_bTriggered;
}

long long AllocationBalance() {
    return t_llBalance;
}
