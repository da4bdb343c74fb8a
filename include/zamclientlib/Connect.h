// SPDX-License-Identifier: Apache-2.0
/// \file
/// Connecting with options, and what a connection tells of itself.
#pragma once

#include <apigen/ApiException.h>
#include <apigen/Export.h>
#include <apigen/ILogger.h>
#include <apigen/ProxyBase.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Control.h>
#include <zamclientlib/Installer.h>

#include <chrono>
#include <memory>
#include <string>
#include <unordered_map>

namespace zamclientlib APIGEN_API {

class CSimpleLogger;

/// How to connect to a service, and how its calls are made.
struct SConnectOptions {
    /// File name (looked up in the caller's `PATH`) or path of the tool. Empty: the service's own name, "tarvoconfig"
    /// or "tarvoinstaller".
    std::string Tool;

    /// Bound of the connecting, and of the question for a version; 0 means none. Time-outs below 0 are refused.
    std::chrono::milliseconds ConnectTimeout = std::chrono::seconds(30);

    /// Bound of each call, in which its waiting for other calls counts; 0 means none. <apigen/CallControl.h> gives
    /// single calls more, or less.
    std::chrono::milliseconds CallTimeout{0};

    /// Empty: nothing is logged.
    std::shared_ptr<apigen::ILogger> Logger;

    /// Whether the log gets a line about each call: method, duration and outcome. Never about an argument.
    bool IsEachCallLogged = false;

    /// Variables that the tool has beside, or in place of, the caller's. A name that is empty or holds a `=`, and a NUL
    /// character anywhere, are refused.
    std::unordered_map<std::string, std::string> Environment;

    /// Whether a tool of another major version is refused before it is connected to. Costs one more start of the tool.
    bool IsVersionChecked = false;
};

/// The tool speaks another major version of the protocol than this library: one of the two has to be replaced.
class IncompatibleToolError : public apigen::ApiInternalError {
public:
    /// \param toolVersion what the tool said
    IncompatibleToolError(const std::string& message, const SVersion& toolVersion)
        : ApiInternalError(message), m_toolVersion(toolVersion) {
        SetConnectionLost();
    }

    /// The version of the protocol that the tool speaks.
    [[nodiscard]] const SVersion& ToolVersion() const noexcept { return m_toolVersion; }

private:
    SVersion m_toolVersion;
};

/// As `GetZamControl`.
/// \throws apigen::ProcessLaunchError, IncompatibleToolError, or another apigen::ApiInternalError, or what the tool
///         reported.
[[nodiscard]] APIGEN_API std::shared_ptr<IZamControl> ConnectToAgent(const SConnectOptions& options = {});

/// As `GetTarvoInstaller`.
/// \throws as `ConnectToAgent`
[[nodiscard]] APIGEN_API std::shared_ptr<ITarvoInstaller> ConnectToInstaller(
    const SConnectOptions& options = {});

/// The version of the protocol that the agent's tool speaks; of the options, tool, time to connect, logger and
/// environment count.
/// \throws apigen::ApiInternalError when the tool can't be asked
[[nodiscard]] APIGEN_API SVersion GetAgentApiVersion(const SConnectOptions& options = {});

/// The version of the protocol that the installer tool speaks.
/// \throws apigen::ApiInternalError when the tool can't be asked
[[nodiscard]] APIGEN_API SVersion GetInstallerApiVersion(const SConnectOptions& options = {});

/// The version of the protocol that this library speaks. Versions fit when their major numbers are the same.
[[nodiscard]] APIGEN_API SVersion GetLibraryApiVersion();

/// Whether the connection that an object came from can still be used, and why not: it has been given up, or its tool
/// has ended meanwhile. Looks, without a call and without waiting; with a call under way in another thread, the
/// connection counts as alive. An object that is no proxy, a double in a test say, is alive.
template <class Interface>
[[nodiscard]] apigen::SConnectionState GetConnectionState(const Interface& object) {
    const auto* const proxy = dynamic_cast<const apigen::ProxyBase*>(&object);
    return proxy != nullptr ? proxy->GetInvoker()->GetState() : apigen::SConnectionState();
}

/// \overload
/// Of no object it says that there is none.
template <class Interface>
[[nodiscard]] apigen::SConnectionState GetConnectionState(const std::shared_ptr<Interface>& object) {
    if (object == nullptr) return {false, "there is no object"};
    return GetConnectionState(*object);
}

/// The log that `GetZamControl` makes when it is given none. `CSimpleLogger::GetError` tells whether it can be written.
[[nodiscard]] APIGEN_API std::shared_ptr<CSimpleLogger> MakeDefaultAgentLog();

/// The log that `GetTarvoInstaller` makes when it is given none.
[[nodiscard]] APIGEN_API std::shared_ptr<CSimpleLogger> MakeDefaultInstallerLog();

}  // namespace zamclientlib
