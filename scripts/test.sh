#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs every test: format check; native (with the leak check under valgrind); ASan+UBSan;
# ThreadSanitizer; armhf under qemu; the SDK staged and used by a consumer (native and armhf);
# then each fuzz target for a minute. Warnings are errors in every build here.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --all
jobs=$(nproc)

echo "== clang-format"
git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror

run_suite() {  # name, ctest options (one word, may be empty), then cmake options
    local name=$1 selection=$2
    shift 2
    echo "== $name"
    cmake -S . -B "build/$name" -DTALAPI_WERROR=ON "$@"
    cmake --build "build/$name" -j"$jobs"
    ctest --test-dir "build/$name" --output-on-failure -j"$jobs" $selection
}

# The native and armhf builds are also staged and used as an SDK (sdk_check.sh), so they install
# under /usr.
run_suite native "" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    run_suite asan "" -DCMAKE_BUILD_TYPE=Debug -DTALAPI_SANITIZE=ON
# ThreadSanitizer: every test, the desk server's end-to-end cases included (a race stops the
# server).
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
run_suite tsan "" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTALAPI_TSAN=ON
unset TSAN_OPTIONS
run_suite armhf "" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/armhf-toolchain.cmake"
bash scripts/sdk_check.sh build/native build/armhf
echo "== fuzz"
bash scripts/fuzz.sh 60
echo "== all suites passed"
