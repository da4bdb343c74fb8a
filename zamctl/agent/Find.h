// SPDX-License-Identifier: Apache-2.0
/// \file
/// The agent's objects by what a user calls them: a name, an id, or a unique beginning of either.
#pragma once

#include <zamclientlib/ZamClientLib.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Failure.h"

namespace zamctl {

/// What an object is called.
struct SCalled {
    apigen::Guid Id;
    std::string Name;  ///< may be empty: sessions and points have none
};

/// The index of the one that `word` calls: by its whole name, its id (with or without braces, in either case), or a
/// unique beginning of either, in this order.
/// \param kind "job": for messages
/// \throws CFailure (NotFound) with the nearest name, CFailure (Usage) with the candidates of an ambiguous word
[[nodiscard]] std::size_t Choose(std::string_view kind, std::string_view word,
                                 const std::vector<SCalled>& all);

/// The object that the agent was asked for. \param what "its repositories": for messages
/// \throws CFailure (Refused) when it has handed out none
template <class Object>
[[nodiscard]] std::shared_ptr<Object> Given(std::shared_ptr<Object> object, const char* what) {
    if (object == nullptr) throw CFailure(EExit::Refused, std::string("the agent does not hand out ") + what);
    return object;
}

[[nodiscard]] inline std::shared_ptr<zamclientlib::IRepositoryManager> RepositoriesOf(
    const zamclientlib::IZamProduct& product) {
    return Given(product.GetRepositoryManager(), "its repositories");
}
[[nodiscard]] inline std::shared_ptr<zamclientlib::IBackupServerManager> ServersOf(
    const zamclientlib::IZamProduct& product) {
    return Given(product.GetBackupServerManager(), "its backup servers");
}
[[nodiscard]] inline std::shared_ptr<zamclientlib::ICloudServiceProviderManager> ProvidersOf(
    const zamclientlib::IZamProduct& product) {
    return Given(product.GetCloudServiceProviderManager(), "its cloud service providers");
}

/// Lower-case digits without braces, as ids are shown.
[[nodiscard]] std::string IdText(const apigen::Guid& id);

struct SFoundJob {
    std::shared_ptr<zamclientlib::IBackupJob> Job;
    zamclientlib::SBackupJobInfo Info;
};

/// Every job with its info.
[[nodiscard]] std::vector<SFoundJob> AllJobs(zamclientlib::IZamProduct& product);

[[nodiscard]] SFoundJob FindJob(zamclientlib::IZamProduct& product, std::string_view word);

/// Those that the words call, each once, in their order; every job without a word.
[[nodiscard]] std::vector<SFoundJob> FindJobs(zamclientlib::IZamProduct& product,
                                              const std::vector<std::string>& words);

struct SFoundSession {
    std::shared_ptr<zamclientlib::IBackupJobSession> Session;
    zamclientlib::SBackupJobSessionInfo Info;
};

/// By id, by a unique beginning of it among the sessions of all jobs, or a job's last one: "JOB", or "latest" for the
/// newest of all.
[[nodiscard]] SFoundSession FindSession(zamclientlib::IZamProduct& product, std::string_view word);

/// A restore point, with its job.
struct SFoundPoint {
    SFoundJob Job;
    zamclientlib::SRestoreOib Point;
};

/// By id or a unique beginning of it, or "latest": the newest of `job` (a name or id; empty: of all jobs, where only
/// one has points).
[[nodiscard]] SFoundPoint FindPoint(zamclientlib::IZamProduct& product, std::string_view word,
                                    std::string_view job);

[[nodiscard]] zamclientlib::SBackupRepositoryInfo FindRepository(zamclientlib::IZamProduct& product,
                                                                 std::string_view word);
[[nodiscard]] zamclientlib::SBackupServerInfo FindServer(zamclientlib::IZamProduct& product,
                                                         std::string_view word);
[[nodiscard]] zamclientlib::SCloudServiceProviderInfo FindProvider(zamclientlib::IZamProduct& product,
                                                                   std::string_view word);

}  // namespace zamctl
