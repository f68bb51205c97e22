#!/usr/bin/env bash
# Builds and runs every test: format check, native, ASan+UBSan, and armhf under qemu.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --all
jobs=$(nproc)

echo "== clang-format"
git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror

run_suite() {  # name, then cmake options
    local name=$1
    shift
    echo "== $name"
    cmake -S . -B "build/$name" "$@"
    cmake --build "build/$name" -j"$jobs"
    ctest --test-dir "build/$name" --output-on-failure -j"$jobs"
}

run_suite native -DCMAKE_BUILD_TYPE=RelWithDebInfo
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    run_suite asan -DCMAKE_BUILD_TYPE=Debug -DTALAPI_SANITIZE=ON
run_suite armhf -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/armhf-toolchain.cmake"
echo "== all suites passed"
