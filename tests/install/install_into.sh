#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# install_into.sh CMAKE BUILD_FOLDER PREFIX [NEW_PREFIX]: installs the built tree into a prefix that was emptied
# before, and moves it on to the new one.
set -euo pipefail
cmake=$1 build=$2 prefix=$3 new=${4-}

rm -rf "$prefix"
"$cmake" --install "$build" --prefix "$prefix" >/dev/null
if [[ $new ]]; then
    rm -rf "$new"
    mv "$prefix" "$new"
fi
