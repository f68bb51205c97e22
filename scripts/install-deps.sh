#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian 12 packages the project needs, only those missing (run as root).
#   install-deps.sh          build and run natively
#   install-deps.sh --all    also the tests' tools (fuzzing, valgrind, python, headless Chromium
#                            with its WebDriver) and the armhf cross toolchain with qemu
set -euo pipefail

packages=(build-essential cmake pkg-config tzdata curl libjson-c-dev libsafec-dev libcivetweb-dev)
if [[ "${1:-}" == "--all" ]]; then
    packages+=(clang-format clang libclang-rt-14-dev valgrind
               libgtest-dev libgmock-dev libbenchmark-dev wrk python3 python3-jsonschema python3-yaml
               chromium chromium-driver python3-selenium
               crossbuild-essential-armhf qemu-user-static
               libjson-c-dev:armhf libsafec-dev:armhf libgtest-dev:armhf libgmock-dev:armhf)
    if ! dpkg --print-foreign-architectures | grep -qx armhf; then
        dpkg --add-architecture armhf
    fi
fi

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done
if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# A mirror may be mid-sync for one architecture; what did download is still usable.
apt-get update || echo "warning: some package indexes could not be fetched; going on" >&2
if ! apt-get install -y --no-install-recommends "${missing[@]}"; then
    echo "warning: install failed, refreshing the indexes once more" >&2
    sleep 10
    apt-get update || true
    apt-get install -y --no-install-recommends "${missing[@]}"
fi
