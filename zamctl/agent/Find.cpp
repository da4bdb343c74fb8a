// SPDX-License-Identifier: Apache-2.0
#include "agent/Find.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "Failure.h"
#include "show/Words.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::string PlainId(std::string_view word) {
    std::string plain = Lower(word);
    if (plain.starts_with('{')) plain.erase(0, 1);
    if (plain.ends_with('}')) plain.pop_back();
    return plain;
}

std::string Described(const SCalled& called) {
    return called.Name.empty() ? IdText(called.Id) : Quoted(called.Name) + " (" + IdText(called.Id) + ")";
}

template <class Matches>
std::vector<std::size_t> Where(const std::vector<SCalled>& all, Matches matches) {
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < all.size(); ++i)
        if (matches(all[i])) found.push_back(i);
    return found;
}

/// What is there to choose from, for those who see that a word calls nothing.
std::string NothingCalled(std::string_view kind, std::string_view word, const std::vector<SCalled>& all,
                          std::string& hint) {
    std::vector<std::string> names;
    for (const auto& called : all)
        if (!called.Name.empty()) names.push_back(called.Name);
    if (const std::string nearest = Nearest(word, names); !nearest.empty()) {
        hint = "did you mean " + Quoted(nearest) + "?";
    } else if (all.empty()) {
        hint = "there is none at all yet";
    } else if (!names.empty() && names.size() <= 8) {
        for (const auto& name : names)
            hint += (hint.empty() ? "there is " : ", ") + Quoted(name);
    }
    return "there is no " + std::string(kind) + " " + Quoted(word);
}

}  // namespace

std::string IdText(const apigen::Guid& id) {
    return PlainId(id.Serialize());
}

std::size_t Choose(std::string_view kind, std::string_view word, const std::vector<SCalled>& all) {
    if (word.empty()) throw CFailure(EExit::Usage, "an empty text is no " + std::string(kind));
    const std::string id = PlainId(word);
    auto found = Where(all, [&](const SCalled& called) { return called.Name == word; });
    if (found.empty()) found = Where(all, [&](const SCalled& called) { return IdText(called.Id) == id; });
    if (found.empty() && !id.empty()) {
        found = Where(all, [&](const SCalled& called) {
            return called.Name.starts_with(word) || IdText(called.Id).starts_with(id);
        });
    }
    if (found.empty()) {
        std::string hint;
        const std::string why = NothingCalled(kind, word, all, hint);
        throw CFailure(EExit::NotFound, why, hint);
    }
    if (found.size() > 1) {
        constexpr std::size_t Most = 10;
        std::string hint = "one of them:";
        for (std::size_t i = 0; i < std::min(found.size(), Most); ++i)
            hint += "\n  " + Described(all[found[i]]);
        if (found.size() > Most) hint += "\n  and " + std::to_string(found.size() - Most) + " more";
        throw CFailure(EExit::Usage,
                       Quoted(word) + " may be any of " +
                           Counted(found.size(), kind, kind == "repository" ? "repositories" : ""),
                       hint);
    }
    return found.front();
}

std::vector<SFoundJob> AllJobs(IZamProduct& product) {
    std::vector<SFoundJob> jobs;
    for (auto& job : product.GetBackupJobs()) {
        if (job == nullptr) continue;
        auto info = job->GetInfo();
        jobs.push_back({std::move(job), std::move(info)});
    }
    return jobs;
}

SFoundJob FindJob(IZamProduct& product, std::string_view word) {
    // A whole id spares the walk through all jobs.
    if (const auto id = apigen::Guid::Parse(word)) {
        if (auto job = product.FindBackupJob(*id)) {
            auto info = job->GetInfo();
            return {std::move(job), std::move(info)};
        }
    }
    auto jobs = AllJobs(product);
    std::vector<SCalled> called;
    for (const auto& job : jobs)
        called.push_back({job.Info.Id, job.Info.Name});
    return std::move(jobs[Choose("job", word, called)]);
}

std::vector<SFoundJob> FindJobs(IZamProduct& product, const std::vector<std::string>& words) {
    auto all = AllJobs(product);
    if (words.empty()) return all;
    std::vector<SCalled> called;
    for (const auto& job : all)
        called.push_back({job.Info.Id, job.Info.Name});
    std::vector<std::size_t> chosen;
    for (const auto& word : words) {
        const std::size_t index = Choose("job", word, called);
        if (std::find(chosen.begin(), chosen.end(), index) == chosen.end()) chosen.push_back(index);
    }
    std::vector<SFoundJob> jobs;
    for (const std::size_t index : chosen)
        jobs.push_back(std::move(all[index]));
    return jobs;
}

SFoundSession FindSession(IZamProduct& product, std::string_view word) {
    const auto last = [](const std::vector<SFoundJob>& jobs) {
        SFoundSession newest;
        for (const auto& job : jobs) {
            auto session = job.Job->FindLastBackupJobSession();
            if (session == nullptr) continue;
            auto info = session->GetInfo();
            const auto start = [](const SBackupJobSessionInfo& of) {
                return std::pair(of.StartTimeUtc.seconds, of.StartTimeUtc.milliseconds);
            };
            if (newest.Session == nullptr || start(newest.Info) < start(info))
                newest = {std::move(session), std::move(info)};
        }
        return newest;
    };
    if (const auto id = apigen::Guid::Parse(word)) {
        if (auto session = product.FindBackupJobSessionById(*id)) {
            auto info = session->GetInfo();
            return {std::move(session), std::move(info)};
        }
    }
    auto jobs = AllJobs(product);
    if (word == "latest") {
        auto newest = last(jobs);
        if (newest.Session == nullptr) throw CFailure(EExit::NotFound, "no job has run yet");
        return newest;
    }
    for (auto& job : jobs) {
        if (job.Info.Name != word) continue;
        std::vector<SFoundJob> one;
        one.push_back(std::move(job));
        auto newest = last(one);
        if (newest.Session == nullptr)
            throw CFailure(EExit::NotFound, "the job " + Quoted(word) + " has not run yet");
        return newest;
    }
    // A beginning of an id: only the sessions themselves know theirs.
    const std::string id = PlainId(word);
    std::vector<SCalled> called;
    std::vector<SFoundSession> matching;
    if (!id.empty()) {
        for (const auto& job : jobs) {
            for (auto& session : job.Job->GetBackupJobSessions()) {
                if (session == nullptr) continue;
                auto info = session->GetInfo();
                if (!IdText(info.Uid).starts_with(id)) continue;
                called.push_back({info.Uid, {}});
                matching.push_back({std::move(session), std::move(info)});
            }
        }
    }
    if (matching.empty()) {
        throw CFailure(EExit::NotFound, "there is no session " + Quoted(word),
                       "a session is named by its id, by its job (the last one), or as \"latest\"");
    }
    return std::move(matching[Choose("session", word, called)]);
}

SFoundPoint FindPoint(IZamProduct& product, std::string_view word, std::string_view job) {
    std::vector<SFoundJob> jobs;
    if (job.empty()) {
        jobs = AllJobs(product);
    } else {
        jobs.push_back(FindJob(product, job));
    }
    std::vector<SFoundPoint> points;
    std::vector<SCalled> called;
    std::vector<std::string> withPoints;
    for (const auto& one : jobs) {
        const auto own = one.Job->GetOibsForRestore();
        if (!own.empty()) withPoints.push_back(Quoted(one.Info.Name));
        for (const auto& point : own) {
            called.push_back({point.Id, {}});
            points.push_back({one, point});
        }
    }
    if (word != "latest") {
        const auto& found = points[Choose("point", word, called)];
        return found;
    }
    if (points.empty()) throw CFailure(EExit::NotFound, "there is no restore point yet");
    if (withPoints.size() > 1) {
        throw CFailure(EExit::Usage, "several jobs have points",
                       "say whose is meant with --job, one of: " + Joined(withPoints));
    }
    return *std::max_element(
        points.begin(), points.end(), [](const SFoundPoint& left, const SFoundPoint& right) {
            const auto made = [](const SFoundPoint& of) {
                return std::pair(of.Point.CreationTimeUtc.seconds, of.Point.CreationTimeUtc.milliseconds);
            };
            return made(left) < made(right);
        });
}

namespace {
template <class Record>
Record ChooseRecord(std::string_view kind, std::string_view word, std::vector<Record> all) {
    std::vector<SCalled> called;
    for (const auto& one : all)
        called.push_back({one.Id, one.Name});
    return std::move(all[Choose(kind, word, called)]);
}
}  // namespace

SBackupRepositoryInfo FindRepository(IZamProduct& product, std::string_view word) {
    return ChooseRecord("repository", word, RepositoriesOf(product)->GetRepositories());
}

SBackupServerInfo FindServer(IZamProduct& product, std::string_view word) {
    return ChooseRecord("server", word, ServersOf(product)->GetBackupServers());
}

SCloudServiceProviderInfo FindProvider(IZamProduct& product, std::string_view word) {
    return ChooseRecord("provider", word, ProvidersOf(product)->GetCloudServiceProviders());
}

}  // namespace zamctl
