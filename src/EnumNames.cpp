// SPDX-License-Identifier: Apache-2.0
// Names of enumeration members, taken from the compiler so that each member stands in one place only.
#include <zamclientlib/Enums.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "src/EnumList.h"

namespace zamclientlib {
namespace {

template <auto Value>
constexpr std::string_view PrettyName() {
    return __PRETTY_FUNCTION__;
}

/// "Working" from "... Value = zamclientlib::JobState::Working ..."; empty for "(zamclientlib::JobState)99".
template <auto Value>
constexpr std::string_view MemberName() {
    constexpr std::string_view Marker = "Value = ";
    std::string_view text = PrettyName<Value>();
    text.remove_prefix(text.find(Marker) + Marker.size());
    text = text.substr(0, text.find_first_of(";]"));
    return text.front() == '(' ? std::string_view() : text.substr(text.rfind(':') + 1);
}

template <class Enum>
struct SMember {
    Enum Value;
    std::string_view Name;
};

// Members are looked for among the small numbers, single bits and the full sets of bits.
constexpr int SmallNumbers = 32;
constexpr std::array Sets = {1 << 5, 1 << 6,  (1 << 7) - 1, 1 << 7,       1 << 8,
                             1 << 9, 1 << 10, 1 << 11,      (1 << 12) - 1};

constexpr int Candidate(std::size_t index) {
    return index < SmallNumbers ? static_cast<int>(index) : Sets[index - SmallNumbers];
}

template <class Enum, std::size_t... Index>
constexpr auto FindMembers(std::index_sequence<Index...> /*indexes*/) {
    constexpr std::array names = {MemberName<static_cast<Enum>(Candidate(Index))>()...};
    constexpr auto count = static_cast<std::size_t>(
        std::count_if(names.begin(), names.end(), [](auto name) { return !name.empty(); }));
    std::array<SMember<Enum>, count> members{};
    std::size_t found = 0;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!names[i].empty()) members[found++] = {static_cast<Enum>(Candidate(i)), names[i]};
    }
    return members;
}

/// In ascending order, as the candidates are.
template <class Enum>
constexpr auto Members = FindMembers<Enum>(std::make_index_sequence<SmallNumbers + Sets.size()>());

}  // namespace

template <class Enum>
std::string_view NameOf(Enum value) {
    for (const auto& member : Members<Enum>) {
        if (member.Value == value) return member.Name;
    }
    return {};
}

template <class Enum>
apigen::Optional<Enum> MemberNamed(std::string_view name) {
    for (const auto& member : Members<Enum>) {
        if (member.Name == name) return member.Value;
    }
    return {};
}

template <class Enum>
const std::vector<Enum>& MembersOf() {
    static const auto values = [] {
        std::vector<Enum> list;
        list.reserve(Members<Enum>.size());
        for (const auto& member : Members<Enum>)
            list.push_back(member.Value);
        return list;
    }();
    return values;
}

#define ZAM_INSTANTIATE(type)                                                       \
    template APIGEN_API std::string_view NameOf(type);                              \
    template APIGEN_API apigen::Optional<type> MemberNamed<type>(std::string_view); \
    template APIGEN_API const std::vector<type>& MembersOf<type>();

ZAM_FOR_EACH_ENUM(ZAM_INSTANTIATE)

}  // namespace zamclientlib
