#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Stack and size of the armhf build: the largest frames of the module and the host services'
# frames that a stage adds (from the .su files of -fstack-usage); the stripped sizes of the module and the common
# library and their largest symbols. Usage: budget_report.sh ARMHF_BUILD_DIR
set -euo pipefail
build=$1
module=$build/access_server/talapi/orb_business/itgt
common=$build/access_server/talapi/common

echo "### Largest stack frames (armhf, -fstack-usage): the module's, and the host services' that a stage calls"
echo
echo "| function | own frame (bytes) |"
echo "|---|---:|"
frames() {  # .su files: "| name | bytes |" rows, largest first
    awk -F'\t' '{ name = $1; sub(/\(.*/, "", name); sub(/.* /, "", name); sub(/.*::/, "", name)
                   printf "%s\t%s\n", $2, name }' "$@" | sort -rn | awk -F'\t' '{ printf "| %s | %s |\n", $2, $1 }'
}
frames "$module"/CMakeFiles/orbapiITGT.dir/*.su | head -8
frames "$common"/CMakeFiles/talapicommon.dir/*.su "$common"/CMakeFiles/talapilog.dir/*.su |
    grep -E '\| (GetCommon|SetCommon|RestSendSynUnixMsg|SynExchange|VW_WriteLog|VW_WriteLanguageLog) ' |
    sed 's/^| \([A-Za-z_]*\) /| \1 (host) /'
echo
echo "### Stripped sizes (armhf)"
echo
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "| library | stripped bytes | KiB |"
echo "|---|---:|---:|"
module_file=$(find "$build" -path "*/talapi/modules/liborbapiITGT.so" -print -quit)
for library in "$module_file" "$common/libtalapicommon.so" "$common/libtalapilog.so"; do
    arm-linux-gnueabihf-strip -o "$work/stripped.so" "$library"
    bytes=$(stat -c %s "$work/stripped.so")
    awk -v name="$(basename "$library")" -v b="$bytes" \
        'BEGIN { printf "| %s | %d | %.1f |\n", name, b, b / 1024 }'
done
for library in "$module_file" "$common/libtalapicommon.so"; do
    echo
    echo "Sections of $(basename "$library"):"
    echo '```'
    arm-linux-gnueabihf-size -A "$library" | awk '$2 > 0 && $1 ~ /^\.(text|rodata|data|bss|dynsym|dynstr|rel|eh_frame|ARM)/'
    echo '```'
    echo "Largest symbols of $(basename "$library") (nm --size-sort):"
    echo '```'
    arm-linux-gnueabihf-nm --size-sort -C -S "$library" | tail -12 | awk '{ $1 = ""; print }' | cut -c1-150
    echo '```'
done
