// SPDX-License-Identifier: Apache-2.0
/// \file
/// The secrets of a record, apart from it: kept elsewhere, shown nowhere.
#pragma once

#include <apigen/Fields.h>
#include <apigen/Optional.h>

#include <map>
#include <string>
#include <type_traits>

namespace tarvo {

/// By their place in the record: "StorageInfo.EncryptionSettings.Password" for instance.
using Secrets = std::map<std::string, std::string>;

namespace detail {

/// Calls `visit(path, value)` for each secret: a text, or an optional one. Lists hold none.
template <class T, class Visit>
void ForEachSecret(T& value, const std::string& path, const Visit& visit) {
    if constexpr (apigen::IsRecord<T>) {
        T::Fields([&](const apigen::FieldInfo& info, auto member) {
            const std::string inside = (path.empty() ? "" : path + ".") + std::string(info.Key);
            if constexpr (std::is_same_v<std::remove_reference_t<decltype(value.*member)>, std::string> ||
                          std::is_same_v<std::remove_reference_t<decltype(value.*member)>,
                                         apigen::Optional<std::string>>) {
                if (info.IsSecret) visit(inside, value.*member);
            } else {
                ForEachSecret(value.*member, inside, visit);
            }
        });
    } else if constexpr (apigen::detail::IsOptional<T>) {
        if (value) ForEachSecret(*value, path, visit);
    }
}

}  // namespace detail

/// Takes the secrets out of the record.
template <class T>
requires apigen::IsRecord<T> Secrets TakeSecrets(T& record) {
    Secrets secrets;
    detail::ForEachSecret(record, "", [&](const std::string& path, auto& value) {
        if constexpr (apigen::detail::IsOptional<std::remove_reference_t<decltype(value)>>) {
            if (value) secrets[path] = *value;
        } else {
            secrets[path] = value;
        }
        value = {};
    });
    return secrets;
}

/// Puts them back where the record has a place for them.
template <class T>
requires apigen::IsRecord<T>
void GiveSecrets(T& record, const Secrets& secrets) {
    detail::ForEachSecret(record, "", [&](const std::string& path, auto& value) {
        if (const auto found = secrets.find(path); found != secrets.end()) value = found->second;
    });
}

/// As `GiveSecrets`, but a secret that the record says itself stays: who doesn't say a password keeps it.
template <class T>
requires apigen::IsRecord<T>
void KeepSecrets(T& updated, const Secrets& before) {
    detail::ForEachSecret(updated, "", [&](const std::string& path, auto& value) {
        if constexpr (apigen::detail::IsOptional<std::remove_reference_t<decltype(value)>>) {
            if (value) return;
            if (const auto found = before.find(path); found != before.end()) value = found->second;
        }
    });
}

/// Whether `KeepSecrets` would have something to keep for the record.
template <class T>
requires apigen::IsRecord<T>
bool LacksSecrets(T& updated) {
    bool lacks = false;
    detail::ForEachSecret(updated, "", [&](const std::string& /*path*/, auto& value) {
        if constexpr (apigen::detail::IsOptional<std::remove_reference_t<decltype(value)>>) {
            lacks = lacks || !value;
        }
    });
    return lacks;
}

}  // namespace tarvo
