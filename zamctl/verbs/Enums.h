// SPDX-License-Identifier: Apache-2.0
/// \file
/// Words that name a member of an enumeration.
#pragma once

#include <zamclientlib/Enums.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "verbs/Verb.h"

namespace zamctl {

/// Whether both are one word, in any case, with dashes or without: "read-only" is ReadOnly.
[[nodiscard]] bool IsSameWord(std::string_view left, std::string_view right);

/// The index of the name that `word` is, as `IsSameWord` has it.
/// \param what "--mode": for messages
/// \throws CFailure (Usage) with the names that there are
[[nodiscard]] std::size_t ChooseName(std::string_view what, std::string_view word,
                                     const std::vector<std::string>& names);

/// The member that a word names. "Unknown" is none: nobody can want it.
/// \throws CFailure (Usage)
template <class Enum>
[[nodiscard]] Enum EnumNamed(std::string_view what, std::string_view word) {
    std::vector<Enum> members;
    std::vector<std::string> names;
    for (const Enum member : zamclientlib::MembersOf<Enum>()) {
        if (zamclientlib::NameOf(member) == "Unknown") continue;
        members.push_back(member);
        names.emplace_back(zamclientlib::NameOf(member));
    }
    return members[ChooseName(what, word, names)];
}

/// What an option says, none when it was not given. \throws CFailure (Usage)
template <class Enum>
[[nodiscard]] std::optional<Enum> EnumOption(const CCall& call, std::string_view name) {
    const auto word = call.Optional(name);
    if (!word) return std::nullopt;
    return EnumNamed<Enum>(name, *word);
}

/// \overload
template <class Enum>
[[nodiscard]] Enum EnumOption(const CCall& call, std::string_view name, Enum otherwise) {
    return EnumOption<Enum>(call, name).value_or(otherwise);
}

}  // namespace zamctl
