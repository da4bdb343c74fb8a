#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_pkgconfig.sh LIBDIR COMPILER CONSUMER_FOLDER PREFIX VERSION: the consumer's service and program build with
# the flags that pkg-config gives, and run.
set -euo pipefail
libdir=$1 compiler=$2 consumer=$3 prefix=$4 version=$5

export PKG_CONFIG_PATH=$libdir/pkgconfig
for package in zamclientlib zamservicelib; do
    [[ $(pkg-config --modversion "$package") == "$version" ]]
done
path_of() {
    realpath --canonicalize-existing "$(pkg-config --variable="$1" zamclientlib)"
}
tool=$(path_of tarvoinstaller)
agent=$(path_of testagentdir)
[[ $tool == "$(realpath "$prefix")"/* && $agent == "$(realpath "$prefix")"/* ]]

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
build() {
    local package=$1 source=$2 flags
    shift 2
    read -ra flags <<<"$(pkg-config --cflags --libs "$package")"
    "$compiler" -std=c++17 -Wall -Wextra -Wpedantic -Werror "$consumer/$source" "$@" "${flags[@]}" \
        -o "$folder/${source%.cpp}"
}
build zamservicelib service.cpp
build zamclientlib main.cpp "-DTARVOINSTALLER=\"$tool\"" "-DTESTAGENT_DIR=\"$agent\"" "-DSERVICE=\"$folder/service\""
LD_LIBRARY_PATH=$libdir "$folder/main"
