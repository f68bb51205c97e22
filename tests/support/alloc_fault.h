// SPDX-License-Identifier: Apache-2.0
// Allocation probes for test programs. alloc_fault.cpp replaces malloc, calloc, realloc, free,
// strdup and strndup of the whole program; it must be a source of the test executable itself.
// Every probe concerns the calling thread only.
#ifndef TESTS_SUPPORT_ALLOC_FAULT_H
#define TESTS_SUPPORT_ALLOC_FAULT_H

#include <cstddef>

// An allocation's size and call stack.
constexpr int kNotedFrames = 24;
struct NotedAllocation {
    std::size_t uSize;
    int iFrames;                    // 0 until noted
    void *apvFrames[kNotedFrames];  // instruction addresses, innermost first
};

// While in scope, the nth allocation of the calling thread (1 = the next one) fails with ENOMEM,
// and is noted in *pstFailed when one is given (memory shared with a parent process can hold it
// when a child crashes).
class ScopedAllocationFailure {
  public:
    explicit ScopedAllocationFailure(int iNth, NotedAllocation *pstFailed = nullptr);
    ~ScopedAllocationFailure();
    ScopedAllocationFailure(const ScopedAllocationFailure &) = delete;
    ScopedAllocationFailure &operator=(const ScopedAllocationFailure &) = delete;

    // Whether the armed allocation was reached and failed.
    bool Triggered() const;
};

// Blocks the calling thread allocated minus those it freed: the same before and after work that
// releases everything it allocates.
long long AllocationBalance();

#endif
