#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_pkgconfig.sh LIBDIR COMPILER SOURCE TOOL VERSION: the program SOURCE builds with the flags that
# pkg-config gives, and runs.
set -euo pipefail
libdir=$1 compiler=$2 source=$3 tool=$4 version=$5

export PKG_CONFIG_PATH=$libdir/pkgconfig
[[ $(pkg-config --modversion zamclientlib) == "$version" ]]

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
read -ra flags <<<"$(pkg-config --cflags --libs zamclientlib)"
"$compiler" -std=c++17 -Wall -Wextra -Wpedantic -Werror "$source" "${flags[@]}" -o "$folder/consumer"
LD_LIBRARY_PATH=$libdir "$folder/consumer" "$tool"
