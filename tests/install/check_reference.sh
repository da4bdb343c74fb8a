#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_reference.sh SOURCE_FOLDER: the reference of the public headers can be made, and Doxygen misses nothing in it.
# It notices a function that nobody described. Exit code 77, skipped, without Doxygen.
set -euo pipefail
source=$1
command -v doxygen >/dev/null || exit 77

room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT
mkdir "$room/docs"
cp -r "$source/docs/doxygen" "$room/docs"
cp -r "$source/include" "$room"
cd "$room"

# warnings: makes the reference, and prints what Doxygen has to say.
warnings() {
    mkdir -p build
    doxygen docs/doxygen/Doxyfile 2>&1 >/dev/null
}

found=$(warnings)
if [[ $found ]]; then
    printf '%s\n' "$found" >&2
    exit 1
fi
[[ -f build/reference/html/index.html && -f build/reference/html/classzamclientlib_1_1IBackupJob.html ]]

# Only one header, to be quick.
find include -type f ! -name CAtomicEvent.h -delete
sed -i 's/^    bool IsSet() const override;$/&\n    bool HasNobodyDescribedThis() const;/' include/apigen/CAtomicEvent.h
if [[ $(warnings) != *HasNobodyDescribedThis*"not documented"* ]]; then
    echo "Doxygen would not notice a function without a description" >&2
    exit 1
fi
