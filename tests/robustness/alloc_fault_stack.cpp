// SPDX-License-Identifier: Apache-2.0
// The injector of tests/support/alloc_fault.cpp, its malloc, calloc and realloc compiled here
// under other names and wrapped by replacements that note the stack of the failing call.
#define malloc InjectorMalloc
#define calloc InjectorCalloc
#define realloc InjectorRealloc
#include "../support/alloc_fault.cpp"
#undef malloc
#undef calloc
#undef realloc

#include <unwind.h>

#include "alloc_fault_stack.h"

// Like the injector's, the wrappers run while the sanitizer runtimes start: none may instrument
// them.
#define NOTING_UNINSTRUMENTED __attribute__((no_sanitize("address", "thread", "undefined")))

namespace {

FailingStack *g_pstStack = nullptr;

_Unwind_Reason_Code AddFrame(_Unwind_Context *pstContext, void *pvStack) {
    auto *pstStack = static_cast<FailingStack *>(pvStack);
    if (pstStack->iFrames == kFailingStackFrames) {
        return _URC_END_OF_STACK;
    }
    pstStack->apvFrames[pstStack->iFrames++] = reinterpret_cast<void *>(_Unwind_GetIP(pstContext));
    return _URC_NO_REASON;
}

// Passes pvResult on, noting the stack when the call that gave it was the failing one. The
// unwinder is called directly: glibc's backtrace loads it with dlopen on first use.
NOTING_UNINSTRUMENTED void *Noted(bool bTriggeredBefore, void *pvResult) {
    if (!bTriggeredBefore && t_bTriggered && g_pstStack != nullptr) {
        g_pstStack->iFrames = 0;
        _Unwind_Backtrace(AddFrame, g_pstStack);
    }
    return pvResult;
}

}  // namespace

void NoteFailingStacks(FailingStack *pstStack) {
    g_pstStack = pstStack;
}

extern "C" NOTING_UNINSTRUMENTED void *malloc(size_t uSize) {
    bool bBefore = t_bTriggered;
    return Noted(bBefore, InjectorMalloc(uSize));
}

extern "C" NOTING_UNINSTRUMENTED void *calloc(size_t uCount, size_t uSize) {
    bool bBefore = t_bTriggered;
    return Noted(bBefore, InjectorCalloc(uCount, uSize));
}

extern "C" NOTING_UNINSTRUMENTED void *realloc(void *pvOld, size_t uSize) {
    bool bBefore = t_bTriggered;
    return Noted(bBefore, InjectorRealloc(pvOld, uSize));
}
