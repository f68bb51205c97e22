#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the libFuzzer targets with clang into build/fuzz and runs each for SECONDS_PER_TARGET
# (default 60) on a copy of its seed corpus, with its dictionary. Prints the executions of each
# target; exits non-zero when a target finds a crash (its input is kept in build/fuzz/artifacts).
#   fuzz.sh [SECONDS_PER_TARGET]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

bash scripts/install-deps.sh --all

build=build/fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -DTALAPI_FUZZ=ON -DBUILD_TESTING=OFF \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" -j"$(nproc)"

export UBSAN_OPTIONS=print_stacktrace=1
status=0
# One target at a time: name, then the longest input.
for entry in fuzz_parse_stages:8192 fuzz_mapping:8192 fuzz_query:4096; do
    target=${entry%%:*}
    work="$build/corpus/$target"
    mkdir -p "$work" "$build/artifacts" "$build/logs"
    cp fuzz/corpus/"$target"/* "$work"/
    log="$build/logs/$target.log"
    echo "== $target: ${seconds}s"
    if "$build/fuzz/$target" "$work" -dict="fuzz/dict/$target.dict" -max_len="${entry#*:}" \
        -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
        -artifact_prefix="$build/artifacts/$target-" >"$log" 2>&1; then
        runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
        rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
        echo "$target: ${runs:-?} executions, ${rate:-?} exec/s"
    else
        status=1
        tail -n 60 "$log"
        echo "$target: FAILED (log $log)"
    fi
done
exit $status
