// SPDX-License-Identifier: Apache-2.0
#include "verbs/Enums.h"

#include <algorithm>
#include <cctype>

#include "show/Words.h"

namespace zamctl {
namespace {

std::string Plain(std::string_view word) {
    std::string plain;
    for (const char c : word)
        if (c != '-') plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return plain;
}

}  // namespace

bool IsSameWord(std::string_view left, std::string_view right) {
    return Plain(left) == Plain(right);
}

std::size_t ChooseName(std::string_view what, std::string_view word, const std::vector<std::string>& names) {
    const auto found = std::find_if(names.begin(), names.end(),
                                    [&](const std::string& name) { return IsSameWord(name, word); });
    if (found != names.end()) return static_cast<std::size_t>(found - names.begin());
    throw CFailure(EExit::Usage, std::string(what) + " can't be " + Quoted(word),
                   "it is one of " + Joined(names));
}

}  // namespace zamctl
