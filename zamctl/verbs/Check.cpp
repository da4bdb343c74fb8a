// SPDX-License-Identifier: Apache-2.0
// zamctl check: what is wrong with jobs before they run.
#include <algorithm>
#include <array>

#include "agent/Find.h"
#include "show/Words.h"
#include "verbs/Verb.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

/// Those that the words call, each once; all without words.
std::vector<SFoundJob> JobsCalled(CCall& call) {
    const auto product = call.Agent.Look();
    auto all = AllJobs(*product);
    const auto words = call.Values("JOB");
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

EExit Check(CCall& call) {
    static const std::vector<SColumn> columns{
        {"JOB", "JobName"},
        {"WEIGHT", "MessageType", EKind::Outcome},
        {"FINDING", "Message"},
    };
    std::size_t errors = 0;
    std::size_t warnings = 0;
    const auto jobs = JobsCalled(call);
    for (const auto& job : jobs) {
        for (const auto& finding : job.Job->CheckValidity()) {
            if (finding.MessageType == ELogDetailType::Error) ++errors;
            if (finding.MessageType == ELogDetailType::Warning) ++warnings;
            Json row;
            row["JobId"] = IdText(job.Info.Id);
            row["JobName"] = job.Info.Name;
            row.update(ToJson(finding));
            call.Out.Row(columns, row);
        }
    }
    call.Out.EndRows(columns, "nothing found");
    call.Out.Say(Counted(jobs.size(), "job") + " checked: " + Counted(errors, "error") + ", " +
                 Counted(warnings, "warning"));
    if (errors != 0) return EExit::Refused;
    return warnings != 0 ? EExit::Warnings : EExit::Done;
}

constexpr std::array Arguments{SArgument{.Name = "JOB",
                                         .Help = "the jobs, by name or id; all of them unless said",
                                         .Word = EWord::Job,
                                         .IsOptional = true,
                                         .IsRepeated = true}};

constexpr std::array Table{
    SVerb{.Noun = "",
          .Name = "check",
          .Help = "checks jobs, and tells what is wrong with them",
          .Details = "An error keeps a job from succeeding; a warning means that less is backed up than was "
                     "asked for; "
                     "the rest is worth knowing. The exit status is 0 without an error or a warning, 5 with "
                     "warnings, 1 "
                     "with errors.",
          .Example = "zamctl check\nzamctl check home --quiet || echo \"mend the job first\"",
          .Arguments = Arguments,
          .Options = {},
          .Run = Check,
          .Shape = "[Finding]"},
};

}  // namespace

std::span<const SVerb> CheckVerbs() {
    return Table;
}

}  // namespace zamctl
