// SPDX-License-Identifier: Apache-2.0
/// \file
/// The fields of a record as a list that a program can walk.
#pragma once

#include <apigen/Export.h>

#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

namespace apigen APIGEN_API {

/// One field of a record: its key on the wire, and whether its value is a secret that must not be shown.
struct FieldInfo {
    /// The field's name in the record and on the wire.
    std::string_view Key;
    /// Whether its value must not be shown.
    bool IsSecret = false;

    /// From a literal, which outlives it.
    template <std::size_t Size>
    constexpr FieldInfo(const char (&key)[Size], bool isSecret = false)  // NOLINT: implicit by design
        : Key(key, Size - 1), IsSecret(isSecret) {}
};

/// Marks a field of a record's list as a secret: a password, for instance.
template <std::size_t Size>
[[nodiscard]] constexpr FieldInfo Secret(const char (&key)[Size]) {
    return FieldInfo(key, true);
}

namespace detail {
struct NoVisit {
    template <class Member>
    constexpr void operator()(const FieldInfo& /*info*/, Member /*member*/) const {}
};

template <class T, class = void>
inline constexpr bool HasFields = false;
template <class T>
inline constexpr bool HasFields<T, decltype(T::Fields(NoVisit{}))> = true;

/// An API says by a declaration `template <class T> std::true_type HasEncoders(const T*);` in its namespace that its
/// records, enumerations and exceptions have encoders.
template <class T, class = void>
inline constexpr bool IsOfAnApi = false;
template <class T>
inline constexpr bool IsOfAnApi<T, std::enable_if_t<decltype(HasEncoders(std::declval<const T*>()))::value>> =
    true;
}  // namespace detail

/// True for what lists its fields: every record of an API, and of a program's own that has such a `Fields`.
template <class T>
inline constexpr bool IsRecord = detail::HasFields<std::remove_cv_t<T>>;

/// Calls `visit(const FieldInfo&, value)` for each field of `record`, in wire order. The value has the
/// member's own type: plain, record, `Optional` or `std::vector`.
template <class Record, class Visitor>
constexpr void ForEachField(Record& record, Visitor&& visit) {
    static_assert(IsRecord<Record>, "apigen::ForEachField: not a record, it has no static Fields(visitor)");
    Record::Fields([&](const FieldInfo& info, auto member) { visit(info, record.*member); });
}
/// \overload
template <class Record, class Visitor>
constexpr void ForEachField(const Record& record, Visitor&& visit) {
    static_assert(IsRecord<Record>, "apigen::ForEachField: not a record, it has no static Fields(visitor)");
    Record::Fields([&](const FieldInfo& info, auto member) { visit(info, record.*member); });
}

}  // namespace apigen
