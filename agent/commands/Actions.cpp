// SPDX-License-Identifier: Apache-2.0
// Commands that do something: restore, verify, forget.
#include "agent/commands/Actions.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>

#include "agent/commands/Lookup.h"
#include "agent/commands/Table.h"
#include "support/common/Text.h"

namespace tarvo::commands {
namespace {

using apigen::common::Escaped;
using apigen::common::Quoted;

std::string ChainText(const CLookup& lookup, const SChain& chain) {
    return "chain " + std::to_string(chain.Number) + " of the job \"" + lookup.JobName(chain.Job) + "\"";
}

/// What was found is told to the daemon by way of the state: its next run begins a new chain.
void Mark(CLookup& lookup, const SChain& verified, EChainState state, const std::string& damage,
          const std::optional<SVerifyProgress>& progress) {
    auto& store = *lookup.State();
    CStore::CTransaction transaction(store);
    auto chain = store.FindChain(verified.Job, verified.Number);
    if (!chain) return;  // removed meanwhile
    if (state != EChainState::Open) {
        chain->State = state;
        chain->Damage = damage;
    } else if (chain->State == EChainState::Lost) {  // its disk is back
        const bool isNewest = store.ChainsOf(chain->Job).back().Number == chain->Number;
        chain->State = isNewest ? EChainState::Open : EChainState::Closed;
        chain->Damage.clear();
    }
    if (progress) chain->Verified = *progress;
    store.SaveChain(*chain);
    transaction.Commit();
}

template <class F>
auto WhenUnlocked(IEngine& engine, const SEngineStore& store, const std::stop_token& stop,
                  const F& operation) {
    try {
        return operation();
    } catch (const CStoreLocked&) {
        // Left by a process that was killed; a living one's stays, and is told of.
        engine.Unlock(store, stop);
        return operation();
    }
}

/// \return the exit status for this chain
int VerifyChain(const SPlace& place, CLookup& lookup, IEngine& engine, const SChain& chain,
                const SOptions& options) {
    const std::string name = ChainText(lookup, chain);
    const auto tell = [&](const std::string& outcome, const std::string& details) {
        if (options.IsJson) {
            place.Out << JsonLine({Text("job", lookup.JobName(chain.Job)),
                                   Number("chain", static_cast<std::uint64_t>(chain.Number)),
                                   Text("outcome", outcome), Text("details", details)})
                      << '\n';
        } else {
            place.Out << name << ": " << outcome << (details.empty() ? "" : ": " + details) << '\n';
        }
        place.Out.flush();
    };
    SVerifyRequest request;
    SVerifyProgress progress;
    progress.Last = CSystemClock().Now();
    progress.Part = progress.Parts = 1;
    try {
        request.Store = lookup.StoreOf(chain, options.PasswordFile);
        if (chain.State == EChainState::Lost && !engine.Exists(request.Store)) {
            tell("lost", chain.Damage.empty() ? "it is no longer in " + Quoted(request.Store.Folder)
                                              : Escaped(chain.Damage));
            return Failed;
        }
        if (options.Parts > 1) {
            const bool goesOn = chain.Verified.Parts == options.Parts && chain.Verified.Part < options.Parts;
            progress.Part = goesOn ? chain.Verified.Part + 1 : 1;
            progress.Parts = options.Parts;
            request.Part = SVerifyPart{progress.Part, progress.Parts};
        }
        const auto result = WhenUnlocked(engine, request.Store, place.Stop,
                                         [&] { return engine.Verify(request, place.Stop); });
        const std::string part =
            request.Part ? "part " + std::to_string(progress.Part) + " of " + std::to_string(progress.Parts)
                         : "whole";
        if (!result.IsDamaged) {
            Mark(lookup, chain, EChainState::Open, "", progress);
            tell("sound", "read " + part);
            return Done;
        }
        std::string details;
        for (const auto& finding : result.Findings)
            details += (details.empty() ? "" : "; ") + finding;
        Mark(lookup, chain, EChainState::Damaged, details, progress);
        tell("damaged", details);
    } catch (const CNoLocation& away) {
        tell("not read", away.what());
    } catch (const CNoStore& lost) {
        Mark(lookup, chain, EChainState::Lost, lost.what(), std::nullopt);
        tell("lost", lost.what());
    } catch (const CStoreDamaged& damage) {
        Mark(lookup, chain, EChainState::Damaged, damage.what(), std::nullopt);
        tell("damaged", damage.what());
    } catch (const CStoreLocked& busy) {
        tell("not read",
             std::string("a session or another command works on it; try again later. ") + busy.what());
    } catch (const CEngineStopped&) {
        throw;
    } catch (const CEngineMissing&) {
        throw;
    } catch (const CEngineTooOld&) {
        throw;
    } catch (const std::exception& error) {
        tell("not read", error.what());
    }
    return Failed;
}

/// What stands where a point's entries come back. The engine would write through links to wherever they lead, fails
/// where there is a link or a pipe, and drops all but one of a file's names; so whatever has a new one coming goes first.
class COverwritten {
public:
    explicit COverwritten(std::string root) : m_root(std::move(root)) {}

    /// \throws CCommandError when something stands there that is not replaced
    void Look(const SEntry& entry, bool isWanted) {
        std::string path = m_root + entry.Path;
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0) return;
        const bool isFolder = S_ISDIR(status.st_mode);
        if (entry.Type == EEntryType::Folder && !isFolder) {
            throw CCommandError(Failed, Quoted(path) +
                                            " is no folder, and the point has one there: nothing was " +
                                            "restored; move it away, or restore to another folder");
        }
        if (!isWanted || entry.Type == EEntryType::Folder) return;
        if (isFolder) {
            throw CCommandError(Failed, Quoted(path) +
                                            " is a folder, and the point has none there: nothing was " +
                                            "restored; move it away, or restore to another folder");
        }
        m_paths.push_back(std::move(path));
    }
    void Remove() const {
        for (const auto& path : m_paths) {
            if (::unlink(path.c_str()) == 0 || errno == ENOENT) continue;
            throw CCommandError(Failed,
                                Quoted(path) + " can't be replaced: " + apigen::common::ErrorText(errno));
        }
    }

private:
    std::string m_root;
    std::vector<std::string> m_paths;
};

/// \throws CCommandError where nothing can be restored to
void CheckTarget(const std::filesystem::path& target) {
    for (auto path = target; !path.empty(); path = path.parent_path()) {
        struct stat status {};
        const bool isThere = ::stat(path.c_str(), &status) == 0;
        if (!isThere && errno == ENOENT && path != path.parent_path()) continue;
        if (isThere && !S_ISDIR(status.st_mode)) errno = ENOTDIR;
        // What is there already may have parts that can be written to.
        const bool isEnough = path == target || ::access(path.c_str(), W_OK | X_OK) == 0;
        if (isThere && S_ISDIR(status.st_mode) && isEnough) return;
        throw CCommandError(Failed, "Nothing can be restored to " + Quoted(path.string()) + ": " +
                                        apigen::common::ErrorText(errno));
    }
}

bool HoldsSomething(const std::filesystem::path& folder) {
    std::error_code error;
    const std::filesystem::directory_iterator first(folder, error);
    return !error && first != std::filesystem::directory_iterator();
}

}  // namespace

int Restore(const SPlace& place, const SOptions& options) {
    if (options.To.empty()) throw CCommandError(Usage, "--to names no folder");
    const CLookup lookup(place.Folders, true);
    const auto point = lookup.Point(options.Point, options.Job);
    const auto chain = lookup.ChainOf(point);
    const auto store = lookup.StoreOf(chain, options.PasswordFile);
    const auto engine = place.MakeEngine();
    const std::string target = std::filesystem::absolute(options.To).lexically_normal();
    const std::string root = target == "/"           ? ""
                             : target.ends_with('/') ? target.substr(0, target.size() - 1)
                                                     : target;
    CPathFilter filter(options.Paths);
    const SListRequest listed{store, point.EngineId, "/", PointName(point)};
    if (options.IsDryRun) {
        std::uint64_t count = 0, bytes = 0;
        engine->List(
            listed,
            [&](const SEntry& entry) {
                if (!filter.Takes(entry.Path)) return;
                ++count;
                bytes += entry.Size;
                place.Out << Escaped(root + entry.Path) << '\n';
            },
            place.Stop);
        filter.RequireAll(point);
        place.Errors << "Would restore " << Counted(count, "entry", "entries") << ", " << SizeText(bytes)
                     << '\n';
        return Done;
    }
    CheckTarget(root.empty() ? "/" : root);
    const bool mayOverwrite = HoldsSomething(target);
    if (mayOverwrite || !filter.IsAll()) {
        COverwritten overwritten(root);
        engine->List(
            listed,
            [&](const SEntry& entry) {
                const bool isWanted = filter.Takes(entry.Path);
                if (mayOverwrite && (isWanted || filter.LeadsOn(entry.Path)))
                    overwritten.Look(entry, isWanted);
            },
            place.Stop);
        filter.RequireAll(point);
        overwritten.Remove();
    }
    SRestoreRequest request;
    request.Store = store;
    request.Snapshot = point.EngineId;
    request.Target = target;
    request.Paths = filter.Paths();
    request.Point = listed.Point;
    request.OnWarning = [&](const SEngineWarning& warning) { place.Errors << warning.Message << '\n'; };
    const auto result =
        WhenUnlocked(*engine, store, place.Stop, [&] { return engine->Restore(request, place.Stop); });
    if (result.Warnings != 0) {
        place.Errors << "Restored with "
                     << Counted(result.Warnings, "entry that is not as it was",
                                "entries that are not as they were")
                     << '\n';
        return Failed;
    }
    place.Out << "Restored the point " << PlainText(point.Id) << " of the job \"" << lookup.JobName(point.Job)
              << "\" to " << Escaped(target) << '\n';
    return Done;
}

int Verify(const SPlace& place, const SOptions& options) {
    CLookup lookup(place.Folders, false);
    auto chains = lookup.Chains(options.Job);
    std::erase_if(chains, [&](const SChain& chain) {
        return chain.State == EChainState::Preparing || (options.Chain != 0 && chain.Number != options.Chain);
    });
    if (chains.empty() && options.Chain != 0)
        throw CCommandError(NotFound, "There is no chain " + std::to_string(options.Chain));
    if (chains.empty()) {
        place.Errors << "There is nothing to verify yet" << lookup.WhyNothing() << '\n';
        return Done;
    }
    const auto engine = place.MakeEngine();
    int status = Done;
    for (const auto& chain : chains)
        status = std::max(status, VerifyChain(place, lookup, *engine, chain, options));
    return status;
}

int ForgetOrphans(const SPlace& place, const SOptions& options) {
    CLookup lookup(place.Folders, options.IsDryRun);
    auto chains = lookup.Chains("");
    std::erase_if(chains, [&](const SChain& chain) { return !lookup.IsOrphan(chain.Job); });
    if (chains.empty()) {
        place.Errors << "There are no orphans" << lookup.WhyNothing() << '\n';
        return Done;
    }
    const auto engine = place.MakeEngine();
    std::set<Guid> jobs;
    int status = Done;
    for (const auto& chain : chains) {
        const auto points = lookup.State()->PointsOf(chain.Job);
        const auto count = std::count_if(points.begin(), points.end(),
                                         [&](const SPoint& point) { return point.Chain == chain.Number; });
        const std::string what = ChainText(lookup, chain) + ", " +
                                 Counted(static_cast<std::uint64_t>(count), "point", "points") +
                                 ": the job was deleted";
        if (options.IsDryRun) {
            place.Out << "Would remove " << what << '\n';
            continue;
        }
        SEngineStore store;
        store.Folder =
            StoreFolder(chain.Location, PlainText(chain.Job), static_cast<std::uint64_t>(chain.Number));
        std::error_code error;
        if (!std::filesystem::is_directory(chain.Location, error)) {
            place.Errors << "Not removed: " << what << "; its place " << Quoted(chain.Location)
                         << " is not there: is its disk mounted?\n";
            status = Failed;
            continue;
        }
        try {
            engine->Remove(store);
        } catch (const CEngineError& failure) {
            place.Errors << failure.what() << '\n';
            status = Failed;
            continue;
        }
        lookup.State()->RemoveChain(chain.Job, chain.Number);
        jobs.insert(chain.Job);
        place.Out << "Removed " << what << '\n';
    }
    for (const auto& job : jobs)
        if (lookup.State()->ChainsOf(job).empty() && lookup.State()->FindJob(job))
            lookup.State()->RemoveJob(job);
    return status;
}

}  // namespace tarvo::commands
