// SPDX-License-Identifier: Apache-2.0
// The allocation-failure injector of alloc_fault.h, built from alloc_fault_stack.cpp instead of
// alloc_fault.cpp, with one addition: every failing allocation notes its call stack.
#ifndef TESTS_ROBUSTNESS_ALLOC_FAULT_STACK_H
#define TESTS_ROBUSTNESS_ALLOC_FAULT_STACK_H

#include "alloc_fault.h"

constexpr int kFailingStackFrames = 32;

struct FailingStack {
    int iFrames;                           // 0 until an allocation fails
    void *apvFrames[kFailingStackFrames];  // instruction addresses, innermost first
};

// From now on, each failing allocation writes its stack to *pstStack (null: nowhere). Memory
// shared with a parent process lets a child that crashes after a failure still tell its stack.
void NoteFailingStacks(FailingStack *pstStack);

#endif
