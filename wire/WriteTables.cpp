// SPDX-License-Identifier: Apache-2.0
// wire_tables [FILE]: writes the tables of the wire as JSON, for programs in other languages. They come from what the
// library itself calls, reads and writes by; only what the library has no list of stands here.
#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/IIoDev.h>
#include <apigen/Optional.h>
#include <zamclientlib/Enums.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "src/AgentMethods.h"
#include "src/EnumList.h"
#include "src/ExceptionTypes.h"
#include "src/InstallerMethods.h"
#include "src/Protocol.h"
#include "src/RecordList.h"
#include "support/apigen/Encoders.h"
#include "support/apigen/Envelope.h"
#include "support/apigen/PlainText.h"
#include "support/apigen/XmlText.h"

namespace {

using namespace zamclientlib;  // NOLINT: a list of names
using Json = nlohmann::ordered_json;

/// The name of a type of the API.
template <class T>
constexpr std::string_view Name = {};

#define ZAM_NAME(type) \
    template <>        \
    constexpr std::string_view Name<type> = #type;
ZAM_FOR_EACH_ENUM(ZAM_NAME)
ZAM_FOR_EACH_RECORD(ZAM_NAME)
ZAM_NAME(IZamControl)
ZAM_NAME(IZamProduct)
ZAM_NAME(IBackupJob)
ZAM_NAME(IBackupJobSession)
ZAM_NAME(IRepositoryManager)
ZAM_NAME(IBackupServerManager)
ZAM_NAME(ICloudServiceProviderManager)
ZAM_NAME(ITarvoInstaller)
ZAM_NAME(IPackageManager)
ZAM_NAME(IService)
ZAM_NAME(IZAMDeployer)
#undef ZAM_NAME

std::string NumberName(bool isSigned, std::size_t bytes) {
    return (isSigned ? "int" : "uint") + std::to_string(8 * bytes);
}

/// A name for what has one, {"optional": TYPE} or {"list": TYPE} for what is made of another type.
template <class T>
struct STypeOf {
    static Json Get() {
        if constexpr (std::is_void_v<T>) {
            return nullptr;
        } else if constexpr (std::is_same_v<T, bool>) {
            return "boolean";
        } else if constexpr (std::is_integral_v<T>) {
            return NumberName(std::is_signed_v<T>, sizeof(T));
        } else {
            static_assert(!Name<T>.empty(), "a type without a name");
            return Name<T>;
        }
    }
};

template <>
struct STypeOf<std::string> {
    static Json Get() { return "text"; }
};
template <>
struct STypeOf<apigen::Guid> {
    static Json Get() { return "guid"; }
};
template <class T>
struct STypeOf<apigen::Optional<T>> {
    static Json Get() { return {{"optional", STypeOf<T>::Get()}}; }
};
template <class T>
struct STypeOf<std::vector<T>> {
    static Json Get() { return {{"list", STypeOf<T>::Get()}}; }
};
/// An object; only a handle of it travels.
template <class T>
struct STypeOf<std::shared_ptr<T>> : STypeOf<T> {};

template <class R>
Json FieldsOf() {
    Json fields = Json::array();
    R::Fields([&fields]<class M>(const apigen::FieldInfo& info, M R::* /*member*/) {
        Json field = {{"key", info.Key}, {"type", STypeOf<M>::Get()}};
        if (info.IsSecret) field["secret"] = true;
        fields.push_back(std::move(field));
    });
    return fields;
}

template <class E>
Json MembersOfEnum() {
    Json members = Json::object();
    for (const E member : MembersOf<E>())
        members[std::string(NameOf(member))] = static_cast<int>(member);
    return members;
}

template <class I, class Pointer, class R, class... A>
Json MethodRow(const Method<I, Pointer, R, A...>& method) {
    Json arguments = Json::array();
    [[maybe_unused]] std::size_t i = 0;
    (arguments.push_back({{"key", method.Keys[i++]}, {"type", STypeOf<A>::Get()}}), ...);
    return {{"name", method.Id.substr(0, method.Id.rfind('_'))},
            {"id", method.Id},
            {"arguments", arguments},
            {"result", STypeOf<R>::Get()}};
}

template <class... I>
Json Interfaces() {
    Json interfaces = Json::object();
    const auto add = [&interfaces]<class Interface>(std::type_identity<Interface>) {
        Json methods = Json::array();
        MethodsOf<Interface>::ForEach([&](const auto& method) { methods.push_back(MethodRow(method)); });
        interfaces[std::string(Name<Interface>)] = std::move(methods);
    };
    (add(std::type_identity<I>{}), ...);
    return interfaces;
}

Json Exceptions() {
    Json exceptions = Json::object();
    exceptions::ForEachType([&]<class E>(const char* name) {
        Json fields = Json::array();
        if constexpr (std::is_same_v<E, CIndexingUnmetDependencies>) {
            fields.push_back({{"key", "MissedPackage"}, {"type", STypeOf<EIndexingDependency>::Get()}});
        }
        exceptions[name] = std::move(fields);
    });
    return exceptions;
}

Json Tables() {
    namespace envelope = apigen::envelope;
    Json tables = Json::object();
    auto& version = tables["protocolVersion"];
    apigen::ForEachField(protocol::Version, [&](const apigen::FieldInfo& info, unsigned short number) {
        version[std::string(info.Key)] = number;
    });
    tables["services"] = {
        {"agent",
         {{"program", "tarvoconfig"},
          {"serve", {"extended", "startCommandInvoker", "--logFileName", "tarvoconfig_api.log"}},
          {"version", {"extended", "protocolVersion"}},
          {"root", Name<IZamControl>}}},
        {"installer",
         {{"program", "tarvoinstaller"},
          {"serve", {"start-command-invoker", "--log-name", "tarvoinstaller_api.log"}},
          {"version", {"protocol-version"}},
          {"root", Name<ITarvoInstaller>}}},
    };
    tables["keys"] = {
        {"root", apigen::RootName},
        {"handle", envelope::HandleKey},
        {"method", envelope::MethodKey},
        {"result", envelope::ResultKey},
        {"exception", envelope::ExceptionKey},
        {"exceptionType", exceptions::TypeKey},
        {"exceptionContent", exceptions::ContentKey},
        {"exceptionBase", "ApiException"},
        {"exceptionMessage", "exc_msg"},
        {"internalError", envelope::InternalErrorKey},
        {"internalErrorMessage", envelope::InternalErrorTextKey},
        {"optional", apigen::OptionalKey},
        {"item", apigen::ItemKey},
        {"event", "Event"},
        {"version", protocol::InfoKey},
    };
    tables["releaseMethod"] = envelope::ReleaseMethod;
    tables["limits"] = {{"messageBytes", apigen::IIoDev::MaxMessageBytes},
                        {"elementLevels", apigen::MaxXmlDepth}};
    tables["interfaces"] = Interfaces<IZamControl, IZamProduct, IBackupJob, IBackupJobSession,
                                      IRepositoryManager, IBackupServerManager, ICloudServiceProviderManager,
                                      ITarvoInstaller, IPackageManager, IService, IZAMDeployer>();
    tables["exceptions"] = Exceptions();
#define ZAM_ROW(type) tables["records"][std::string(Name<type>)] = FieldsOf<type>();
    ZAM_FOR_EACH_RECORD(ZAM_ROW)
#undef ZAM_ROW
#define ZAM_ROW(type) tables["enumerations"][std::string(Name<type>)] = MembersOfEnum<type>();
    ZAM_FOR_EACH_ENUM(ZAM_ROW)
#undef ZAM_ROW
    return tables;
}

/// One line for each method, field and enumeration, so that a change shows as the lines that it is about.
void Print(std::ostream& output, const Json& value, const std::string& indent = "") {
    const auto isFlat = [](const Json& each) {
        return each.dump().size() < 80 || each.contains("id") || each.contains("key") ||
               each.begin()->is_number();
    };
    if (value.is_primitive() || value.empty() || (!indent.empty() && isFlat(value))) {
        output << value.dump();
        return;
    }
    const char* const brackets = value.is_array() ? "[]" : "{}";
    output << brackets[0];
    const char* separator = "\n";
    for (const auto& [key, element] : value.items()) {
        output << separator << indent << "  ";
        if (value.is_object()) output << '"' << key << "\": ";
        Print(output, element, indent + "  ");
        separator = ",\n";
    }
    output << '\n' << indent << brackets[1];
}

}  // namespace

int main(int argc, char** argv) {
    try {
        std::ofstream file;
        if (argc > 1) file.open(argv[1]);
        std::ostream& output = argc > 1 ? file : std::cout;
        Print(output, Tables());
        output << std::endl;
        if (!output) throw std::runtime_error("the tables can't be written");
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "wire_tables: " << error.what() << '\n';
        return 1;
    }
}
