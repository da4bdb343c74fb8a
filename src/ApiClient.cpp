// SPDX-License-Identifier: Apache-2.0
#include <apigen/CApiClientInvoker.h>
#include <apigen/CProcess.h>
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/AgentProxies.h>
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/CApiExceptionGenerator.h>
#include <zamclientlib/CSimpleLogger.h>
#include <zamclientlib/Connect.h>
#include <zamclientlib/InstallerProxies.h>

#include <string>
#include <utility>
#include <vector>

#include "src/Protocol.h"
#include "support/apigen/CallLimits.h"
#include "support/apigen/Timeout.h"
#include "support/common/Text.h"

namespace zamclientlib {
namespace {

/// What differs between the two services.
struct SService {
    std::string Tool;
    std::string LogDirectory;  // of the library's own log
    std::string LogFileName;
    std::vector<std::string> ConnectArguments;
    std::vector<std::string> VersionArguments;
};

// Made anew each time: a connection may be opened, and queried, by objects in statics.
SService AgentService() {
    return {"tarvoconfig",
            "/var/log/tarvo/config",
            "apiclient_control.log",
            {"extended", "startCommandInvoker", "--logFileName", "tarvoconfig_api.log"},
            {"extended", "protocolVersion"}};
}

SService InstallerService() {
    return {"tarvoinstaller",
            "/var/log/tarvo/",
            "apiclient_installer.log",
            {"start-command-invoker", "--log-name", "tarvoinstaller_api.log"},
            {"protocol-version"}};
}

std::shared_ptr<CSimpleLogger> MakeDefaultLog(const SService& service) {
    return std::make_shared<CSimpleLogger>(service.LogDirectory, service.LogFileName);
}

const std::string& ToolOf(const SService& service, const SConnectOptions& options) {
    return options.Tool.empty() ? service.Tool : options.Tool;
}

std::string Text(const SVersion& version) {
    std::string text;
    for (const auto number : {version.major, version.minor, version.revision, version.build})
        text += (text.empty() ? "" : ".") + std::to_string(number);
    return text;
}

SVersion GetApiVersion(const std::string& program, const SService& service, const SConnectOptions& options) {
    constexpr unsigned long MaxOutputBytes = 4194304;

    apigen::RequireTimeout(options.ConnectTimeout);
    const auto limits = apigen::LimitsOfScopedCall(options.ConnectTimeout);
    apigen::CProcess process(program, service.VersionArguments, options.Environment, options.Logger);
    const auto device = process.GetIoDev();
    device->SetDeadline(limits.Deadline);
    device->SetEvent(limits.Event.get());
    std::string text;
    const auto exitCode = [&] {
        try {
            bool isWhole = false;
            text = device->ReadRawText(MaxOutputBytes, isWhole);
            return process.GetExitCode();
        } catch (...) {
            process.Kill();  // it has nothing to finish that the caller would have to wait for
            throw;
        }
    }();
    // Where the caller collects all children itself, an answer says as much as the exit status would have.
    if (!exitCode && (exitCode.IsKnown() || text.empty())) exitCode.GenerateException();

    SCompatibilityInfo info;
    try {
        apigen::Deserialize(*apigen::CXmlData::Unserialize(text), protocol::InfoKey, info);
    } catch (apigen::ApiException& error) {
        error.Append(" (in what " + apigen::common::Quoted(program) +
                     " answered to the question for its version)");
        throw;
    }
    return info.protocolVersion;
}

SVersion GetApiVersion(const SService& service, const SConnectOptions& options) {
    return GetApiVersion(ToolOf(service, options), service, options);
}

bool IsCompatible(const SVersion& version) {
    return version.major == protocol::Version.major;
}

void RequireCompatible(const std::string& program, const SService& service, const SConnectOptions& options) {
    SVersion version;
    try {
        version = GetApiVersion(program, service, options);
    } catch (apigen::ApiException& error) {
        error.SetConnectionLost();  // as with whatever else keeps it from being made
        throw;
    }
    if (IsCompatible(version)) return;
    throw IncompatibleToolError(apigen::common::Quoted(program) + " speaks version " + Text(version) +
                                    " of the protocol, this library version " + Text(protocol::Version),
                                version);
}

template <class Proxy, class Interface>
std::shared_ptr<Interface> Connect(const std::string& program, const SService& service,
                                   const SConnectOptions& options) {
    if (options.IsVersionChecked) RequireCompatible(program, service, options);
    apigen::SToolOptions toolOptions;
    toolOptions.ConnectTimeout = options.ConnectTimeout;
    toolOptions.Environment = options.Environment;
    toolOptions.Calls = {options.CallTimeout, options.Logger, options.IsEachCallLogged};
    auto invoker = apigen::CApiClientInvoker::CreateByProcess(
        program, service.ConnectArguments, std::make_shared<CApiExceptionGenerator>(options.Logger),
        toolOptions);
    const apigen::Handle root = invoker->GetRootHandle();
    return std::shared_ptr<Interface>(new Proxy(std::move(invoker), root));
}

/// As the functions without options describe it.
SConnectOptions DescribedOptions(const SService& service, std::chrono::seconds timeout, bool enableLogging,
                                 std::shared_ptr<apigen::ILogger> logger) {
    SConnectOptions options;
    options.ConnectTimeout = options.CallTimeout = apigen::Milliseconds(timeout);
    if (enableLogging) options.Logger = logger != nullptr ? std::move(logger) : MakeDefaultLog(service);
    return options;
}

}  // namespace

std::shared_ptr<IZamControl> ConnectToAgent(const SConnectOptions& options) {
    const SService service = AgentService();
    return Connect<IZamControl_Proxy, IZamControl>(ToolOf(service, options), service, options);
}

std::shared_ptr<ITarvoInstaller> ConnectToInstaller(const SConnectOptions& options) {
    const SService service = InstallerService();
    return Connect<ITarvoInstaller_Proxy, ITarvoInstaller>(ToolOf(service, options), service, options);
}

SVersion GetAgentApiVersion(const SConnectOptions& options) {
    return GetApiVersion(AgentService(), options);
}

SVersion GetInstallerApiVersion(const SConnectOptions& options) {
    return GetApiVersion(InstallerService(), options);
}

SVersion GetLibraryApiVersion() {
    return protocol::Version;
}

std::shared_ptr<CSimpleLogger> MakeDefaultAgentLog() {
    return MakeDefaultLog(AgentService());
}

std::shared_ptr<CSimpleLogger> MakeDefaultInstallerLog() {
    return MakeDefaultLog(InstallerService());
}

std::shared_ptr<IZamControl> GetZamControl(std::chrono::seconds timeout, bool enableLogging,
                                           std::shared_ptr<apigen::ILogger> logger) {
    const SService service = AgentService();
    return Connect<IZamControl_Proxy, IZamControl>(
        service.Tool, service, DescribedOptions(service, timeout, enableLogging, std::move(logger)));
}

std::shared_ptr<ITarvoInstaller> GetTarvoInstaller(std::string path, std::chrono::seconds timeout,
                                                   bool enableLogging,
                                                   std::shared_ptr<apigen::ILogger> logger) {
    const SService service = InstallerService();
    return Connect<ITarvoInstaller_Proxy, ITarvoInstaller>(
        path, service, DescribedOptions(service, timeout, enableLogging, std::move(logger)));
}

bool IsControlApiCompatible() {
    return IsCompatible(GetAgentApiVersion());
}

bool IsInstallerApiCompatible(std::string path) {
    return IsCompatible(GetApiVersion(path, InstallerService(), {}));
}

}  // namespace zamclientlib
