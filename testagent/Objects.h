// SPDX-License-Identifier: Apache-2.0
/// \file
/// The objects that a client calls: views of the agent, each for the owner who asked for control.
#pragma once

#include <zamclientlib/Control.h>

#include <memory>

#include "testagent/CAgent.h"

namespace testagent {

using AgentPtr = std::shared_ptr<CAgent>;

std::shared_ptr<zamclientlib::IZamControl> MakeControl(AgentPtr agent);
std::shared_ptr<zamclientlib::IBackupJob> MakeJob(AgentPtr agent, GrantPtr grant, std::shared_ptr<SJob> job);
std::shared_ptr<zamclientlib::IBackupJobSession> MakeSession(AgentPtr agent, GrantPtr grant,
                                                             std::shared_ptr<SJob> job,
                                                             std::shared_ptr<SSession> session);
std::shared_ptr<zamclientlib::IRepositoryManager> MakeRepositoryManager(AgentPtr agent, GrantPtr grant);
std::shared_ptr<zamclientlib::IBackupServerManager> MakeServerManager(AgentPtr agent, GrantPtr grant);
std::shared_ptr<zamclientlib::ICloudServiceProviderManager> MakeProviderManager(AgentPtr agent,
                                                                                GrantPtr grant);

}  // namespace testagent
