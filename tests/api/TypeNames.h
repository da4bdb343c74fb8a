// SPDX-License-Identifier: Apache-2.0
/// \file
/// The types of the API for typed tests, and their names as interface declarations write them.
#pragma once

#include <apigen/Guid.h>
#include <apigen/Optional.h>
#include <zamclientlib/Control.h>
#include <zamclientlib/Installer.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "src/EnumList.h"
#include "src/RecordList.h"

namespace zamtest {

#define ZAM_FOR_EACH_INTERFACE(apply)                                                             \
    apply(IZamControl) apply(IZamProduct) apply(IBackupJob) apply(IBackupJobSession)              \
        apply(IRepositoryManager) apply(IBackupServerManager) apply(ICloudServiceProviderManager) \
            apply(ITarvoInstaller) apply(IZAMDeployer) apply(IService) apply(IPackageManager)

template <class First, class... Rest>
struct SWithoutFirst {
    using Type = testing::Types<Rest...>;
};

#define ZAM_TYPE_AFTER_COMMA(type) , zamclientlib::type
using AllRecords = SWithoutFirst<void ZAM_FOR_EACH_RECORD(ZAM_TYPE_AFTER_COMMA)>::Type;
using AllEnums = SWithoutFirst<void ZAM_FOR_EACH_ENUM(ZAM_TYPE_AFTER_COMMA)>::Type;
using AllInterfaces = SWithoutFirst<void ZAM_FOR_EACH_INTERFACE(ZAM_TYPE_AFTER_COMMA)>::Type;

template <class T>
struct STypeName;

#define ZAM_TYPE_NAME_AS(type, name)              \
    template <>                                   \
    struct STypeName<type> {                      \
        static std::string Get() { return name; } \
    };
#define ZAM_TYPE_NAME(type) ZAM_TYPE_NAME_AS(zamclientlib::type, #type)

ZAM_FOR_EACH_RECORD(ZAM_TYPE_NAME)
ZAM_FOR_EACH_ENUM(ZAM_TYPE_NAME)
ZAM_FOR_EACH_INTERFACE(ZAM_TYPE_NAME)
ZAM_TYPE_NAME_AS(zamclientlib::usn_t, "usn_t")
ZAM_TYPE_NAME_AS(void, "void")
ZAM_TYPE_NAME_AS(bool, "bool")
ZAM_TYPE_NAME_AS(std::string, "std::string")
ZAM_TYPE_NAME_AS(apigen::Guid, "apigen::Guid")

template <class T>
struct STypeName<std::vector<T>> {
    static std::string Get() { return "std::vector< " + STypeName<T>::Get() + " >"; }
};
template <class T>
struct STypeName<std::shared_ptr<T>> {
    static std::string Get() { return "std::shared_ptr< " + STypeName<T>::Get() + " >"; }
};
template <class T>
struct STypeName<apigen::Optional<T>> {
    static std::string Get() { return "apigen::Optional< " + STypeName<T>::Get() + " >"; }
};

template <class T>
std::string TypeName() {
    return STypeName<T>::Get();
}

}  // namespace zamtest
