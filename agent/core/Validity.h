// SPDX-License-Identifier: Apache-2.0
/// \file
/// What is to be said of a job's definition. The facts about the host are asked elsewhere.
#pragma once

#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#include <optional>
#include <string>
#include <vector>

namespace tarvo {

/// A path that the job names, and what the host says of it.
struct SPathFact {
    std::string Path;
    bool IsThere = false;
    bool IsFolder = false;
    bool CanRun = false;  ///< may be executed
};

/// An object of the source (a volume, a disk), and the mounted folder that it was found to be.
struct SObjectFact {
    std::string Object;
    std::optional<std::string> MountPoint;
};

struct SHostFacts {
    std::vector<SPathFact> IncludeDirs;
    std::vector<SObjectFact> Objects;
    std::vector<SPathFact> Scripts;

    /// What the repository is; none when there is no such one.
    std::optional<zamclientlib::SBackupRepositoryInfo> Repository;
    std::string RepositoryFault;  ///< why its folder can't be written to now; empty when it can
    bool IsFolderMounted = true;  ///< of a shared folder

    std::string EngineFault;                  ///< why the engine can't be used; empty when it can
    std::vector<std::string> EngineWarnings;  ///< what that version does less well than said
    std::vector<std::string> EngineNotes;     ///< what it does otherwise

    bool HasPassword = false;  ///< the agent has the job's password
};

/// Findings in the order of the definition. Error: a run can't succeed. Warning: a run will do less than was said.
/// Info: good to know. A good job has none.
std::vector<zamclientlib::SCheckJobValidityMessage> FindingsOf(
    const zamclientlib::SBackupJobConfigurationInfo& config, const SHostFacts& facts);

/// The texts of the errors among them, joined; empty when a run may start.
std::string ErrorsOf(const std::vector<zamclientlib::SCheckJobValidityMessage>& findings);

}  // namespace tarvo
