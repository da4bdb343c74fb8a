#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_wire_document.sh SOURCE_FOLDER: the description of the wire lists exactly the methods of the code.
set -euo pipefail
cd "$1"

method_ids() {
    grep -rhoE '\b[A-Za-z]+_[0-9]{15,20}\b' "$@" | sort -u
}

[[ $(method_ids src) ]]
diff <(method_ids src) <(method_ids docs/wire.md)
