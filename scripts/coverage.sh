#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Line and branch coverage, by the fast test suites (no end-to-end, valgrind or benchmarks), of
# the module, the shared business header and the host stand-ins, with gcovr. Prints gcovr's
# table; the HTML report is build/coverage/coverage.html.
#   coverage.sh
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh --all
command -v gcovr > /dev/null || { apt-get install -y --no-install-recommends gcovr > /dev/null; }

build=build/coverage
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DTALAPI_HARDENING=OFF \
    -DCMAKE_CXX_FLAGS="--coverage -O0 -fprofile-update=atomic" -DCMAKE_EXE_LINKER_FLAGS=--coverage \
    -DCMAKE_SHARED_LINKER_FLAGS=--coverage > /dev/null
cmake --build "$build" -j"$(nproc)"
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -LE 'e2e|bench|long' -j"$(nproc)" > "$build/ctest.log" ||
    { tail -30 "$build/ctest.log"; exit 1; }
filters=(--filter 'access_server/talapi/orb_business/itgt/orbapi_itgt_module\.cpp'
         --filter 'access_server/talapi/inc/talapi_business_common\.h'
         --filter 'access_server/talapi/common/.*\.cpp')
common=(--root . --object-directory "$build" "${filters[@]}" --exclude-unreachable-branches
        --exclude-throw-branches)
gcovr "${common[@]}" --html-details "$build/coverage.html" > /dev/null
gcovr "${common[@]}" --print-summary | tee "$build/coverage.txt"         # lines, per file
gcovr "${common[@]}" --branches | tee -a "$build/coverage.txt"           # branches, per file
