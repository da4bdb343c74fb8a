// SPDX-License-Identifier: Apache-2.0
/// \file
/// What is to be said of a job's definition. The facts about the host are asked elsewhere.
#pragma once

#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarvo {

/// What the host says of the job's definition.
struct SHostFacts {
    std::vector<std::string> MissingDirs;  ///< of the folders to back up, those that aren't there

    /// Objects of the source that can't be read as files, and why.
    std::vector<std::pair<std::string, std::string>> UnreadableObjects;

    std::string PreJobScriptFault;  ///< why it can't be run; empty when it can
    std::string PostJobScriptFault;

    /// What the repository is; none when there is no such one.
    std::optional<zamclientlib::SBackupRepositoryInfo> Repository;
    std::string RepositoryFault;  ///< why nothing can be written to its folder now; empty when it can

    bool HasPassword = false;   ///< the agent has the job's password
    std::string PasswordFault;  ///< why it can't be used

    std::string EngineFault;  ///< why the engine can't be used; empty when it can
    std::vector<std::string>
        SourceWarnings;  ///< what was seen in the source that comes back otherwise, or not at all
    std::vector<std::string> SourceNotes;  ///< likewise, of less weight
};

/// Findings in the order of the definition. Error: a run can't succeed. Warning: a run will do less than was said.
/// Info: good to know. A good job has none.
std::vector<zamclientlib::SCheckJobValidityMessage> FindingsOf(
    const zamclientlib::SBackupJobConfigurationInfo& config, const SHostFacts& facts);

/// The texts of the errors among them, joined; empty when a run may start.
std::string ErrorsOf(const std::vector<zamclientlib::SCheckJobValidityMessage>& findings);

}  // namespace tarvo
