// SPDX-License-Identifier: Apache-2.0
#include "agent/commands/Lookup.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <set>
#include <utility>

#include "agent/commands/Table.h"
#include "support/common/Text.h"

namespace tarvo::commands {
namespace {

using apigen::common::Escaped;
using apigen::common::Quoted;

/// As ids are written here: lower-case digits without braces.
std::string Plain(std::string text) {
    if (text.starts_with('{')) text.erase(0, 1);
    if (text.ends_with('}')) text.pop_back();
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// The chain that the two are in decides nothing: a job may have several.
bool IsOf(const std::vector<SJob>& jobs, const Guid& id) {
    return std::any_of(jobs.begin(), jobs.end(), [&](const SJob& job) { return job.Id == id; });
}

}  // namespace

std::string PasswordIn(const std::string& path) {
    constexpr std::size_t Limit = 64 * 1024;
    std::ifstream file(path, std::ios::binary);
    std::string password(Limit + 1, '\0');
    if (!file || !file.read(password.data(), static_cast<std::streamsize>(password.size())).eof())
        throw CCommandError(Failed, "The password file " + Quoted(path) + " can't be read, or is too long");
    password.resize(static_cast<std::size_t>(file.gcount()));
    if (password.ends_with('\n')) password.pop_back();
    if (password.ends_with('\r')) password.pop_back();
    return password;
}

CPathFilter::CPathFilter(std::vector<std::string> paths) : m_paths(std::move(paths)) {
    if (std::find(m_paths.begin(), m_paths.end(), "/") != m_paths.end()) m_paths.clear();
    m_missing.insert(m_paths.begin(), m_paths.end());
}

bool CPathFilter::Takes(const std::string& path) {
    if (IsAll()) return true;
    m_missing.erase(path);
    const auto holds = [&](const std::string& wanted) {
        return path.starts_with(wanted) && (path.size() == wanted.size() || path[wanted.size()] == '/');
    };
    return std::any_of(m_paths.begin(), m_paths.end(), holds);
}

bool CPathFilter::LeadsOn(const std::string& path) const {
    return std::any_of(m_paths.begin(), m_paths.end(), [&](const std::string& wanted) {
        return wanted.size() > path.size() && wanted.starts_with(path) && wanted[path.size()] == '/';
    });
}

void CPathFilter::RequireAll(const SPoint& point) const {
    if (m_missing.empty()) return;
    throw CCommandError(NotFound,
                        "The point " + PlainText(point.Id) + " does not hold " + Quoted(*m_missing.begin()));
}

std::string PointName(const SPoint& point) {
    return PlainText(point.Id) + " of " + TimeText(point.Created);
}

CLookup::CLookup(const SFolders& folders, bool isReadOnly) : m_folder(folders.State) {
    if (::access(folders.Database().c_str(), F_OK) != 0) {
        if (errno == ENOENT) return;
        throw CCommandError(Failed, "The state in " + Quoted(folders.State) +
                                        " can't be read: " + apigen::common::ErrorText(errno));
    }
    m_state = std::make_unique<CStore>(folders.State, SStoreOptions{.IsReadOnly = isReadOnly});
    m_jobs = m_state->Jobs();
}

std::string CLookup::WhyNothing() const {
    return m_state != nullptr ? "" : ": no agent has kept its state in " + Quoted(m_folder);
}

std::vector<SJob> CLookup::Jobs(const std::string& nameOrId) const {
    if (nameOrId.empty()) return m_jobs;
    std::vector<SJob> found;
    const std::string id = Plain(nameOrId);
    for (const auto& job : m_jobs)
        if (job.Config.JobName == nameOrId || PlainText(job.Id) == id) found.push_back(job);
    // A name may be given again when its job has been deleted: the living one is meant.
    if (std::any_of(found.begin(), found.end(), [](const SJob& job) { return !job.IsDeleted; }))
        std::erase_if(found, [&](const SJob& job) { return job.IsDeleted && PlainText(job.Id) != id; });
    if (found.empty()) throw CCommandError(NotFound, "There is no job " + Quoted(nameOrId) + WhyNothing());
    return found;
}

std::vector<SPoint> CLookup::Points(const std::string& job) const {
    const auto jobs = Jobs(job);
    if (m_state == nullptr) return {};
    auto points = m_state->Points();
    if (!job.empty()) std::erase_if(points, [&](const SPoint& point) { return !IsOf(jobs, point.Job); });
    std::stable_sort(points.begin(), points.end(),
                     [](const SPoint& left, const SPoint& right) { return left.Created < right.Created; });
    return points;
}

std::vector<SChain> CLookup::Chains(const std::string& job) const {
    const auto jobs = Jobs(job);
    if (m_state == nullptr) return {};
    auto chains = m_state->Chains();
    if (!job.empty()) std::erase_if(chains, [&](const SChain& chain) { return !IsOf(jobs, chain.Job); });
    return chains;
}

SPoint CLookup::Point(const std::string& name, const std::string& job) const {
    const auto points = Points(job);
    if (name == "latest") {
        std::set<Guid> jobs;
        std::string names;
        for (const auto& point : points) {
            if (!jobs.insert(point.Job).second) continue;
            names += (names.empty() ? "" : ", ") + JobName(point.Job);
            // Its name may have been given again: by name it is the other job that is meant.
            if (IsOrphan(point.Job)) names += " (deleted: " + PlainText(point.Job) + ")";
        }
        if (jobs.empty()) throw CCommandError(NotFound, "There is no point yet" + WhyNothing());
        if (jobs.size() > 1)
            throw CCommandError(Usage, "There are points of several jobs; say --job NAME, one of: " + names);
        return points.back();
    }
    const std::string beginning = Plain(name);
    std::vector<SPoint> found;
    for (const auto& point : points)
        if (!beginning.empty() && PlainText(point.Id).starts_with(beginning)) found.push_back(point);
    if (found.empty()) throw CCommandError(NotFound, "There is no point " + Quoted(name) + WhyNothing());
    if (found.size() > 1) {
        throw CCommandError(Usage, "There are " + std::to_string(found.size()) +
                                       " points whose ids begin with " + Quoted(name) + ": say more of it");
    }
    return found.front();
}

SChain CLookup::ChainOf(const SPoint& point) const {
    auto chain = m_state->FindChain(point.Job, point.Chain);
    if (!chain)
        throw CCommandError(NotFound,
                            "The chain of the point " + PlainText(point.Id) + " is not known any more");
    return *chain;
}

SEngineStore CLookup::StoreOf(const SChain& chain, const std::string& passwordFile) const {
    SEngineStore store;
    store.Folder =
        StoreFolder(chain.Location, PlainText(chain.Job), static_cast<std::uint64_t>(chain.Number));
    if (!passwordFile.empty()) {
        store.Password = PasswordIn(passwordFile);
    } else if (chain.HasPassword) {
        store.Password = m_state->ChainPassword(chain.Job, chain.Number);
        if (!store.Password) {
            throw CCommandError(Failed, "The agent does not have the password of chain " +
                                            std::to_string(chain.Number) + " of " + JobName(chain.Job) +
                                            " any more; give it with --password-file FILE");
        }
    }
    return store;
}

std::string CLookup::JobName(const Guid& id) const {
    for (const auto& job : m_jobs)
        if (job.Id == id) return Escaped(job.Config.JobName);
    return PlainText(id);
}

bool CLookup::IsOrphan(const Guid& id) const {
    return std::none_of(m_jobs.begin(), m_jobs.end(),
                        [&](const SJob& job) { return job.Id == id && !job.IsDeleted; });
}

}  // namespace tarvo::commands
