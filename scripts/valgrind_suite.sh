#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs each GoogleTest program under valgrind's leak check, one after the other; fails when a
# program fails, makes a memory error or loses memory (definitely or indirectly).
# Usage: valgrind_suite.sh VALGRIND SUPPRESSIONS PROGRAM...
set -u
valgrind=$1
suppressions=$2
shift 2
log=$(mktemp)
trap 'rm -f "$log"' EXIT
failed=""
for program in "$@"; do
    name=$(basename "$program")
    start=$(date +%s)
    # A program's own malloc (allocation-failure injection) stays in place above valgrind's.
    if GTEST_FILTER=-*StackBudget "$valgrind" -q --leak-check=full --errors-for-leak-kinds=definite,indirect \
        --error-exitcode=1 --child-silent-after-fork=yes --soname-synonyms=somalloc=nouserintercepts \
        --suppressions="$suppressions" "$program" >"$log" 2>&1; then
        echo "ok     $name ($(($(date +%s) - start)) s)"
    else
        cat "$log"
        echo "FAILED $name ($(($(date +%s) - start)) s)"
        failed="$failed $name"
    fi
done
if [ -n "$failed" ]; then
    echo "failed under valgrind:$failed"
    exit 1
fi
