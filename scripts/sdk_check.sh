#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The SDK as a firmware build uses it, natively and for armhf: stage a build configured with
# -DCMAKE_INSTALL_PREFIX=/usr (built already, or built here without tests) with DESTDIR and
# --strip, check the staged files (versioned libraries, headers, talapi.pc, the CMake
# package, no build-tree RUNPATH; on armhf full RELRO with BIND_NOW and the stack protector),
# build the module alone against the staged SDK, and build tests/sdk_consumer against it with
# find_package and with pkg-config; its programs load the staged module and answer a GET through
# the staged simulator (armhf ones under qemu).
#   sdk_check.sh [NATIVE_BUILD_DIR [ARMHF_BUILD_DIR]]   (default: build/sdk-native, build/sdk-armhf)
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD
fail() { echo "sdk_check: $*" >&2; exit 1; }

check() {  # arch, build directory
    local arch=$1 build=$2 stage=$top/build/stage-$1 toolchain=()
    [[ $arch == native ]] || toolchain=(-DCMAKE_TOOLCHAIN_FILE="$top/cmake/armhf-toolchain.cmake")
    echo "== sdk: $arch"
    if [[ ! -e $build/CMakeCache.txt ]]; then
        cmake -S . -B "$build" "${toolchain[@]}" -DCMAKE_INSTALL_PREFIX=/usr -DBUILD_TESTING=OFF \
            -DTALAPI_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
    fi
    grep -q '^CMAKE_INSTALL_PREFIX:PATH=/usr$' "$build/CMakeCache.txt" ||
        fail "$build is not configured with CMAKE_INSTALL_PREFIX=/usr"
    cmake --build "$build" -j"$(nproc)"
    rm -rf "$stage"
    DESTDIR=$stage cmake --install "$build" --strip > /dev/null

    local lib run
    lib=$stage/usr/$(sed -n 's/^CMAKE_INSTALL_LIBDIR:PATH=//p' "$build/CMakeCache.txt")
    if [[ $arch == native ]]; then
        run=(env "LD_LIBRARY_PATH=$lib")
        native_lib=$lib
    else
        run=(qemu-arm-static -E "LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib:$lib"
             -L /usr/arm-linux-gnueabihf)
    fi
    for file in "$lib"/libtalapicommon.so.1 "$lib"/libtalapilog.so.1 "$lib"/libtalapicommon.so \
        "$lib"/talapi/modules/liborbapiITGT.so "$lib"/pkgconfig/talapi.pc \
        "$lib"/cmake/talapi/talapiConfig.cmake "$stage"/usr/include/talapi/talapi_types.h \
        "$stage"/usr/include/talapi/orbapi_itgt_module.h; do
        [[ -e $file ]] || fail "$arch: $file is not installed"
    done
    if [[ -e $stage/usr/bin/talapi_desk_server ]]; then  # the desk, where CivetWeb is
        [[ -e $stage/usr/share/talapi/desk-console/index.html ]] || fail "$arch: no console"
    fi
    while IFS= read -r -d '' file; do
        if [[ $(readelf -d "$file" 2> /dev/null | grep -E 'RPATH|RUNPATH') == *"$top"* ]]; then
            fail "$arch: $file has a build-tree RUNPATH"
        fi
    done < <(find "$stage" -type f \( -name '*.so*' -o -perm -u+x \) -print0)
    local module=$lib/talapi/modules/liborbapiITGT.so
    if [[ $arch == armhf ]]; then
        [[ $(readelf -d "$module") == *BIND_NOW* ]] || fail "armhf module without BIND_NOW"
        [[ $(readelf -lW "$module") == *GNU_RELRO* ]] || fail "armhf module without RELRO"
        [[ $(readelf -sW --dyn-syms "$module") == *__stack_chk_fail* ]] ||
            fail "armhf module without the stack protector"
        echo "stripped armhf module: $(stat -c %s "$(readlink -f "$module")") bytes"
    fi

    # The module alone, against the staged SDK.
    local derived=$top/build/sdk-$arch
    cmake -S . -B "$derived-module" "${toolchain[@]}" -DTALAPI_BUILD_HOST_STANDINS=OFF \
        -DCMAKE_PREFIX_PATH="$stage/usr" -DTALAPI_WERROR=ON > /dev/null
    cmake --build "$derived-module" -j"$(nproc)"

    # A consumer, both ways; its programs serve a GET through the staged simulator.
    cmake -S tests/sdk_consumer -B "$derived-consumer" "${toolchain[@]}" \
        -DCMAKE_PREFIX_PATH="$stage/usr" -DPKG_CONFIG_ARGN="--define-variable=talapi_root=$stage" \
        > /dev/null
    cmake --build "$derived-consumer" -j"$(nproc)"
    local root
    root=$(mktemp -d /tmp/talapi-sdk-XXXXXX)
    mkdir -p "$root/tmp"
    TALAPI_SOCKET_ROOT=$root LD_LIBRARY_PATH=$native_lib \
        "$top/build/stage-native/usr/bin/backend_simulator" --memory > "$root/simulator.out" 2>&1 &
    local simulator=$!
    for _ in $(seq 50); do grep -q 'listening on' "$root/simulator.out" && break; sleep 0.1; done
    local status=0
    for host in host_from_package host_from_pkgconfig; do
        if ! answer=$(TALAPI_SOCKET_ROOT=$root "${run[@]}" "$derived-consumer/$host" "$module" 2) ||
            ! grep -q '"channelId": 2' <<< "$answer"; then
            echo "sdk_check: $arch $host answered: $answer" >&2
            status=1
        fi
    done
    kill "$simulator"
    wait "$simulator" 2> /dev/null || true
    rm -rf "$root"
    ((status == 0)) || exit 1
    echo "sdk $arch: staged, module built alone, consumers answered"
}

check native "${1:-build/sdk-native}"  # first: both use its simulator
check armhf "${2:-build/sdk-armhf}"
