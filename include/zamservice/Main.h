// SPDX-License-Identifier: Apache-2.0
/// \file
/// The command line of a tool, for its `main`:
/// \code
/// int main(int argc, char** argv) {
///     return zamservice::Main(argc, argv, [](const std::string& logName) -> zamservice::AgentPtr {
///         return std::make_shared<CMyAgent>("/var/log/my-agent/" + logName);
///     });
/// }
/// \endcode
#pragma once

#include <apigen/Export.h>
#include <zamservice/Service.h>

#include <functional>
#include <memory>
#include <string>

namespace zamservice APIGEN_API {

/// The two kinds of tools; clients start each with words of its own.
enum class EToolKind {
    Agent,     ///< `extended startCommandInvoker --logFileName NAME`, `extended protocolVersion`
    Installer  ///< `start-command-invoker --log-name NAME`, `protocol-version`
};

/// What a tool does, for `Main`. Only `Kind` and one of `MakeService` and `Serve` are needed.
struct STool {
    EToolKind Kind = EToolKind::Agent;

    /// Makes the service, which `ServeStandardStreams` serves. Whatever it throws greets the client.
    /// \param logName what the tool's log is to be called: a file name without a folder
    std::function<CService(const std::string& logName)> MakeService = {};

    /// Serves the client in another way, and returns the exit code.
    std::function<int(const std::string& logName)> Serve = {};

    /// Another version of the protocol to report than the kit's own.
    std::function<zamclientlib::SVersion()> ProtocolVersion = {};

    std::string Description = {};  ///< a line for `--help`
    std::string Version = {};      ///< what `--version` prints; without one there is no such option
};

/// The root of an agent.
using AgentPtr = std::shared_ptr<zamclientlib::IZamControl>;
/// The root of an installer.
using InstallerPtr = std::shared_ptr<zamclientlib::ITarvoInstaller>;

/// Reads the command line and does what it says: serves on the standard streams, as `ServeStandardStreams`, prints
/// the protocol's version, or `--help`. Options may stand anywhere, as `--log-name=NAME` too. Throws nothing.
/// \return the exit code: 0 for success, 1 for a failure, 2 for a command line that can't be understood, which is
///         answered with one line on standard error
[[nodiscard]] APIGEN_API int Main(int argc, const char* const* argv, const STool& tool);

/// As above, for an agent without further wishes.
[[nodiscard]] APIGEN_API int Main(int argc, const char* const* argv,
                                  const std::function<AgentPtr(const std::string& logName)>& makeAgent);

/// As above, for an installer without further wishes.
[[nodiscard]] APIGEN_API int Main(
    int argc, const char* const* argv,
    const std::function<InstallerPtr(const std::string& logName)>& makeInstaller);

}  // namespace zamservice
