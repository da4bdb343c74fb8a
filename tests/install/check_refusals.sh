#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_refusals.sh INCLUDE_FOLDER COMPILER: what a user gets wrong is said by the compiler, in words, and not by the
# linker; what is right compiles without a warning.
set -euo pipefail
cd "$1"
compiler=$2
failed=0
limits=(-fmax-errors=0)
if [[ $compiler == clang* ]]; then limits=(-ferror-limit=0); fi

compile() {
    "$compiler" "-std=c++$1" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I . "${limits[@]}" -x c++ - 2>&1
}

prelude='#include <zamclientlib/ZamClientLib.h>
#include <zamclientlib/EventVisit.h>
#include <zamclientlib/RecordText.h>
#include <unordered_map>
using namespace zamclientlib;
enum class Mine { None };
struct SMine {
    int Number = 0;
    template <class Visitor> static constexpr void Fields(Visitor&& field) { field("Number", &SMine::Number); }
};
struct SOther {};
const std::shared_ptr<apigen::IData> data;
IZamControl& control();
'

# Each compilation reads all headers, so what belongs together is compiled together, each statement in a function and
# on a line of its own.
statements=() words=()

# refused WORDS STATEMENT
refused() {
    words+=("$1")
    statements+=("$2")
}

check_refusals() {
    local source=$prelude output i
    for i in "${!statements[@]}"; do
        source+=$'\n'"#line $((1000 + i))"$'\n'"void f$i() { ${statements[i]} }"
    done
    output=$(compile 17 <<<"$source") || true
    for i in "${!statements[@]}"; do
        if ! grep -q ":$((1000 + i)):" <<<"$output"; then
            printf 'not refused: %s\n' "${statements[i]}" >&2
            failed=1
        fi
    done
    local expected text
    while read -r expected text; do
        if (($(grep -cE "error: .*$text" <<<"$output") < expected)); then
            printf 'fewer than %s refusals with "%s":\n%s\n' "$expected" "$text" "$output" >&2
            failed=1
        fi
    done < <(printf '%s\n' "${words[@]}" | sort | uniq -c)
}

# fine STANDARD STATEMENTS...
fine() {
    local source=$prelude standard=$1 i
    shift
    for ((i = 1; i <= $#; ++i)); do
        source+=$'\n'"void f$i() { ${!i} }"
    done
    compile "$standard" <<<"$source" >&2 || failed=1
}

refused 'NameOf: not an enumeration' '(void)NameOf(Mine::None);'
refused 'NameOf: not an enumeration' '(void)NameOf(1);'
refused 'MemberNamed: not an enumeration' '(void)MemberNamed<Mine>("None");'
refused 'MembersOf: not an enumeration' '(void)MembersOf<int>();'
refused 'neither days' '(void)SetOf(JobState::Working);'
refused 'neither days' '(void)NamesOf<JobState>(1);'
refused 'neither days' '(void)SetNamed<JobState>("Working");'
refused 'neither days' '(void)SetOf(DaysOfWeek::Monday, MonthType::May);'
refused 'Serialize: this type' 'apigen::Serialize(*data, "k", 1.5);'
refused 'Serialize: this type' 'apigen::Serialize(*data, "k", "text");'
refused 'Serialize: this type' 'apigen::Serialize(*data, "k", SMine{});'
refused 'Serialize: this type' 'apigen::Serialize(*data, "k", Mine::None);'
refused 'Serialize: this type' 'apigen::Serialize(*data, "k", std::vector<int>());'
refused 'Serialize: an optional' 'apigen::Serialize(*data, "k", apigen::Optional<SMine>());'
refused 'Deserialize: this type' 'short n = 0; apigen::Deserialize(*data, "k", n);'
refused 'Deserialize: this type' 'SOther n; apigen::Deserialize(*data, "k", n);'
refused 'Deserialize: this type' 'apigen::ApiInternalError e("x"); apigen::Deserialize(*data, "k", e);'
refused 'Deserialize: an optional' 'apigen::Optional<char> n; apigen::Deserialize(*data, "k", n);'
refused 'SerializeVector: a list' 'apigen::SerializeVector(*data, "k", std::vector<bool>());'
refused 'SerializeVector: a list' 'apigen::SerializeVector(*data, "k", std::vector<JobState>());'
refused 'DeserializeVector: a list' 'std::vector<SMine> n; apigen::DeserializeVector(*data, "k", n);'
refused 'ForEachField: not a record' 'SOther n; apigen::ForEachField(n, [](const apigen::FieldInfo&, auto&) {});'
refused 'takes no kind of event' 'Visit(SBaseEvent{}, [](int*) {});'
# g++ 12 says nothing where the function is virtual.
if [[ $compiler == clang* ]]; then
    refused 'unused' 'control().GetProductInfo();'
    refused 'unused' 'control().IsOsxFDAGranted();'
fi
refused 'unused' 'apigen::Guid::Random();'
refused 'unused' 'apigen::Optional<int>().value_or(1);'

check_refusals

fine 17 \
    'static_assert(apigen::IsRecord<SMine> && apigen::IsRecord<const SVersion> && !apigen::IsRecord<SOther> &&
    !apigen::IsRecord<int>);' \
    '(void)ToText(SMine{});' \
    'SCredentials c; c.Password = "x"; apigen::Serialize(*data, "k", c); apigen::Serialize(*data, "k", c.Password);' \
    'apigen::Serialize(*data, "k", CJobIsRunning("x")); apigen::Serialize(*data, "k", apigen::ApiException("x"));' \
    'SCalendarInfo c; c.Days = DaysOfWeek::Monday | DaysOfWeek::Friday; c.Months |= MonthType::May; (void)c;' \
    'std::unordered_map<apigen::Guid, int> m; m[apigen::Guid{}] = 1;'
# Designated initialisers, where some fields are left out.
fine 20 '(void)SCredentials{.Login = "backup"}; (void)SBackupJobConfigurationInfo{.JobName = "nightly"};
    (void)SJobStartOptions{.Priority = EJobStartPriorityMode::High}; (void)SBaseEvent{.Id = 1};
    (void)SSystemInformation{.HostName = "h"}; (void)SBackupServerInfo{.Password = "p"}; (void)SEventConfig{};
    (void)SAapInfo{.MySQLInfo = SMySQLInfo{.AuthType = EMySQLAuthType::Password}};
    (void)SBackupJobSessionInfo{.State = JobState::Working}; (void)SPackageInfo{.Name = "n"};
    (void)SSharedFolderInfo{.Password = "p"}; (void)SCloudServiceProviderInfo{.Password = {}};'

# The macros of window systems: refused in words when they come first, harmless when they come last or are gone.
macros='#define None 0L
#define Success 0
#define Status int
'
for header in ZamClientLib Enums Control RecordText; do
    output=$(compile 17 <<<"$macros
#include <zamclientlib/$header.h>") || true
    if ! grep -qF 'None, Success, Unknown or Status is a macro' <<<"$output"; then
        echo "$header.h does not say which macros are in its way" >&2
        failed=1
    fi
    compile 17 <<<"#include <zamclientlib/$header.h>
$macros
#undef None
#undef Success
int main() { return static_cast<int>(zamclientlib::JobResult::Success); }" || failed=1
done
compile 17 <<<"$macros
#undef None
#undef Success
#undef Status
#include <zamclientlib/ZamClientLib.h>" || failed=1

((!failed))
