#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Instructions per call of each mapping benchmark pair, counted by callgrind: repeatable on a
# busy machine, where times are not. Each benchmark runs with N and 2N iterations (and json-c's
# unseeded key hash, so that both runs do the same work); the difference
# divided by N leaves out its set-up. Usage: mapping_instructions.sh MAPPING_BENCH [N]
set -euo pipefail
bench=$1
n=${2:-200}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Instructions collected inside the benchmark function of one name, run for $2 iterations.
count() {
    local name=$1 iterations=$2 direction=${1%%/*} way=${1##*/}
    local function="${direction}${way^}"
    LD_BIND_NOW=1 valgrind --tool=callgrind --callgrind-out-file="$work/out" \
        --toggle-collect="*${function}<*" "$bench" --benchmark_filter="^$name(/|\$)" \
        --iterations="$iterations" --fixed-hash > /dev/null 2>&1
    callgrind_annotate "$work/out" | awk '/PROGRAM TOTALS/ { gsub(",", "", $1); print $1 }'
}

echo "| benchmark | schema (instructions/call) | hand-written | ratio |"
echo "|---|---:|---:|---:|"
for pair in $("$bench" --benchmark_list_tests | sed -n 's|/schema$||p'); do
    declare -A per_call=()
    for way in schema hand; do
        once=$(count "$pair/$way" "$n")
        twice=$(count "$pair/$way" $((2 * n)))
        per_call[$way]=$(((twice - once) / n))
    done
    awk -v pair="$pair" -v s="${per_call[schema]}" -v h="${per_call[hand]}" \
        'BEGIN { printf "| %s | %d | %d | %.3f |\n", pair, s, h, s / h }'
done
