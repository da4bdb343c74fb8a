// SPDX-License-Identifier: Apache-2.0
/// \file
/// Passwords of records: taken in, kept, never handed out.
#pragma once

#include <apigen/Fields.h>
#include <apigen/Optional.h>

#include <type_traits>
#include <utility>

namespace testagent {

/// Removes every secret of the record and of those inside it.
template <class T>
void RemoveSecrets(T& value) {
    if constexpr (apigen::IsRecord<T>) {
        T::Fields([&value](const apigen::FieldInfo& info, auto member) {
            using Member = std::remove_reference_t<decltype(value.*member)>;
            if (info.IsSecret) {
                value.*member = Member{};
            } else {
                RemoveSecrets(value.*member);
            }
        });
    } else if constexpr (apigen::detail::IsOptional<T>) {
        if (value) RemoveSecrets(*value);
    }
}

/// The record as a client gets to see it.
template <class T>
requires apigen::IsRecord<T> T WithoutSecrets(T record) {
    RemoveSecrets(record);
    return record;
}

/// Fills the absent secrets of an update with those of before: who does not say a password keeps it.
template <class T>
void KeepSecrets(T& updated, const T& before) {
    if constexpr (apigen::IsRecord<T>) {
        T::Fields([&](const apigen::FieldInfo& info, auto member) {
            auto& value = updated.*member;
            if constexpr (apigen::detail::IsOptional<std::remove_reference_t<decltype(value)>>) {
                if (info.IsSecret && !value) value = before.*member;
            }
            if (!info.IsSecret) KeepSecrets(value, before.*member);
        });
    } else if constexpr (apigen::detail::IsOptional<T>) {
        if (updated && before) KeepSecrets(*updated, *before);
    }
}

}  // namespace testagent
