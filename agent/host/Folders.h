// SPDX-License-Identifier: Apache-2.0
/// \file
/// Where the agent keeps what belongs to it.
#pragma once

#include <string>

namespace tarvo {

struct SFolders {
    std::string SettingsFile;  ///< tarvod.conf, which need not be there
    std::string State;
    std::string Run;
    std::string Log;
    std::string Cache;

    std::string Database() const { return State + "/state.db"; }
    std::string Secrets() const { return State + "/secrets"; }
    std::string Lists() const { return State + "/lists"; }  ///< what sessions feed the engine
    std::string ControlSocket() const { return Run + "/control.sock"; }
    std::string EventSocket() const { return Run + "/events.sock"; }
    std::string LogFile() const { return Log + "/tarvod.log"; }

    friend bool operator==(const SFolders&, const SFolders&) = default;
};

/// What the environment and the user decide it by.
struct SFoldersSource {
    bool IsRoot = false;
    std::string TarvoHome;  ///< each of these empty when it isn't set
    std::string Home;
    std::string XdgConfigHome;
    std::string XdgStateHome;
    std::string XdgCacheHome;
    std::string XdgRuntimeDir;
};

/// The environment and the effective user of this process; the home is the account's when the environment has none.
SFoldersSource FoldersSourceOfProcess();

/// Makes nothing. Relative folders of the environment don't count, but for TARVO_HOME, which is refused then.
/// \throws std::runtime_error that says what to do, when there is no home or a socket's path would be too long
SFolders FoldersOf(const SFoldersSource& source);
SFolders FoldersOfProcess();

/// Makes the folders that are missing (0700; missing parents as well) and refuses those that aren't the user's own or
/// that others may enter. The settings' folder is left alone.
/// \throws std::runtime_error
void MakeFolders(const SFolders& folders);

}  // namespace tarvo
