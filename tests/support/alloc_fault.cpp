// SPDX-License-Identifier: Apache-2.0
// Replaces the program's malloc, calloc and realloc with versions that can fail on request and
// otherwise forward to the allocator underneath (the sanitizer's when one is linked in).
#include "alloc_fault.h"

#include <cerrno>
#include <cstddef>

extern "C" {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
void *__interceptor_malloc(size_t uSize);
void *__interceptor_calloc(size_t uCount, size_t uSize);
void *__interceptor_realloc(void *pvOld, size_t uSize);
#define REAL_ALLOCATOR(name) __interceptor_##name
#else
void *__libc_malloc(size_t uSize);
void *__libc_calloc(size_t uCount, size_t uSize);
void *__libc_realloc(void *pvOld, size_t uSize);
#define REAL_ALLOCATOR(name) __libc_##name
#endif
}

// ThreadSanitizer's runtime allocates while it starts, before it can take instrumented calls: the
// replacements must not be instrumented.
#define ALLOC_FAULT_UNINSTRUMENTED __attribute__((no_sanitize("thread")))

namespace {

thread_local int t_iCountdown = 0;  // allocations left before the failing one; 0 = disarmed
thread_local bool t_bTriggered = false;

ALLOC_FAULT_UNINSTRUMENTED bool FailThisAllocation() {
    if (t_iCountdown == 0 || --t_iCountdown != 0) {
        return false;
    }
    t_bTriggered = true;
    errno = ENOMEM;
    return true;
}

}  // namespace

extern "C" ALLOC_FAULT_UNINSTRUMENTED void *malloc(size_t uSize) {
    return FailThisAllocation() ? nullptr : REAL_ALLOCATOR(malloc)(uSize);
}

extern "C" ALLOC_FAULT_UNINSTRUMENTED void *calloc(size_t uCount, size_t uSize) {
    return FailThisAllocation() ? nullptr : REAL_ALLOCATOR(calloc)(uCount, uSize);
}

extern "C" ALLOC_FAULT_UNINSTRUMENTED void *realloc(void *pvOld, size_t uSize) {
    return FailThisAllocation() ? nullptr : REAL_ALLOCATOR(realloc)(pvOld, uSize);
}

ScopedAllocationFailure::ScopedAllocationFailure(int iNth) {
    t_bTriggered = false;
    t_iCountdown = iNth;
}

ScopedAllocationFailure::~ScopedAllocationFailure() {
    t_iCountdown = 0;
}

bool ScopedAllocationFailure::Triggered() const {
    return t_bTriggered;
}
