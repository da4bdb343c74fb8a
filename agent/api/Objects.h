// SPDX-License-Identifier: Apache-2.0
/// \file
/// The objects that a client calls: views of the agent that look up and hand on. They show things as they are when
/// they are asked, whoever has changed them.
#pragma once

#include <zamclientlib/Control.h>

#include <memory>

#include "agent/core/Values.h"
#include "agent/jobs/CAgent.h"

namespace tarvo::api {

/// The root object for one client. The agent outlives it.
std::shared_ptr<zamclientlib::IZamControl> MakeControl(CAgent& agent, SPeer peer);

/// \name What is had from it
/// @{
std::shared_ptr<zamclientlib::IZamProduct> MakeProduct(CAgent& agent, SCaller caller);
std::shared_ptr<zamclientlib::IBackupJob> MakeJob(CAgent& agent, SCaller caller, const Guid& id);
std::shared_ptr<zamclientlib::IBackupJobSession> MakeSession(CAgent& agent, SCaller caller, const Guid& id);
std::shared_ptr<zamclientlib::IRepositoryManager> MakeRepositoryManager(CAgent& agent, SCaller caller);
std::shared_ptr<zamclientlib::IBackupServerManager> MakeServerManager(CAgent& agent, SCaller caller);
std::shared_ptr<zamclientlib::ICloudServiceProviderManager> MakeProviderManager(CAgent& agent,
                                                                                SCaller caller);
/// @}

}  // namespace tarvo::api
