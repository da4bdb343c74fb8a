// SPDX-License-Identifier: Apache-2.0
/// \file
/// The fields of a record as a list that a program can walk.
#pragma once

#include <apigen/Export.h>

#include <cstddef>
#include <string_view>

namespace apigen APIGEN_API {

/// One field of a record: its key on the wire, and whether its value is a secret that must not be shown.
struct FieldInfo {
    std::string_view Key;
    bool IsSecret = false;

    template <std::size_t Size>
    constexpr FieldInfo(const char (&key)[Size], bool isSecret = false)  // NOLINT: implicit by design
        : Key(key, Size - 1), IsSecret(isSecret) {}
};

/// Marks a field of a record's list as a secret: a password, for instance.
template <std::size_t Size>
constexpr FieldInfo Secret(const char (&key)[Size]) {
    return FieldInfo(key, true);
}

/// Calls `visit(const FieldInfo&, value)` for each field of `record`, in wire order. The value has the
/// member's own type: plain, record, `Optional` or `std::vector`.
template <class Record, class Visitor>
constexpr void ForEachField(Record& record, Visitor&& visit) {
    Record::Fields([&](const FieldInfo& info, auto member) { visit(info, record.*member); });
}
/// \overload
template <class Record, class Visitor>
constexpr void ForEachField(const Record& record, Visitor&& visit) {
    Record::Fields([&](const FieldInfo& info, auto member) { visit(info, record.*member); });
}

}  // namespace apigen
