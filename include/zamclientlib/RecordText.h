// SPDX-License-Identifier: Apache-2.0
/// \file
/// Records and enumerations as text for people: logs, terminals, failed tests. Secrets are not shown.
///
/// The form is not for programs, and may change.
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/Handle.h>
#include <apigen/Optional.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Enums.h>

#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace zamclientlib APIGEN_API {

/// UTC in the form of ISO 8601, "2026-11-21T16:30:15.250Z".
[[nodiscard]] APIGEN_API std::string ToText(const SDateTime& time);

/// Seconds, "90.500s"; "-0.500s" below zero.
[[nodiscard]] APIGEN_API std::string ToText(const STimeSpan& span);

/// The member's name, or the number of a value that names none.
template <class Enum, std::enable_if_t<IsEnumeration<Enum>, int> = 0>
[[nodiscard]] std::string ToText(Enum value) {
    const std::string_view name = NameOf(value);
    return name.empty() ? std::to_string(static_cast<int>(value)) : std::string(name);
}

namespace detail {

APIGEN_API void Append(std::string& text, std::string_view piece);
APIGEN_API void AppendQuoted(std::string& text, std::string_view value);
APIGEN_API void AppendKey(std::string& text, std::string_view key);
APIGEN_API void Stream(std::ostream& stream, std::string_view text);

template <class Record>
void AppendFields(std::string& text, const Record& record);

template <class T>
void AppendValue(std::string& text, const T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        AppendQuoted(text, value);
    } else if constexpr (std::is_same_v<T, bool>) {
        Append(text, value ? "true" : "false");
    } else if constexpr (std::is_same_v<T, apigen::Guid>) {
        Append(text, value.Serialize());
    } else if constexpr (std::is_same_v<T, apigen::Handle>) {
        Append(text, std::to_string(value.Value));
    } else if constexpr (std::is_arithmetic_v<T>) {
        Append(text, std::to_string(value));
    } else if constexpr (IsEnumeration<T> || std::is_same_v<T, SVersion> || std::is_same_v<T, SDateTime> ||
                         std::is_same_v<T, STimeSpan>) {
        Append(text, ToText(value));
    } else {
        static_assert(apigen::IsRecord<T>,
                      "zamclientlib::ToText: a field's type is none that a record can have");
        AppendFields(text, value);
    }
}

template <class T>
void AppendValue(std::string& text, const apigen::Optional<T>& value) {
    value ? AppendValue(text, *value) : Append(text, "none");
}

template <class T>
void AppendValue(std::string& text, const std::vector<T>& values) {
    Append(text, "[");
    const char* separator = "";
    for (const auto& value : values) {
        Append(text, separator);
        AppendValue(text, value);
        separator = ", ";
    }
    Append(text, "]");
}

template <class T>
bool IsAbsent(const T& /*value*/) {
    return false;
}
template <class T>
bool IsAbsent(const apigen::Optional<T>& value) {
    return !value.HasValue();
}

template <class Record>
void AppendFields(std::string& text, const Record& record) {
    Append(text, "{");
    apigen::ForEachField(record, [&](const apigen::FieldInfo& info, const auto& field) {
        AppendKey(text, info.Key);
        if (!info.IsSecret) {
            AppendValue(text, field);
        } else {
            Append(text, IsAbsent(field) ? "none" : "***");
        }
    });
    Append(text, "}");
}

}  // namespace detail

/// All fields in one line, `{Login: "backup", Domain: "", Password: ***}`: a secret as `***` whatever it is, an absent
/// value as `none`, a text in quotes with what could garble a terminal escaped.
template <class Record, std::enable_if_t<apigen::IsRecord<Record>, int> = 0>
[[nodiscard]] std::string ToText(const Record& record) {
    std::string text;
    detail::AppendFields(text, record);
    return text;
}

/// Writes what `ToText` gives.
template <class T, std::enable_if_t<apigen::IsRecord<T> || IsEnumeration<T>, int> = 0>
std::ostream& operator<<(std::ostream& stream, const T& value) {
    detail::Stream(stream, ToText(value));
    return stream;
}

}  // namespace zamclientlib
