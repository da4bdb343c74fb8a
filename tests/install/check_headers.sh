#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_headers.sh INCLUDE_FOLDER COMPILER STANDARD alone|together: each header compiles as the only one of a program; or
# all of them do in one.
set -euo pipefail
cd "$1"
compiler=$2 standard=$3 how=$4

compile() {
    "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I . -x c++ -
}

failed=0 count=0 all=""
while read -r header; do
    count=$((count + 1))
    all+="#include <$header>"$'\n'
    if [[ $how == alone ]]; then compile <<<"#include <$header>" || failed=1; fi
done < <(find . -name '*.h' -printf '%P\n' | sort)
if [[ $how == together ]]; then compile <<<"$all" || failed=1; fi

echo "$count headers"
((count > 0 && !failed))
