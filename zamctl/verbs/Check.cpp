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

EExit Check(CCall& call) {
    static const std::vector<SColumn> columns{
        {"JOB", "JobName"},
        {"WEIGHT", "MessageType", EKind::Outcome},
        {"FINDING", "Message", EKind::Sentence},
    };
    std::size_t errors = 0;
    std::size_t warnings = 0;
    const auto jobs = FindJobs(*call.Agent.Look(), call.Values("JOB"));
    for (const auto& job : jobs) {
        std::vector<SCheckJobValidityMessage> findings;
        try {
            findings = job.Job->CheckValidity();
        } catch (const CGenericException& error) {  // of this one; the others are worth a look all the same
            findings.push_back({error.what(), ELogDetailType::Error});
        }
        for (const auto& finding : findings) {
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
