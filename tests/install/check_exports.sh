#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_exports.sh LIBDIR: what the shared libraries export belongs to their own namespaces, or is a template
# of the standard library made for them; nothing of another library leaks out.
set -euo pipefail
cd "$1"

# A mangled name opens with what it is (a vtable, a thunk, a static of a function) and then with its
# outermost namespace: "St" and the like are the standard library's, N9__gnu_cxx a part of it.
kind='(GV|TV|TI|TS|TT|Th[n0-9]+_|Tv[n0-9]+_n?[0-9]+_|Z)*'
own='N[KVRO]*(6apigen|12zamclientlib|10zamservice)'
standard='N?[KVRO]*(S[tabsiod]|9__gnu_cxx)'
foreign='(^|[^[:alnum:]_])(pugi|CLI|sdbus|testing|benchmark)::|XML_|sd_bus'

failed=0
for library in libCommonLib libApiGenLib libZamClientLib libZamServiceLib; do
    names=$(nm -D --defined-only --format=posix "$library.so" | cut -d' ' -f1 | sed 's/@.*//')
    grep -qE "^_Z$own" <<<"$names" || {
        echo "$library exports nothing of its own" >&2
        failed=1
    }
    leaks=$(
        {
            grep -vE "^_Z$kind($own|$standard)|^_(init|fini)$" <<<"$names" | c++filt
            c++filt <<<"$names" | grep -E "$foreign"
        } | sort -u
    ) || true
    if [[ $leaks ]]; then
        printf '%s exports names that are not its own:\n%s\n' "$library" "$leaks" >&2
        failed=1
    fi
done
exit $failed
