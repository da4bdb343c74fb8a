// SPDX-License-Identifier: Apache-2.0
/// \file
/// The daemon's process: what it listens to, from its start to its end.
#pragma once

#include <zamclientlib/Control.h>

#include <functional>
#include <memory>

#include "agent/core/ILog.h"
#include "agent/core/Values.h"
#include "agent/daemon/Settings.h"
#include "agent/host/Folders.h"

namespace tarvo {

/// What the daemon keeps running.
class IWork {
public:
    virtual ~IWork() = default;

    /// The root object for one client. Called by the client's thread, as its methods are.
    virtual std::shared_ptr<zamclientlib::IZamControl> MakeControl(const SPeer& peer) = 0;

    virtual void Start() = 0;
    virtual void Reload(const SSettings& settings) = 0;
    virtual void ClockChanged() noexcept = 0;

    /// Within seconds. Clients may still call then, and are refused.
    virtual void Stop() noexcept = 0;
};

using MakeWork =
    std::function<std::unique_ptr<IWork>(const SFolders& folders, const SSettings& settings, ILog& log)>;

/// Runs until SIGTERM or SIGINT. One a process: takes the process's signals over.
/// \param readyDescriptor where the starter wants to be told how the start went; -1 when nobody does. It is closed then.
/// \return the process's exit status; what went wrong was written to standard error
int RunDaemon(const MakeWork& makeWork, int readyDescriptor);

}  // namespace tarvo
