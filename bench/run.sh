#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Reruns every benchmark and budget measurement and prints the figures as Markdown (also kept in
# build/bench-results.md): the machine; the mapping against hand-written json-c (median times and
# instruction counts); the heap use of each stage; the stack and size of the armhf build; the desk
# server under wrk beside CivetWeb serving the same bytes as static files.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --all
jobs=$(nproc)
cmake -S . -B build/bench -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build/bench -j"$jobs"
cmake -S . -B build/bench-armhf -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/armhf-toolchain.cmake" > /dev/null
cmake --build build/bench-armhf -j"$jobs"
armhf_run=(qemu-arm-static -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib -L /usr/arm-linux-gnueabihf)

{
    echo "## Machine"
    echo
    echo "- $(lscpu | sed -n 's/^Model name: *//p' | head -1), $(nproc) cores, $(free -g | awk '/^Mem:/ { print $2 }') GiB; $(uname -sr)"
    echo "- $(g++ --version | head -1); $(arm-linux-gnueabihf-g++ --version | head -1); json-c $(pkg-config --modversion json-c)"
    echo
    echo "## Mapping against hand-written json-c"
    echo
    echo "Times (10 repetitions, medians):"
    echo
    python3 bench/mapping_report.py build/bench/bench/mapping_bench 10
    echo
    echo "Instructions per call (callgrind):"
    echo
    bash bench/mapping_instructions.sh build/bench/bench/mapping_bench 200
    echo
    echo "## Heap use of each stage (native)"
    echo
    build/bench/tests/robustness/robustness_test --gtest_filter='*HeapBudget' | grep '^|'
    echo
    echo "## Stack of each stage, measured (armhf under qemu; native)"
    echo
    paste -d ' ' \
        <("${armhf_run[@]}" build/bench-armhf/tests/robustness/robustness_test \
            --gtest_filter='*Stack*Budget' | grep '^|') \
        <(build/bench/tests/robustness/robustness_test --gtest_filter='*Stack*Budget' |
            grep '^|' | cut -d'|' -f3-) |
        sed '1s/|  *stack (bytes) | *stack (bytes) |/| armhf (bytes) | x86-64 (bytes) |/; 2s/.*/|---|---:|---:|/'
    echo
    bash bench/budget_report.sh build/bench-armhf
    echo
    echo "## Load on the desk (wrk, 16 connections)"
    echo
    bash bench/desk_load.sh build/bench
} | tee build/bench-results.md
