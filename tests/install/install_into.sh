#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# install_into.sh CMAKE BUILD_FOLDER PREFIX: installs the built tree into a prefix that was emptied before.
set -euo pipefail
cmake=$1 build=$2 prefix=$3

rm -rf "$prefix"
"$cmake" --install "$build" --prefix "$prefix" >/dev/null
