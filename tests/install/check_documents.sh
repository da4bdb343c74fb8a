#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_documents.sh methods|headers SOURCE_FOLDER: the documents leave nothing out. The description of the wire
# lists exactly the methods of the code; the README has a word on every public header.
set -euo pipefail
cd "$2"

method_ids() {
    grep -rhoE '\b[A-Za-z]+_[0-9]{15,20}\b' "$@" | sort -u
}

header_names() {
    find include -name '*.h' -printf '%f\n' | sort -u
}

case $1 in
methods)
    [[ $(method_ids src) ]]
    diff <(method_ids src) <(method_ids docs/wire.md)
    ;;
headers)
    diff <(header_names) <(grep -oE '[A-Za-z]+\.h\b' README.md | sort -u)
    ;;
*) exit 2 ;;
esac
