#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_two_at_once.sh CMAKE BUILD_FOLDER FOLDER: two installations of one build at the same time, as two packages of it
# are made, each get files of their own.
set -euo pipefail
cmake=$1 build=$2 folder=$3

rm -rf "$folder"
for round in {1..8}; do
    pids=()
    for prefix in "$folder/$round/one" "$folder/$round/other"; do
        "$cmake" --install "$build" --prefix "$prefix" --component runtime >/dev/null &
        pids+=($!)
    done
    for pid in "${pids[@]}"; do wait "$pid"; done
    for prefix in "$folder/$round/one" "$folder/$round/other"; do
        grep -q "^ExecStart=$prefix/bin/tarvod" "$prefix/lib/systemd/system/tarvod.service" || {
            echo "The unit in $prefix starts another installation's agent." >&2
            exit 1
        }
    done
done
rm -rf "$folder"
