// SPDX-License-Identifier: Apache-2.0
// Names of enumeration members, taken from the compiler so that each member stands in one place only.
#include <zamclientlib/Enums.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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

struct SMember {
    int Value;
    std::string_view Name;
};

/// The members of an enumeration, whichever it is.
struct SMembers {
    const SMember* First;
    const SMember* Last;

    const SMember* begin() const { return First; }
    const SMember* end() const { return Last; }
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
    std::array<SMember, count> members{};
    std::size_t found = 0;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!names[i].empty()) members[found++] = {Candidate(i), names[i]};
    }
    return members;
}

/// In ascending order, as the candidates are.
template <class Enum>
constexpr auto Members = FindMembers<Enum>(std::make_index_sequence<SmallNumbers + Sets.size()>());

template <class Enum>
SMembers All() {
    return {Members<Enum>.data(), Members<Enum>.data() + Members<Enum>.size()};
}

const SMember* Find(SMembers members, int value) {
    for (const auto& member : members) {
        if (member.Value == value) return &member;
    }
    return nullptr;
}

const SMember* Find(SMembers members, std::string_view name) {
    for (const auto& member : members) {
        if (member.Name == name) return &member;
    }
    return nullptr;
}

std::string Names(SMembers members, unsigned int set) {
    if (const auto* const whole = Find(members, static_cast<int>(set))) return std::string(whole->Name);
    std::string names;
    for (const auto& member : members) {
        const auto bit = static_cast<unsigned int>(member.Value);
        if (bit == 0 || (bit & (bit - 1)) != 0 || (set & bit) == 0) continue;
        names.append(names.empty() ? "" : "|").append(member.Name);
        set &= ~bit;
    }
    if (set != 0) names.append(names.empty() ? "" : "|").append(std::to_string(set));
    return names;
}

apigen::Optional<unsigned int> Set(SMembers members, std::string_view names) {
    constexpr std::string_view Separators = "|,";
    constexpr std::string_view Blanks = " \t";
    unsigned int set = 0;
    while (true) {
        const std::size_t end = names.find_first_of(Separators);
        std::string_view name = names.substr(0, end);
        name.remove_prefix(std::min(name.find_first_not_of(Blanks), name.size()));
        name = name.substr(0, name.find_last_not_of(Blanks) + 1);
        const auto* const member = Find(members, name);
        if (member == nullptr) return {};
        set |= static_cast<unsigned int>(member->Value);
        if (end == std::string_view::npos) return set;
        names.remove_prefix(end + 1);
    }
}

}  // namespace

namespace detail {

template <class Enum>
std::string_view NameOf(Enum value) {
    const auto* const member = Find(All<Enum>(), static_cast<int>(value));
    return member != nullptr ? member->Name : std::string_view();
}

template <class Enum>
apigen::Optional<Enum> MemberNamed(std::string_view name) {
    const auto* const member = Find(All<Enum>(), name);
    if (member == nullptr) return {};
    return static_cast<Enum>(member->Value);
}

template <class Enum>
const std::vector<Enum>& MembersOf() {
    // Never destroyed: for whoever asks at the very end of the program.
    static const auto& values = *[] {
        auto list = std::make_unique<std::vector<Enum>>();
        list->reserve(Members<Enum>.size());
        for (const auto& member : Members<Enum>)
            list->push_back(static_cast<Enum>(member.Value));
        return list.release();
    }();
    return values;
}

template <class Enum>
std::string NamesOf(unsigned int set) {
    return Names(All<Enum>(), set);
}

template <class Enum>
apigen::Optional<unsigned int> SetNamed(std::string_view names) {
    return Set(All<Enum>(), names);
}

#define ZAM_INSTANTIATE(type)                                                       \
    template APIGEN_API std::string_view NameOf(type);                              \
    template APIGEN_API apigen::Optional<type> MemberNamed<type>(std::string_view); \
    template APIGEN_API const std::vector<type>& MembersOf<type>();

ZAM_FOR_EACH_ENUM(ZAM_INSTANTIATE)

#define ZAM_INSTANTIATE_SET(type)                                \
    template APIGEN_API std::string NamesOf<type>(unsigned int); \
    template APIGEN_API apigen::Optional<unsigned int> SetNamed<type>(std::string_view)

ZAM_INSTANTIATE_SET(DaysOfWeek);
ZAM_INSTANTIATE_SET(MonthType);

}  // namespace detail

}  // namespace zamclientlib
