#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Load on the desk: wrk against the desk access server, each API case next to a static file of
# the same bytes served by the same server process (CivetWeb's own file serving, the HTTP floor).
#
# usage: bash bench/desk_load.sh [BUILD_DIR]   (default build/bench)
# Environment: DURATION seconds per case (default 10), SMOKE=1 for a one-second run of every
# case, DEBUG_FLAG for the desk server's --debug-flag (default 3, failures only),
# SERVER_OPTIONS for more desk server options (say "--threads 16"), SIMULATOR_OPTIONS for the
# backend simulator's (default --memory; "--state FILE" saves every write to FILE).
# BUILD_DIR holds bin/backend_simulator and bin/talapi_desk_server, which finds the module. The simulator and the server run on a free port and a private TALAPI_SOCKET_ROOT, and
# are stopped on exit. Prints a Markdown table; exits non-zero when a case had responses that
# were not 2xx or 3xx.
set -euo pipefail

bench_dir=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "${1:-$bench_dir/../build/bench}")
duration=${DURATION:-10}
[[ ${SMOKE:-0} == 1 ]] && duration=1
debug_flag=${DEBUG_FLAG:-3}
read -r -a server_options <<< "${SERVER_OPTIONS:-}"
connections=16
threads=2

simulator_bin=$build/bin/backend_simulator
server_bin=$build/bin/talapi_desk_server
for file in "$simulator_bin" "$server_bin"; do
    [[ -e $file ]] || { echo "desk_load: missing $file (build first)" >&2; exit 1; }
done
command -v wrk > /dev/null || { echo "desk_load: wrk is not installed" >&2; exit 1; }

root=$(mktemp -d /tmp/talapi-bench-XXXXXX)
export TALAPI_SOCKET_ROOT=$root
mkdir -p "$root/tmp" "$root/www" "$root/run" "$root/wrk"
simulator=
server=
stop() {
    for pid in $server $simulator; do
        kill "$pid" 2> /dev/null || true
        wait "$pid" 2> /dev/null || true
    done
    rm -rf "$root"
}
trap stop EXIT

# Waits until a program's first output line says it listens; prints that line.
await_listening() {
    local pid=$1 out=$2
    for _ in $(seq 100); do
        if grep -q 'listening on' "$out"; then
            grep -m1 'listening on' "$out"
            return 0
        fi
        kill -0 "$pid" 2> /dev/null || break
        sleep 0.1
    done
    echo "desk_load: $(basename "$out" .out) did not start:" >&2
    cat "$out" >&2
    return 1
}

# The simulator keeps its settings in memory: saving its whole state file on every write would
# make a PUT measure that file, not the desk. SIMULATOR_OPTIONS replaces that choice.
read -r -a simulator_options <<< "${SIMULATOR_OPTIONS:---memory}"
"$simulator_bin" "${simulator_options[@]}" > "$root/simulator.out" 2>&1 &
simulator=$!
await_listening "$simulator" "$root/simulator.out" > /dev/null

"$server_bin" --port 0 --run-dir "$root/run" --debug-flag "$debug_flag" \
    --document-root "$root/www" "${server_options[@]}" > "$root/server.out" 2>&1 &
server=$!
banner=$(await_listening "$server" "$root/server.out")
base=${banner##* }  # "... listening on http://127.0.0.1:PORT"

language="/api/v1/itgt/sys-back-language?ChannelId=1"
frame_osd="/api/v1/itgt/frame-osd?ChannelId=1&OverlayPicType=0&BusinessType=TrafficDome"

# The static twins: the API's exact bytes, then checked to come back unchanged as files.
curl -sS --fail -o "$root/www/language.json" "$base$language"
curl -sS --fail -o "$root/www/frame-osd.json" "$base$frame_osd"
for name in language.json frame-osd.json; do
    curl -sS --fail -o "$root/check" "$base/$name"
    cmp -s "$root/check" "$root/www/$name" ||
        { echo "desk_load: /$name is not served as written" >&2; exit 1; }
done

# name|wrk options|path|what it is compared with (empty for a static case)|least ratio|script
# arguments. Connections are kept alive (wrk's and CivetWeb's default), as browsers and clients
# do. PUTs to one instance take turns; the 4-instance case is compared with the one-instance one.
cases=(
    "GET language||$language|static language|0.85|"
    "GET frame OSD||$frame_osd|static frame OSD|0.85|"
    "PUT language|-s $bench_dir/put_language.lua|$language|static language|0.7|1"
    "static language||/language.json|||"
    "static frame OSD||/frame-osd.json|||"
    "PUT language, 4 instances|-s $bench_dir/put_language.lua|$language|PUT language||4"
)

# Milliseconds of a wrk time ("850.00us", "7.88ms", "1.02s", "1.50m").
to_ms() {
    awk -v t="$1" 'BEGIN {
        if (match(t, /^[0-9.]+/) == 0) { print "?"; exit }
        v = substr(t, 1, RLENGTH); u = substr(t, RLENGTH + 1)
        f = u == "us" ? 0.001 : u == "ms" ? 1 : u == "s" ? 1000 : u == "m" ? 60000 : \
            u == "h" ? 3600000 : -1
        if (f < 0) print "?"; else printf "%.2f", v * f
    }'
}

# Each static twin runs just before its API case, so that both see the machine in the same state.
order=(3 0 4 1 2 5)

declare -A rps p99 notes
failed=0
for index in "${order[@]}"; do
    IFS='|' read -r name options path _ _ arguments <<< "${cases[$index]}"
    out=$root/wrk/${name// /_}.out
    # shellcheck disable=SC2086  # options is empty or "-s SCRIPT", arguments empty or one word
    if ! wrk -t"$threads" -c"$connections" -d"${duration}s" --latency $options "$base$path" \
        $arguments > "$out" 2>&1; then
        echo "desk_load: wrk failed on $name:" >&2
        cat "$out" >&2
        exit 1
    fi
    rps[$name]=$(awk '/^Requests\/sec:/ {print $2}' "$out")
    p99[$name]=$(to_ms "$(awk '/^[[:space:]]*99%[[:space:]]/ {print $2; exit}' "$out")")
    note=
    non2xx=$(awk -F': *' '/Non-2xx or 3xx responses/ {print $2}' "$out")
    if [[ -n $non2xx ]]; then
        note="$non2xx non-2xx/3xx responses"
        failed=1
    fi
    errors=$(grep -m1 'Socket errors' "$out" | sed 's/^ *Socket errors: *//' || true)
    [[ -n $errors ]] && note="${note:+$note; }socket errors: $errors"
    if [[ -z ${rps[$name]} ]]; then
        note="${note:+$note; }no Requests/sec in wrk's output"
        rps[$name]=0
        failed=1
    fi
    notes[$name]=$note
done
kill -0 "$server" 2> /dev/null || { echo "desk_load: the desk server died" >&2; exit 1; }

echo
echo "wrk -t$threads -c$connections -d${duration}s --latency; desk server on $base with" \
    "--debug-flag $debug_flag${SERVER_OPTIONS:+ $SERVER_OPTIONS}; simulator with" \
    "${simulator_options[*]}; $(nproc) CPUs shared by wrk, the server and the simulator"
echo
echo "| case | requests/s | p99 latency (ms) | ratio | notes |"
echo "|---|---:|---:|---:|---|"
below=
for row in "${cases[@]}"; do
    IFS='|' read -r name _ _ twin goal _ <<< "$row"
    ratio=
    if [[ -n $twin ]]; then
        ratio=$(awk -v a="${rps[$name]}" -v b="${rps[$twin]}" \
            'BEGIN { if (b > 0) printf "%.2f", a / b; else print "?" }')
        if [[ -n $goal ]] && awk -v r="$ratio" -v g="$goal" 'BEGIN { exit !(r == "?" || r < g) }'
        then
            below+=" $name ($ratio, goal $goal)"
        fi
        ratio="$ratio of $twin"
    fi
    printf '| %s | %.0f | %s | %s | %s |\n' "$name" "${rps[$name]}" "${p99[$name]}" "$ratio" \
        "${notes[$name]}"
done
echo
echo "debug.log: $(wc -l < "$root/run/debug.log") lines," \
    "operation.log: $(wc -l < "$root/run/operation.log") lines"
if [[ -n $below ]]; then
    echo "below the goal:$below"
fi
if ((failed)); then
    echo "desk_load: some case had responses that were not 2xx or 3xx (see notes)" >&2
    exit 1
fi
