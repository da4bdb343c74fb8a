// SPDX-License-Identifier: Apache-2.0
#include <apigen/CApiClientInvoker.h>
#include <apigen/CProcess.h>
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/AgentProxies.h>
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/CApiExceptionGenerator.h>
#include <zamclientlib/CSimpleLogger.h>
#include <zamclientlib/InstallerProxies.h>

#include <utility>
#include <vector>

#include "src/Protocol.h"

namespace zamclientlib {
namespace {

/// What differs between the two services.
struct SService {
    std::string LogDirectory;  // of the library's own log
    std::string LogFileName;
    std::vector<std::string> ConnectArguments;
    std::vector<std::string> VersionArguments;
};

constexpr const char* AgentTool = "tarvoconfig";

// Made anew each time: a connection may be opened, and queried, by objects in statics.
SService AgentService() {
    return {"/var/log/tarvo/config",
            "apiclient_control.log",
            {"extended", "startCommandInvoker", "--logFileName", "tarvoconfig_api.log"},
            {"extended", "protocolVersion"}};
}

SService InstallerService() {
    return {"/var/log/tarvo/",
            "apiclient_installer.log",
            {"start-command-invoker", "--log-name", "tarvoinstaller_api.log"},
            {"protocol-version"}};
}

template <class Proxy, class Interface>
std::shared_ptr<Interface> Connect(const SService& service, const std::string& program,
                                   std::chrono::seconds timeout, bool enableLogging,
                                   std::shared_ptr<apigen::ILogger> logger) {
    if (!enableLogging) {
        logger = std::make_shared<apigen::CApiEmptyLogger>();
    } else if (logger == nullptr) {
        logger = std::make_shared<CSimpleLogger>(service.LogDirectory, service.LogFileName);
    }
    std::shared_ptr<apigen::IApiExceptionGenerator> generator =
        std::make_shared<CApiExceptionGenerator>(logger);
    auto invoker = apigen::CApiClientInvoker::CreateByProcess(
        program, service.ConnectArguments, std::move(generator), timeout, std::move(logger));
    const apigen::Handle root = invoker->GetRootHandle();
    return std::shared_ptr<Interface>(new Proxy(std::move(invoker), root));
}

SVersion GetApiVersion(std::string program, const std::vector<std::string>& arguments) {
    constexpr unsigned long MaxOutputBytes = 4194304;
    // A tool that prints its version in this time or never will.
    constexpr std::chrono::seconds Limit{30};

    apigen::CProcess process(program, arguments, {}, nullptr);
    const auto device = process.GetIoDev();
    device->SetDeadline(apigen::IIoDev::Clock::now() + Limit);
    bool isWhole = false;
    const std::string text = device->ReadRawText(MaxOutputBytes, isWhole);
    const auto exitCode = process.GetExitCode();
    // Where the caller collects all children itself, an answer says as much as the exit status would have.
    if (!exitCode && (exitCode.IsKnown() || text.empty())) exitCode.GenerateException();

    SCompatibilityInfo info;
    apigen::Deserialize(*apigen::CXmlData::Unserialize(text), protocol::InfoKey, info);
    return info.protocolVersion;
}

}  // namespace

std::shared_ptr<IZamControl> GetZamControl(std::chrono::seconds timeout, bool enableLogging,
                                           std::shared_ptr<apigen::ILogger> logger) {
    return Connect<IZamControl_Proxy, IZamControl>(AgentService(), AgentTool, timeout, enableLogging,
                                                   std::move(logger));
}

std::shared_ptr<ITarvoInstaller> GetTarvoInstaller(std::string path, std::chrono::seconds timeout,
                                                   bool enableLogging,
                                                   std::shared_ptr<apigen::ILogger> logger) {
    return Connect<ITarvoInstaller_Proxy, ITarvoInstaller>(InstallerService(), path, timeout, enableLogging,
                                                           std::move(logger));
}

bool IsControlApiCompatible() {
    return GetApiVersion(AgentTool, AgentService().VersionArguments).major == protocol::Version.major;
}

bool IsInstallerApiCompatible(std::string path) {
    return GetApiVersion(std::move(path), InstallerService().VersionArguments).major ==
           protocol::Version.major;
}

}  // namespace zamclientlib
