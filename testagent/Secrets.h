// SPDX-License-Identifier: Apache-2.0
/// \file
/// Passwords of records: taken in, kept, never handed out.
#pragma once

#include <apigen/Fields.h>
#include <apigen/Optional.h>

#include <type_traits>
#include <utility>

namespace testagent {

template <class T>
inline constexpr bool IsOptional = false;
template <class T>
inline constexpr bool IsOptional<apigen::Optional<T>> = true;

template <class T>
concept Record = requires {
    T::Fields([](const apigen::FieldInfo&, auto) {});
};

/// Removes every secret of the record and of those inside it.
template <class T>
void RemoveSecrets(T& value) {
    if constexpr (Record<T>) {
        T::Fields([&value](const apigen::FieldInfo& info, auto member) {
            using Member = std::remove_reference_t<decltype(value.*member)>;
            if (info.IsSecret) {
                value.*member = Member{};
            } else {
                RemoveSecrets(value.*member);
            }
        });
    } else if constexpr (IsOptional<T>) {
        if (value) RemoveSecrets(*value);
    }
}

/// The record as a client gets to see it.
template <Record T>
T WithoutSecrets(T record) {
    RemoveSecrets(record);
    return record;
}

/// Fills the absent secrets of an update with those of before: who does not say a password keeps it.
template <class T>
void KeepSecrets(T& updated, const T& before) {
    if constexpr (Record<T>) {
        T::Fields([&](const apigen::FieldInfo& info, auto member) {
            auto& value = updated.*member;
            if constexpr (IsOptional<std::remove_reference_t<decltype(value)>>) {
                if (info.IsSecret && !value) value = before.*member;
            }
            if (!info.IsSecret) KeepSecrets(value, before.*member);
        });
    } else if constexpr (IsOptional<T>) {
        if (updated && before) KeepSecrets(*updated, *before);
    }
}

}  // namespace testagent
