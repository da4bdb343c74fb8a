#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_headers.sh INCLUDE_FOLDER COMPILER STANDARD: each header compiles as the only one of a program.
set -euo pipefail
cd "$1"
compiler=$2 standard=$3

failed=0 count=0
while read -r header; do
    count=$((count + 1))
    "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I . -x c++ - \
        <<<"#include <$header>" || failed=1
done < <(find . -name '*.h' -printf '%P\n' | sort)

echo "$count headers"
((count > 0 && !failed))
