// SPDX-License-Identifier: Apache-2.0
// The command-line program as a whole process, against programs that do no more than they must.
#include <zamclientlib/Connect.h>
#include <zamclientlib/ZamClientLib.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <vector>

#include "bench/AgentHome.h"
#include "bench/Areas.h"
#include "bench/Children.h"

extern char** environ;

namespace zambench {
namespace {

/// Runs it to its end, its output into nothing.
void RunProgram(std::initializer_list<const char*> words) {
    std::vector<char*> arguments;
    for (const char* const word : words)
        arguments.push_back(const_cast<char*>(word));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const bool hasStarted =
        ::posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    Require(hasStarted, "a program to start");
    int status = 0;
    Require(::waitpid(pid, &status, 0) == pid && status == 0, "a program to end well");
}

/// The least of several: see the other measurements of starting.
double TimeOf(const CBench& bench, std::initializer_list<const char*> words) {
    double least = std::numeric_limits<double>::max();
    for (int tries = bench.IsOnce() ? 1 : 15; tries != 0; --tries) {
        const double before = Now(EClock::Wall);
        RunProgram(words);
        least = std::min(least, Now(EClock::Wall) - before);
    }
    return least;
}

void MakeJobs(const CHome& home) {
    constexpr int Jobs = 5;
    const auto control = zamclientlib::ConnectToAgent();
    zamclientlib::SZamControlOwnerInfo owner;
    owner.Id = apigen::Guid::Random();
    const auto product = control->RequestControl(owner, false);
    zamclientlib::SBackupRepositoryInfo repository;
    repository.Name = "bench";
    repository.Type = zamclientlib::BackupTargetType::LocalFolder;
    repository.Location = home.Path() + "/disk";
    repository = product->GetRepositoryManager()->CreateRepository(repository);
    for (int i = 0; i < Jobs; ++i) {
        zamclientlib::SBackupJobConfigurationInfo config;
        config.JobName = "job " + std::to_string(i);
        config.RepositoryId = repository.Id;
        config.Source.BackupMode = zamclientlib::JobBackupMode::FileLevel;
        config.Source.IncludeDirs = {"/usr/include"};
        (void)product->CreateBackupJob(config);
    }
    control->ReleaseControl(owner);
}

}  // namespace

void MeasureZamctl(const CBench& bench) {
    const CPinned pinned(EPlace::OneCpu);
    bench.Compare(
        "zamctl --help, on one CPU, ns; to a program that does nothing", 2,
        [&] {
            return TimeOf(bench, {ZAMCTL, "--help"});
        },
        [&] { return TimeOf(bench, {BARE_PROGRAM}); });
    const CHome home;
    const CUsed used(AGENT_FOLDER);
    MakeJobs(home);
    bench.Compare(
        "zamctl status of 5 jobs, on one CPU, ns; to a program of its calls", 1.3,
        [&] {
            return TimeOf(bench, {ZAMCTL, "status"});
        },
        [&] { return TimeOf(bench, {BARE_STATUS}); });
}

}  // namespace zambench
