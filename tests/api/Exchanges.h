// SPDX-License-Identifier: Apache-2.0
/// \file
/// Every method as it travels, written down by hand: the client must send these requests and understand
/// these responses, the service the other way round.
#pragma once

#include <zamclientlib/Control.h>
#include <zamclientlib/Installer.h>

#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "tests/api/ExchangesSamples.h"
#include "tests/api/FieldWalk.h"

namespace zamtest {

/// One object of each interface: proxies at the client, implementations at the service. On the wire, those
/// of the installer have the handles 1 to 4, those of the agent 1 to 7, in this order.
struct SObjects {
    std::shared_ptr<zamclientlib::ITarvoInstaller> Installer;
    std::shared_ptr<zamclientlib::IPackageManager> Packages;
    std::shared_ptr<zamclientlib::IService> Service;
    std::shared_ptr<zamclientlib::IZAMDeployer> Deployer;

    std::shared_ptr<zamclientlib::IZamControl> Control;
    std::shared_ptr<zamclientlib::IZamProduct> Product;
    std::shared_ptr<zamclientlib::IBackupJob> Job;
    std::shared_ptr<zamclientlib::IBackupJobSession> Session;
    std::shared_ptr<zamclientlib::IRepositoryManager> Repositories;
    std::shared_ptr<zamclientlib::IBackupServerManager> Servers;
    std::shared_ptr<zamclientlib::ICloudServiceProviderManager> Providers;
};

/// What a value is for a test's table.
inline std::string Shown(bool value) {
    return value ? "true" : "false";
}
inline std::string Shown(long value) {
    return std::to_string(value);
}
inline std::string Shown(const std::string& text) {
    return text;
}
template <class E>
requires std::is_enum_v<E> std::string Shown(E value) {
    return std::to_string(static_cast<int>(value));
}
template <class R, class = std::enable_if_t<apigen::IsRecord<R>>>
requires(!HasSample<R>) std::string Shown(const R& record) {
    return DocumentOf(record);
}
/// Compared member by member, so that no mistake shared by writer and reader can hide.
template <HasSample T>
std::string Shown(const T& value) {
    if (value == SSample<T>::Value()) return "sample";
    return value == T{} ? "default" : DocumentOf(value);
}
template <class T>
std::string Shown(const apigen::Optional<T>& value) {
    return value ? Shown(*value) : "none";
}
template <class I>
std::string Shown(const std::shared_ptr<I>& object) {
    return object ? "object" : "null";
}
template <class T>
std::string Shown(const std::vector<T>& values) {
    std::string all;
    for (const T& value : values)
        all += (all.empty() ? "[" : "|[") + Shown(value) + ']';
    return all;
}

struct SExchange {
    std::string_view Name;  ///< begins with the interface, as "IService_"
    std::string Request;
    std::string Response;
    std::string Call;                     ///< what the implementation must have been asked
    std::string (*Act)(const SObjects&);  ///< makes the call and shows its result
    std::string Result;
    bool HasNothing = false;  ///< as in `SJournal`
};

inline std::string Request(const std::string& arguments, int handle, const std::string& method) {
    return "<Data>" + arguments + "<__handle>" + std::to_string(handle) + "</__handle><__method>" + method +
           "</__method></Data>";
}
inline std::string Response(const std::string& inside) {
    return inside.empty() ? "<Data/>" : "<Data>" + inside + "</Data>";
}

#define ZAM_ACT(expression) [](const SObjects& o) -> std::string { return Shown(o.expression); }
#define ZAM_ACT_VOID(expression)           \
    [](const SObjects& o) -> std::string { \
        o.expression;                      \
        return {};                         \
    }

inline std::ostream& operator<<(std::ostream& out, const SExchange& exchange) {
    return out << exchange.Name;
}

struct SExchangeName {
    template <class Info>
    std::string operator()(const Info& info) const {
        return std::string(info.param.Name);
    }
};

}  // namespace zamtest
