// SPDX-License-Identifier: Apache-2.0
/// \file
/// Reading JSON without mercy: what is not understood is refused, with its place and what would be accepted.
#pragma once

#include <apigen/Guid.h>
#include <zamclientlib/Enums.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace testagent {

/// Parses a text in which no object has a member twice.
/// \throws std::runtime_error
nlohmann::json ParseStrictly(const std::string& text);

/// The text in quotation marks, without control characters and no longer than a message can bear.
std::string Quoted(const std::string& text);

/// "one, two"
std::string Listed(const std::vector<std::string>& names);

/// An object of which each member is read once; `Finish` refuses those that nobody asked for, so that a
/// misspelt name does not pass silently. A member that is absent leaves its value as it is.
///
/// Does not own the object.
class CMembers {
public:
    CMembers(const nlohmann::json& object, std::string place);

    [[noreturn]] void Refuse(const std::string& what) const;
    [[noreturn]] void Refuse(const char* name, const std::string& what) const;

    /// \return whether the member is there; so do those below
    bool ReadText(const char* name, std::string& value);
    void ReadTexts(const char* name, std::vector<std::string>& values);
    void ReadFlag(const char* name, bool& value);
    bool ReadGuid(const char* name, apigen::Guid& value);
    void ReadMilliseconds(const char* name, std::chrono::milliseconds& value, std::uint64_t least);

    template <class T>
    void ReadNumber(const char* name, T& value, std::uint64_t least = 0,
                    std::uint64_t most = std::numeric_limits<T>::max()) {
        if (const auto* const member = Take(name))
            value = static_cast<T>(NumberOf(name, *member, least, most));
    }

    template <class E>
    void ReadEnum(const char* name, E& value) {
        std::string text;
        if (!ReadText(name, text)) return;
        if (const auto member = zamclientlib::MemberNamed<E>(text)) {
            value = *member;
            return;
        }
        std::vector<std::string> names;
        for (const E member : zamclientlib::MembersOf<E>())
            names.emplace_back(zamclientlib::NameOf(member));
        Refuse(name, "there is no " + Quoted(text) + "; accepted are " + Listed(names));
    }

    template <class F>
    void ReadObject(const char* name, F read) {
        const auto* const member = Take(name);
        if (member == nullptr) return;
        CMembers members(*member, m_place + "." + name);
        read(members);
        members.Finish();
    }

    template <class F>
    void ReadList(const char* name, F read) {
        const auto* const list = TakeList(name);
        if (list == nullptr) return;
        std::size_t index = 0;
        for (const auto& element : *list) {
            CMembers members(element, m_place + "." + name + "[" + std::to_string(index++) + "]");
            read(members);
            members.Finish();
        }
    }

    void Finish() const;

private:
    const nlohmann::json* Take(const char* name);
    const nlohmann::json* TakeList(const char* name);
    std::uint64_t NumberOf(const char* name, const nlohmann::json& member, std::uint64_t least,
                           std::uint64_t most) const;

    const nlohmann::json& m_object;
    std::string m_place;
    std::set<std::string> m_known;  ///< the names that were asked for
};

}  // namespace testagent
