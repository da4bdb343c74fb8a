// SPDX-License-Identifier: Apache-2.0
/// \file
/// The entry points: connections to the services and the question whether their version fits.
#pragma once

#include <apigen/Export.h>
#include <apigen/ILogger.h>
#include <zamclientlib/Control.h>
#include <zamclientlib/Installer.h>

#include <chrono>
#include <memory>
#include <string>

namespace zamclientlib APIGEN_API {

/// Starts the agent's tool, "tarvoconfig" (looked up in `PATH`), and connects to it.
///
/// The returned object and every object had from it share the connection and the tool's process, which
/// lasts as long as any of them.
///
/// \param timeout       bound of the connecting and of every later call; 0 means none
/// \param enableLogging when false nothing is logged, whatever `logger` is
/// \param logger        may be empty: then a new file apiclient_control.log in /var/log/tarvo/config is written
/// \throws apigen::ProcessLaunchError, or another apigen::ApiInternalError, or what the tool reported.
APIGEN_API std::shared_ptr<IZamControl> GetZamControl(std::chrono::seconds timeout, bool enableLogging,
                                                      std::shared_ptr<apigen::ILogger> logger);

/// As `GetZamControl`, for the installer tool; its log is apiclient_installer.log in /var/log/tarvo/.
/// \param path file name (looked up in `PATH`) or path of the installer tool
APIGEN_API std::shared_ptr<ITarvoInstaller> GetTarvoInstaller(std::string path, std::chrono::seconds timeout,
                                                              bool enableLogging,
                                                              std::shared_ptr<apigen::ILogger> logger);

/// Whether the installed agent tool, "tarvoconfig", speaks this library's major protocol version.
/// \throws apigen::ApiInternalError when the tool can't be asked; false always is the tool's own answer.
APIGEN_API bool IsControlApiCompatible();

/// Whether the installer tool at `path` speaks this library's major protocol version.
/// \throws apigen::ApiInternalError when the tool can't be asked; false always is the tool's own answer.
APIGEN_API bool IsInstallerApiCompatible(std::string path);

}  // namespace zamclientlib
