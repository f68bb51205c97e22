#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The module exports exactly the stage functions its header declares (24), and takes the host
# services from the host libraries dynamically rather than carrying copies of them.
# Usage: module_exports.sh READELF MODULE HEADER
set -eu
readelf=$1 module=$2 header=$3
declared=$(grep -o '\b\(Run\|Format\|PreProc\|Parse\)\(Get\|Put\|Post\)ITGT[A-Za-z]*' "$header" |
    sort -u)
symbols=$("$readelf" -W --dyn-syms "$module")
defined=$(echo "$symbols" | awk '($5 == "GLOBAL" || $5 == "WEAK") && $7 != "UND" {print $8}' |
    sed 's/@.*//' | sort -u)
status=0
[ "$(echo "$declared" | wc -l)" -eq 24 ] || { echo "the header declares:"; echo "$declared"; status=1; }
[ "$defined" = "$declared" ] || { echo "exported:"; echo "$defined"; status=1; }
needed=$("$readelf" -d "$module" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for library in libtalapicommon.so.1 libtalapilog.so.1; do
    echo "$needed" | grep -qx "$library" || { echo "not linked to $library"; status=1; }
done
imports=$(echo "$symbols" | awk '$7 == "UND" {print $8}')
for service in GetCommon SetCommon RestSendSynUnixMsg GetURIQueryParamByKey FormatCommonStatus \
    cJSON_Parse VW_WriteLog VW_WriteLanguageLog g_enDebugFlag; do
    echo "$imports" | grep -q "$service" || { echo "does not import $service"; status=1; }
done
exit $status
