// SPDX-License-Identifier: Apache-2.0
// Allocation-failure injection for test programs. alloc_fault.cpp replaces malloc, calloc and
// realloc of the whole program; it must be a source of the test executable itself.
#ifndef TESTS_SUPPORT_ALLOC_FAULT_H
#define TESTS_SUPPORT_ALLOC_FAULT_H

// While in scope, the nth allocation of the calling thread (1 = the next one) fails with
// ENOMEM; other threads are not affected.
class ScopedAllocationFailure {
  public:
    explicit ScopedAllocationFailure(int iNth);
    ~ScopedAllocationFailure();
    ScopedAllocationFailure(const ScopedAllocationFailure &) = delete;
    ScopedAllocationFailure &operator=(const ScopedAllocationFailure &) = delete;

    // Whether the armed allocation was reached and failed.
    bool Triggered() const;
};

#endif
