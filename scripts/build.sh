#!/usr/bin/env bash
# Builds the project natively into build/native and lists what was built.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build/native -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF
cmake --build build/native -j"$(nproc)"

echo
echo "Built:"
find build/native -maxdepth 5 -type f \( -name '*.so' -o -perm -u+x \) -newer CMakeLists.txt \
    ! -path '*/CMakeFiles/*' -printf '  %p (%s bytes)\n' | sort
