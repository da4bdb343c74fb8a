// SPDX-License-Identifier: Apache-2.0
/// \file
/// Finding what a command names: jobs, points, chains, passwords.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/commands/Commands.h"
#include "agent/core/Values.h"
#include "agent/state/CStore.h"

namespace tarvo::commands {

/// Ends a command with an exit status.
class CCommandError : public std::runtime_error {
public:
    CCommandError(int status, const std::string& message) : std::runtime_error(message), m_status(status) {}
    int Status() const noexcept { return m_status; }

private:
    int m_status;
};

/// What the file holds, without the end of its line. \throws CCommandError
std::string PasswordIn(const std::string& path);

/// The parts of a point that are asked for, and which of them it holds.
class CPathFilter {
public:
    /// Without paths, or with "/", everything.
    explicit CPathFilter(std::vector<std::string> paths);

    bool IsAll() const noexcept { return m_paths.empty(); }
    const std::vector<std::string>& Paths() const noexcept { return m_paths; }

    /// True of the paths themselves and of what is below them.
    bool Takes(const std::string& path);

    /// True of the folders above the paths.
    bool LeadsOn(const std::string& path) const;

    /// \throws CCommandError NotFound that names one that has not come by
    void RequireAll(const SPoint& point) const;

private:
    std::vector<std::string> m_paths;
    std::set<std::string> m_missing;
};

/// A point in messages: its id and its time.
std::string PointName(const SPoint& point);

/// The state, as far as there is one: before the first start of the daemon there are no jobs and no points.
class CLookup {
public:
    CLookup(const SFolders& folders, bool isReadOnly);

    /// Those with this name or id, deleted ones too; all for an empty one. \throws CCommandError NotFound
    std::vector<SJob> Jobs(const std::string& nameOrId) const;

    /// Of these jobs, and for no job in particular of those that nobody knows any more. Oldest first.
    std::vector<SPoint> Points(const std::string& job) const;
    std::vector<SChain> Chains(const std::string& job) const;

    /// By an id, a unique beginning of one, or "latest".
    /// \throws CCommandError NotFound where there is none, Usage where there are several
    SPoint Point(const std::string& name, const std::string& job) const;

    SChain ChainOf(const SPoint& point) const;

    /// With the password of the agent's own store, or the one in the file.
    SEngineStore StoreOf(const SChain& chain, const std::string& passwordFile = "") const;

    std::string JobName(const Guid& job) const;  ///< escaped
    bool IsOrphan(const Guid& job) const;        ///< its job was deleted

    /// For messages: names the folder where a state was looked for, when there was none. Somebody may have meant another.
    std::string WhyNothing() const;

    CStore* State() const noexcept { return m_state.get(); }  ///< none before the first start

private:
    std::string m_folder;
    std::unique_ptr<CStore> m_state;
    std::vector<SJob> m_jobs;
};

}  // namespace tarvo::commands
