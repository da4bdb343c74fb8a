// SPDX-License-Identifier: Apache-2.0
// The whole agent on one screen.
#include <zamclientlib/Chrono.h>

#include <array>

#include "agent/Find.h"
#include "show/Words.h"
#include "verbs/JobRow.h"
#include "verbs/Verb.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

const std::vector<SColumn>& JobColumns() {
    static const std::vector<SColumn> columns{
        {"JOB", "Name"},
        {"LAST RUN", "Last", EKind::Outcome},
        {"LAST SUCCESS", "LastBackupTimeUtc", EKind::Time},
        {"AGO", "Ago"},
        {"NEXT RUN", "Next", EKind::Text, true},
    };
    return columns;
}

const std::vector<SColumn>& RepositoryColumns() {
    static const std::vector<SColumn> columns{
        {"REPOSITORY", "Name"},
        {"FREE", "SizeInfo.FreeSpace", EKind::Bytes},
        {"OF", "SizeInfo.Capacity", EKind::Bytes, true},
        {"PLACE", "Location", EKind::Text, true},
    };
    return columns;
}

/// How long ago the last success was, with a word where that is too long. "never" needs none.
std::string Ago(const SJobView& view, bool isOverdue) {
    if (!view.Info.LastBackupTimeUtc) return "never";
    const auto ago = std::chrono::system_clock::now() - ToTimePoint(*view.Info.LastBackupTimeUtc);
    const std::string words = SpanWords(std::chrono::duration_cast<std::chrono::milliseconds>(ago));
    return isOverdue ? words + ", too long" : words;
}

std::string NextWords(const SJobView& view, const Json& row) {
    if (!view.Info.Enabled) return "disabled";
    if (row["NextRunTimeUtc"].is_null()) return "no schedule";
    return {};
}

EExit Run(CCall& call) {
    auto& control = call.Agent.Control();
    Json status;
    status["Product"] = ToJson(control.GetProductInfo());
    const auto owner = control.GetCurrentOwner();
    status["Owner"] = owner.Id == apigen::Guid() ? Json() : ToJson(owner);
    const auto product = call.Agent.Look();
    status["IsSchedulerAllowed"] = product->IsSchedulerAllowedToRunJobs();
    status["Jobs"] = Json::array();
    for (const auto& job : AllJobs(*product)) {
        const auto view = ViewOf(job);
        Json row = RowOf(view);
        if (call.Out.IsForPeople()) {
            row["Last"] = LastWords(view);
            row["Ago"] = Ago(view, row["IsOverdue"].get<bool>());
            row["Next"] = NextWords(view, row);
            if (row["Next"] == "") row["Next"] = call.Out.Cell({"", "", EKind::Time}, row["NextRunTimeUtc"]);
        }
        status["Jobs"].push_back(std::move(row));
    }
    const auto places = RepositoriesOf(*product);
    status["Repositories"] = Json::array();
    for (const auto& repository : places->GetRepositories()) {
        Json row = ToJson(repository);
        const auto room = places->RequestSizeInfo(repository.Id);
        row["SizeInfo"] = room ? ToJson(*room) : Json();
        status["Repositories"].push_back(std::move(row));
    }
    if (!call.Out.IsForPeople()) {
        call.Out.Item({{"Product", "Product"},
                       {"Owner", "Owner"},
                       {"IsSchedulerAllowed", "IsSchedulerAllowed"},
                       {"Jobs", "Jobs"},
                       {"Repositories", "Repositories"}},
                      status);
        return EExit::Done;
    }
    std::string line = Escaped(status["Product"]["Name"].get<std::string>()) + " " +
                       Escaped(status["Product"]["Version"].get<std::string>());
    if (owner.Id != apigen::Guid())
        line += ", controlled by " + Quoted(owner.Name) + " (" + std::string(NameOf(owner.Mode)) + ")";
    call.Out.Say(line);
    if (!status["IsSchedulerAllowed"].get<bool>())
        call.Out.Say("Schedules may start nothing: zamctl control scheduler on");
    call.Out.Say("");
    for (const auto& row : status["Jobs"])
        call.Out.Row(JobColumns(), row);
    call.Out.EndRows(JobColumns(), "there are no jobs yet: zamctl job create --help");
    if (!status["Jobs"].empty()) call.Out.Say("");
    for (const auto& row : status["Repositories"])
        call.Out.Row(RepositoryColumns(), row);
    call.Out.EndRows(RepositoryColumns(), "there are no repositories yet: zamctl repo create --help");
    return EExit::Done;
}

constexpr std::array Table{
    SVerb{.Noun = "",
          .Name = "status",
          .Help = "shows the whole agent on one screen",
          .Details = "A job whose last success is too long ago is marked: two scheduled runs have been due "
                     "since, or, without a "
                     "schedule, a week has passed.",
          .Example = "zamctl status",
          .Run = Run,
          .Shape = "Status"},
};

}  // namespace

std::span<const SVerb> StatusVerbs() {
    return Table;
}

}  // namespace zamctl
