#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_tree.sh PREFIX CMAKE BUILD_FOLDER SOURCE_FOLDER LIBDIR VERSION: the installed files are those that were
# promised, and the two components together are the whole.
set -euo pipefail
prefix=$1 cmake=$2 build=$3 source=$4 libdir=$5 version=$6
major=${version%%.*}

parts=$(mktemp -d)
trap 'rm -rf "$parts"' EXIT

files_of() {
    (cd "$1" && find . ! -type d -printf '%P\n' | sort)
}

expected_runtime() {
    local name
    for name in ApiGenLib CommonLib ZamClientLib ZamServiceLib; do
        echo "$libdir/lib$name.so.$major"
        echo "$libdir/lib$name.so.$version"
    done
    for name in tarvoinstaller tarvoconfig tarvod zamctl; do
        echo "bin/$name"
    done
    # Each noun of zamctl has a page of its own.
    echo share/man/man1/zamctl.1
    for name in $("$prefix/bin/zamctl" __complete -- manual ""); do
        echo "share/man/man1/zamctl-$name.1"
    done
    echo share/bash-completion/completions/zamctl
    echo share/zsh/site-functions/_zamctl
    echo share/fish/vendor_completions.d/zamctl.fish
    echo share/zamclientlib/zamctl.schema.json
    echo lib/systemd/system/tarvod.service
    echo lib/systemd/system/tarvod.socket
    echo share/tarvo/tarvod.conf
}

expected_development() {
    local name
    for name in ApiGenLib CommonLib ZamClientLib ZamServiceLib; do
        echo "$libdir/lib$name.so"
    done
    (cd "$source" && find include -name '*.h')
    echo libexec/zamclientlib/testagent/tarvoconfig
    echo share/zamclientlib/wire.json
    (cd "$source" && find examples/python -name '*.py' -printf 'share/zamclientlib/%p\n')
    (cd "$source" && find examples/programs -type f -printf 'share/zamclientlib/%p\n')
    echo "$libdir/pkgconfig/zamclientlib.pc"
    echo "$libdir/pkgconfig/zamservicelib.pc"
    for name in Config ConfigVersion Targets; do
        echo "$libdir/cmake/zamclientlib/zamclientlib$name.cmake"
    done
}

for component in runtime development; do
    "$cmake" --install "$build" --prefix "$parts/$component" --component "$component" >/dev/null
    # One file of the package is named after the build's type.
    diff <("expected_$component" | sort) \
        <(files_of "$parts/$component" | grep -v '/zamclientlibTargets-[a-z]*\.cmake$')
done

diff <(files_of "$prefix") <({ files_of "$parts/runtime" && files_of "$parts/development"; } | sort)

# The prefix, which the unit names, may stand in the build's folder; the parts don't.
if grep -rIl -e "$build" -e "$source" "$parts"; then
    echo "these installed files name a folder of the build" >&2
    exit 1
fi
