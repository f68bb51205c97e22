#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds everything, then runs the backend simulator in the background and the desk access
# server, with the console at its root, in the foreground (Ctrl-C stops both). PORT (default
# 8080) and TALAPI_SOCKET_ROOT (default: none, the daemon socket is /tmp/A) can be set in the
# environment.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build/desk -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF
cmake --build build/desk -j"$(nproc)"

port=${PORT:-8080}
run=build/desk-run
mkdir -p "$run"
build/desk/bin/backend_simulator --state "$run/backend-state.bin" \
    > "$run/simulator.out" 2>&1 &
simulator=$!
trap 'kill "$simulator" 2>/dev/null; wait "$simulator" 2>/dev/null || true' EXIT
for _ in $(seq 50); do
    grep -q 'listening on' "$run/simulator.out" && break
    kill -0 "$simulator" 2>/dev/null || { cat "$run/simulator.out"; exit 1; }
    sleep 0.1
done

cat <<MSG
Desk access server on http://127.0.0.1:$port (logs in $run).
Console: open http://127.0.0.1:$port/ in a browser. Or try:
  curl -s 'http://127.0.0.1:$port/api/v1/itgt/sys-back-language?ChannelId=1'
  curl -s -X PUT -d '{"mode": 2}' 'http://127.0.0.1:$port/api/v1/itgt/sys-back-language?ChannelId=1'
  curl -s 'http://127.0.0.1:$port/api/v1/itgt/capability'
Ctrl-C stops both programs.
MSG
build/desk/bin/talapi_desk_server --port "$port" --run-dir "$run" --document-root desk_console
