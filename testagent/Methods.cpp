// SPDX-License-Identifier: Apache-2.0
#include "testagent/Methods.h"

#include <memory>
#include <type_traits>

#include "src/AgentMethods.h"
#include "support/apigen/Envelope.h"
#include "testagent/Secrets.h"

namespace testagent {
namespace {

template <class T>
inline constexpr bool IsVector = false;
template <class T>
inline constexpr bool IsVector<std::vector<T>> = true;

template <class T>
inline constexpr bool IsObject = false;
template <class T>
inline constexpr bool IsObject<std::shared_ptr<T>> = true;

/// Collects the keys under which the value and those inside it carry enumerations.
template <class T>
void CollectEnumKeys(std::set<std::string>& keys, std::string_view key) {
    if constexpr (std::is_enum_v<T>) {
        keys.emplace(key);
    } else if constexpr (apigen::detail::IsOptional<T> || IsVector<T>) {
        CollectEnumKeys<typename T::value_type>(keys, key);
    } else if constexpr (apigen::IsRecord<T>) {
        T::Fields(
            [&keys]<class M>(const apigen::FieldInfo& info, M T::*) { CollectEnumKeys<M>(keys, info.Key); });
    }
}

template <class... I>
std::vector<SMethod> MethodsOfAll() {
    std::vector<SMethod> all;
    const auto add = [&all]<class M>(const M& method) {
        using Result = typename M::Result;
        SMethod& added = all.emplace_back();
        added.Id = method.Id;
        added.Name = method.Id.substr(0, method.Id.rfind('_'));
        added.HandsOutObject = IsObject<Result>;
        CollectEnumKeys<Result>(added.EnumKeys, apigen::envelope::ResultKey);
    };
    (zamclientlib::MethodsOf<I>::ForEach(add), ...);
    return all;
}

}  // namespace

const std::vector<SMethod>& Methods() {
    using namespace zamclientlib;  // NOLINT: a list of names
    static const auto all =
        MethodsOfAll<IZamControl, IZamProduct, IBackupJob, IBackupJobSession, IRepositoryManager,
                     IBackupServerManager, ICloudServiceProviderManager>();
    return all;
}

const SMethod* FindMethod(std::string_view id) {
    for (const auto& method : Methods()) {
        if (method.Id == id) return &method;
    }
    return nullptr;
}

}  // namespace testagent
