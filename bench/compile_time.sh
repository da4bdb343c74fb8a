#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What the library costs a user's build: the time to compile all of its headers, as a ratio to that of three
# headers of the standard library; and the size of the stripped libraries.
#
#   compile_time.sh [--once] COMPILER INCLUDE-FOLDER LIBRARY...
set -euo pipefail
export LC_ALL=C CCACHE_DISABLE=1

rounds=9
if [[ ${1-} == --once ]]; then
    rounds=1
    shift
fi
if (($# < 3)); then
    echo "usage: compile_time.sh [--once] COMPILER INCLUDE-FOLDER LIBRARY..." >&2
    exit 2
fi
compiler=$1 include=$2
shift 2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

printf '#include <%s>\n' zamclientlib/ZamClientLib.h >"$folder/ours.cpp"
printf '#include <%s>\n' string vector memory >"$folder/floor.cpp"

# Processor time, in seconds.
compile() {
    local TIMEFORMAT='%U %S'
    { time "$compiler" -std=c++17 -O2 -I "$include" -c "$folder/$1.cpp" -o "$folder/$1.o" 2>"$folder/errors"; } 2>&1 |
        awk '{ print $1 + $2 }'
    if [[ -s $folder/errors ]]; then
        cat "$folder/errors" >&2
        return 1
    fi
}

for ((round = 0; round < rounds; ++round)); do
    echo "$(compile ours) $(compile floor)"
done | awk '
    { ratio[NR] = $1 / $2; ours += $1; floor += $2 }
    END {
        for (i = 2; i <= NR; ++i)
            for (j = i; j > 1 && ratio[j] < ratio[j - 1]; --j) { t = ratio[j]; ratio[j] = ratio[j - 1]; ratio[j - 1] = t }
        middle = ratio[int((NR + 1) / 2)]
        printf "all headers: %.2f s, floor %.2f s, ratio %.2f (%.2f - %.2f), goal 2.00 %s\n", ours / NR, floor / NR,
            middle, ratio[1], ratio[NR], middle <= 2 ? "met" : "MISSED"
    }'

total=0
for library; do
    strip -o "$folder/stripped" "$library"
    size=$(stat -c %s "$folder/stripped")
    printf '%-24s %8d bytes stripped\n' "$(basename "$library")" "$size"
    total=$((total + size))
done
printf '%-24s %8d bytes, goal 1500000 %s\n' together "$total" "$( ((total <= 1500000)) && echo met || echo MISSED)"
