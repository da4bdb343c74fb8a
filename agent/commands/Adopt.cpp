// SPDX-License-Identifier: Apache-2.0
// The command that takes up chains which the state does not know: after it was lost, or put back from an old copy.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "agent/commands/Actions.h"
#include "agent/commands/Lookup.h"
#include "agent/commands/Table.h"
#include "agent/engine/ReadMe.h"
#include "support/common/Text.h"

namespace tarvo::commands {
namespace {

using apigen::common::Escaped;
using apigen::common::Quoted;
namespace fs = std::filesystem;

/// A folder that bears the name of a chain; with the number 0 one that bears the name of a job and can't be looked into.
struct SFound {
    Guid Job;
    int Number = 0;
    std::string Folder;
    std::string Problem;  ///< why it is left alone before anybody has tried to open it
};

/// Why a chain is left alone; the others are gone on with.
class CLeft : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

constexpr const char* LinkProblem = "it is a link, which is not followed";

/// Exactly as the agent names the folders of jobs.
std::optional<Guid> JobOf(const std::string& name) {
    const auto id = Guid::Parse(name);
    if (!id || id->IsNil() || PlainText(*id) != name) return std::nullopt;
    return *id;
}

/// Exactly as the agent names the folders of chains; 0 of others.
int NumberOf(const std::string& name) {
    int number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    return error == std::errc() && end == name.data() + name.size() && std::to_string(number) == name
               ? std::max(number, 0)
               : 0;
}

std::vector<SFound> ChainsOfJob(const Guid& job, const fs::path& folder) {
    if (fs::is_symlink(fs::symlink_status(folder))) return {{job, 0, folder, LinkProblem}};
    std::vector<SFound> found;
    std::error_code error;
    fs::directory_iterator each(folder, error);
    for (; !error && each != fs::directory_iterator(); each.increment(error)) {
        const int number = NumberOf(each->path().filename());
        if (number == 0) continue;
        std::error_code gone;
        const auto type = each->symlink_status(gone).type();
        if (type == fs::file_type::symlink) {
            found.push_back({job, number, each->path(), LinkProblem});
        } else if (type == fs::file_type::directory) {
            found.push_back({job, number, each->path(), {}});
        }
    }
    if (error && error != std::errc::not_a_directory)
        found.push_back({job, 0, folder, "its folder can't be looked into: " + error.message()});
    return found;
}

/// In the order in which they were begun. What bears other names is somebody else's. \throws CCommandError NotFound
std::vector<SFound> ChainsIn(const std::string& location) {
    const auto name = Quoted(location);
    struct stat status {};
    if (::stat(location.c_str(), &status) != 0 && errno != ENOENT && errno != ENOTDIR && errno != ELOOP)
        throw CCommandError(Failed, name + " can't be reached: " + apigen::common::ErrorText(errno));
    if (!S_ISDIR(status.st_mode)) throw CCommandError(NotFound, "There is no folder " + name);
    std::vector<SFound> found;
    std::error_code error;
    const fs::path folder = fs::path(location) / "tarvo";
    fs::directory_iterator each(folder, error);
    for (; !error && each != fs::directory_iterator(); each.increment(error)) {
        const auto job = JobOf(each->path().filename());
        if (!job) continue;
        const auto chains = ChainsOfJob(*job, each->path());
        found.insert(found.end(), chains.begin(), chains.end());
    }
    if (error && error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory)
        throw CCommandError(Failed, Quoted(folder.string()) + " can't be looked into: " + error.message());
    if (found.empty()) {
        const bool isBelow = fs::path(location).filename() == "tarvo";
        throw CCommandError(NotFound, "There are no chains of the agent in " + name +
                                          (isBelow ? "; name the folder in which it is" : ""));
    }
    std::sort(found.begin(), found.end(), [](const SFound& left, const SFound& right) {
        return std::pair(left.Job, left.Number) < std::pair(right.Job, right.Number);
    });
    return found;
}

bool IsSameFolder(const std::string& left, const std::string& right) {
    std::error_code error;
    return fs::equivalent(left, right, error) && !error;
}

/// Adds the points where they belong among those of their job: retention goes by the order of the table.
void AddInOrder(CStore& state, const Guid& job, const std::vector<SPoint>& points) {
    const auto known = state.PointsOf(job);
    auto all = known;
    for (const auto& point : points) {
        const auto next = std::find_if(all.begin(), all.end(), [&](const SPoint& each) {
            return std::pair(point.Chain, point.Created) < std::pair(each.Chain, each.Created);
        });
        all.insert(next, point);
    }
    const auto [old, changed] =
        std::mismatch(known.begin(), known.end(), all.begin(), all.end(),
                      [](const SPoint& left, const SPoint& right) { return left.Id == right.Id; });
    std::for_each(old, known.end(), [&](const SPoint& point) { state.RemovePoint(point.Id); });
    std::for_each(changed, all.end(), [&](const SPoint& point) { state.AddPoint(point); });
}

std::string PointsText(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " point" : " points");
}

class CAdoption {
public:
    CAdoption(const SPlace& place, const SOptions& options, std::string location)
        : m_place(place),
          m_options(options),
          m_location(std::move(location)),
          m_lookup(place.Folders, options.IsDryRun),
          m_engine(place.MakeEngine()) {
        if (options.PasswordFile.empty()) return;
        m_password = PasswordIn(options.PasswordFile);
        if (const auto problem = PasswordProblem(*m_password); !problem.empty())
            throw CCommandError(Failed, Quoted(options.PasswordFile) + " opens nothing: " + problem);
    }

    void Take(const SFound& found) {
        try {
            Adopt(found);
        } catch (const CLeft& reason) {
            TellLeft(found, reason.what());
        } catch (const CEngineStopped&) {
            throw;
        } catch (const CEngineMissing&) {
            throw;
        } catch (const CEngineTooOld&) {
            throw;
        } catch (const CEngineError& error) {
            TellLeft(found, error.what());
        }
    }

    int End() {
        if (m_status == Done && !m_hasNews && !m_options.IsJson) {
            m_place.Errors << "Nothing new is in " << Quoted(m_location) << ": the agent knows all of it\n";
        }
        return m_status;
    }

private:
    struct SOpened {
        std::optional<std::string> Password;
        std::vector<SSnapshot> Snapshots;
    };
    struct SHome {
        Guid Repository;
        std::string Location;
    };

    void Adopt(const SFound& found) {
        if (!found.Problem.empty()) throw CLeft(found.Problem);
        CStore* const state = m_lookup.State();
        const auto known = Known(found);
        const auto last = state != nullptr ? state->LastSessionOf(found.Job) : std::nullopt;
        RequireQuiet(found.Job, last);
        const auto opened = Open(found, known);

        SChain chain;
        if (known) {
            chain = *known;
        } else {
            const auto home = HomeOf(found.Job);
            chain.Job = found.Job;
            chain.Number = found.Number;
            chain.Repository = home.Repository;
            chain.Location = home.Location;
            chain.State = EChainState::Closed;  // whatever its job does next, it begins a chain of its own
            chain.HasPassword = opened.Password.has_value();
            chain.Created =
                opened.Snapshots.empty()
                    ? CSystemClock().Now()
                    : std::chrono::floor<std::chrono::milliseconds>(opened.Snapshots.front().Time);
        }
        std::size_t foreign = 0;
        const auto points = NewPoints(found, opened, foreign);
        if (!m_options.IsDryRun) Write(found, chain, known.has_value(), opened, points, last);
        if (!known || !points.empty()) {
            TellTaken(found, points.size(), known.has_value());
        } else if (m_options.IsJson) {
            Tell(found, "known", 0, "");
        }
        if (foreign != 0)
            throw CLeft(std::to_string(foreign) + " of its snapshots bear the tags of other jobs or points");
    }

    std::optional<SChain> Known(const SFound& found) const {
        CStore* const state = m_lookup.State();
        auto known = state != nullptr ? state->FindChain(found.Job, found.Number) : std::nullopt;
        if (!known) return known;
        if (known->State == EChainState::Preparing) throw CLeft("a session has begun to make it");
        const auto folder =
            StoreFolder(known->Location, PlainText(known->Job), static_cast<std::uint64_t>(known->Number));
        if (!IsSameFolder(folder, found.Folder))
            throw CLeft("the agent knows this chain in another place, " + Quoted(folder));
        return known;
    }

    /// \throws CLeft where a session writes what would be found half done, or has done so since `last`
    void RequireQuiet(const Guid& job, const std::optional<Guid>& last) const {
        CStore* const state = m_lookup.State();
        if (state == nullptr) return;
        const auto sessions = state->UnfinishedSessions();
        const bool isAtWork = std::any_of(sessions.begin(), sessions.end(), [&](const SSession& session) {
            return session.Info.JobUid == job && !session.AwaitsRetry();
        });
        if (isAtWork || state->LastSessionOf(job) != last)
            throw CLeft(
                "a session of its job is at work, or was cut short and the daemon has to look at it "
                "first; try again when it has ended");
    }

    SOpened Open(const SFound& found, const std::optional<SChain>& known) const {
        SEngineStore store{found.Folder, {}};
        if (!m_engine->Exists(store))
            throw CLeft("it is no whole repository: its file \"config\" is missing");
        if (known) {
            try {
                store.Password = m_lookup.State()->ChainPassword(known->Job, known->Number);
            } catch (const CStateError& error) {
                throw CLeft(error.what());
            }
            return {store.Password, m_engine->Snapshots(store, m_place.Stop)};
        }
        try {
            return {{}, m_engine->Snapshots(store, m_place.Stop)};
        } catch (const CWrongKey&) {
            if (!m_password) throw CLeft("it has a password, which --password-file FILE gives");
        }
        store.Password = m_password;
        try {
            return {store.Password, m_engine->Snapshots(store, m_place.Stop)};
        } catch (const CWrongKey&) {
            throw CLeft("the password in " + Quoted(m_options.PasswordFile) + " does not open it");
        }
    }

    /// What of the chain's points is missing, oldest first, with their sizes.
    std::vector<SPoint> NewPoints(const SFound& found, const SOpened& opened, std::size_t& foreign) const {
        CStore* const state = m_lookup.State();
        std::uint64_t stored = 0;
        bool isFirst = true;
        for (const auto& point : state != nullptr ? state->PointsOf(found.Job) : std::vector<SPoint>()) {
            if (point.Chain != found.Number) continue;
            stored += point.StoredBytes;
            isFirst = false;
        }
        const SEngineStore store{found.Folder, opened.Password};
        std::vector<SPoint> points;
        std::set<Guid> taken;  // copies of a snapshot bear the same tags
        for (const auto& snapshot : opened.Snapshots) {
            const auto id = Guid::Parse(snapshot.Point);
            if (!id || id->IsNil() || snapshot.Job != PlainText(found.Job)) {
                ++foreign;
                continue;
            }
            if ((state != nullptr && state->FindPoint(*id)) || !taken.insert(*id).second) continue;
            SPoint point;
            point.Id = *id;
            point.Job = found.Job;
            point.Chain = found.Number;
            point.Created = std::chrono::floor<std::chrono::milliseconds>(snapshot.Time);
            point.Type = std::exchange(isFirst, false) ? zamclientlib::RestorePointType::Full
                                                       : zamclientlib::RestorePointType::Increment;
            point.EngineId = snapshot.Id;
            m_engine->List(
                {.Store = store, .Snapshot = snapshot.Id, .Point = PlainText(*id)},
                [&](const SEntry& entry) {
                    if (entry.Type == EEntryType::File) point.SourceBytes += entry.Size;
                },
                m_place.Stop);
            points.push_back(std::move(point));
        }
        // What each of them has added can't be told any more.
        const auto size = points.empty() ? 0 : m_engine->StoreSize(store).value_or(0);
        if (size > stored) points.front().StoredBytes = size - stored;
        return points;
    }

    /// The agent's name for the location, and the repository that it has there, if it has one.
    SHome HomeOf(const Guid& job) const {
        CStore* const state = m_lookup.State();
        SHome home{{}, m_location};
        if (state == nullptr) return home;
        const auto owner = state->FindJob(job);
        for (const auto& place : state->Places<zamclientlib::SBackupRepositoryInfo>()) {
            const bool isOfJob = owner && owner->Config.RepositoryId == place.Id;
            if (!IsSameFolder(place.Location, m_location) || (!home.Repository.IsNil() && !isOfJob)) continue;
            home = {place.Id, place.Location};
        }
        return home;
    }

    /// All of a chain or nothing of it, whatever ends this process.
    void Write(const SFound& found, const SChain& chain, bool isKnown, const SOpened& opened,
               const std::vector<SPoint>& points, const std::optional<Guid>& last) {
        if (isKnown && points.empty()) return;
        auto& state = *m_lookup.State();
        CStore::CTransaction transaction(state);
        RequireQuiet(found.Job, last);
        const bool isThere = m_engine->Exists({found.Folder, {}});
        const bool isNews = std::none_of(points.begin(), points.end(), [&](const SPoint& point) {
            return state.FindPoint(point.Id).has_value();
        });
        if (!isThere || !isNews || state.FindChain(found.Job, found.Number).has_value() != isKnown)
            throw CLeft("another command has changed it meanwhile");
        if (!state.FindJob(found.Job)) {
            SJob job;
            job.Id = found.Job;
            job.Config.JobName = NameOf(found);
            job.IsDeleted = true;
            state.AddJob(job, {});
        }
        if (!isKnown) state.AddChain(chain, opened.Password);
        AddInOrder(state, found.Job, points);
        transaction.Commit();
    }

    /// Escaped.
    std::string NameOf(const SFound& found) const {
        CStore* const state = m_lookup.State();
        if (const auto job = state != nullptr ? state->FindJob(found.Job) : std::nullopt)
            return Escaped(job->Config.JobName);
        if (found.Number == 0) return PlainText(found.Job);
        auto name = JobNameInReadMe(fs::path(m_location) / "tarvo" / PlainText(found.Job) / "README.txt");
        return name.empty() ? PlainText(found.Job) : name;
    }

    void Tell(const SFound& found, const std::string& outcome, std::uint64_t points,
              const std::string& details) {
        Row row{Text("job", NameOf(found)),
                Text("id", PlainText(found.Job)),
                Number("chain", static_cast<std::uint64_t>(found.Number)),
                Text("outcome", outcome),
                Number("points", points),
                Text("folder", Escaped(found.Folder)),
                Text("details", details)};
        if (found.Number == 0) row[2].Value = {};
        m_place.Out << JsonLine(row) << '\n';
        m_place.Out.flush();
    }

    std::string ChainText(const SFound& found) const {
        return (found.Number == 0 ? "all" : "chain " + std::to_string(found.Number)) + " of the job \"" +
               NameOf(found) + "\"";
    }

    void TellTaken(const SFound& found, std::size_t points, bool isKnown) {
        m_hasNews = true;
        if (m_options.IsJson) return Tell(found, m_options.IsDryRun ? "would adopt" : "adopted", points, "");
        m_place.Out << (m_options.IsDryRun ? "Would adopt " : "Adopted ")
                    << (isKnown ? PointsText(points) + " of " + ChainText(found)
                                : ChainText(found) + ", " + PointsText(points))
                    << '\n';
        m_place.Out.flush();
    }

    void TellLeft(const SFound& found, const std::string& reason) {
        m_status = Failed;
        if (m_options.IsJson) return Tell(found, "left", 0, reason);
        m_place.Errors << "Left alone: " << ChainText(found) << ": " << reason << '\n';
    }

    const SPlace& m_place;
    const SOptions& m_options;
    const std::string m_location;
    const CLookup m_lookup;
    const std::shared_ptr<IEngine> m_engine;
    std::optional<std::string> m_password;
    int m_status = Done;
    bool m_hasNews = false;
};

}  // namespace

int Adopt(const SPlace& place, const SOptions& options) {
    if (options.Location.empty()) throw CCommandError(Usage, "The location names no folder");
    std::string location = fs::absolute(options.Location).lexically_normal();
    while (location.size() > 1 && location.ends_with('/'))
        location.pop_back();
    const auto found = ChainsIn(location);
    if (!options.IsDryRun) {
        MakeFolders(place.Folders);
        const CStore made(place.Folders.State);
    }
    CAdoption adoption(place, options, location);
    for (const auto& each : found)
        adoption.Take(each);
    return adoption.End();
}

}  // namespace tarvo::commands
