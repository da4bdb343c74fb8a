// SPDX-License-Identifier: Apache-2.0
// zamctl control: who may change things, and whether schedules run.
#include <array>

#include "agent/Find.h"
#include "show/Words.h"
#include "verbs/Enums.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

const std::vector<SColumn>& OwnerColumns() {
    static const std::vector<SColumn> columns{
        {"Owner", "Name"},
        {"Id", "Id"},
        {"Type", "Type"},
        {"Mode", "Mode"},
    };
    return columns;
}

std::string OwnerName(const SZamControlOwnerInfo& owner) {
    return owner.Name.empty() ? "an owner without a name" : Escaped(owner.Name);
}

/// What a mode lets others do.
std::string ModeWords(ZAMOwnerMode mode) {
    switch (mode) {
        case ZAMOwnerMode::Shared:
            return "shared: others may look and change things";
        case ZAMOwnerMode::ReadOnly:
            return "readonly: others may look";
        case ZAMOwnerMode::Exclusive:
        case ZAMOwnerMode::None:
            return "exclusive: nobody else may even look";
    }
    return std::to_string(static_cast<int>(mode));
}

ZAMOwnerMode ModeCalled(std::string_view what, const std::string& word) {
    return EnumNamed<ZAMOwnerMode>(what, word);
}

EExit Show(CCall& call) {
    auto& control = call.Agent.Control();
    const auto owner = control.GetCurrentOwner();
    const bool isMine = owner.Id == CAgent::UserAsOwner().Id;
    Json item;
    item["Owner"] = owner.Id.IsNil() ? Json(nullptr) : ToJson(owner);
    item["IsMine"] = isMine;
    item["Product"] = ToJson(control.GetProductInfo());
    item["SessionId"] = IdText(control.GetSessionId());

    std::vector<SColumn> columns;
    if (!call.Out.IsForPeople()) {
        columns = {{"Owner", "Owner.Name"},
                   {"Owner's id", "Owner.Id"},
                   {"Type", "Owner.Type"},
                   {"Mode", "Owner.Mode"},
                   {"Mine", "IsMine", EKind::Truth}};
    } else if (owner.Id.IsNil()) {
        item["Words"] = "nobody";
        columns = {{"Controlled by", "Words"}};
    } else {
        item["Words"] = OwnerName(owner) + (isMine ? ", which is you" : "");
        item["ModeWords"] = ModeWords(owner.Mode);
        columns = {{"Controlled by", "Words"},
                   {"Mode", "ModeWords"},
                   {"Type", "Owner.Type"},
                   {"Owner's id", "Owner.Id"}};
    }
    columns.push_back({"Product", "Product.Name"});
    columns.push_back({"Version", "Product.Version"});
    columns.push_back({"Session", "SessionId"});
    call.Out.Item(columns, item);
    return EExit::Done;
}

EExit Take(CCall& call) {
    const auto mode = ModeCalled("--mode", call.Optional("--mode").value_or("readonly"));
    const auto owner = call.Agent.Take(call.Value("--name"), mode);
    call.Out.Say("The agent is controlled by " + OwnerName(owner) + " now, " + ModeWords(owner.Mode));
    if (!call.Out.IsForPeople()) call.Out.Item(OwnerColumns(), ToJson(owner));
    return EExit::Done;
}

/// The user, as the owner that he is now. \throws CFailure (Refused) when he is not
SZamControlOwnerInfo OwnControl(CCall& call) {
    auto owner = call.Agent.Control().GetCurrentOwner();
    if (owner.Id == CAgent::UserAsOwner().Id) return owner;
    throw CFailure(EExit::Refused,
                   owner.Id.IsNil() ? "nobody controls the agent"
                                    : "the agent is controlled by " + OwnerName(owner) + ", not by you",
                   "\"zamctl control take\" gives you control" +
                       std::string(owner.Id.IsNil() ? "" : ", with --force from another owner"));
}

EExit Release(CCall& call) {
    const auto owner = OwnControl(call);
    call.Agent.Control().ReleaseControl(owner);
    call.Out.Say("Nobody controls the agent now");
    if (!call.Out.IsForPeople()) call.Out.Item(OwnerColumns(), ToJson(owner));
    return EExit::Done;
}

EExit Mode(CCall& call) {
    auto owner = OwnControl(call);
    call.Agent.Control().SetOwnerMode(owner.Id, ModeCalled("MODE", call.Value("MODE")));
    owner = call.Agent.Control().GetCurrentOwner();
    call.Out.Say("Your control of the agent is " + ModeWords(owner.Mode));
    if (!call.Out.IsForPeople()) call.Out.Item(OwnerColumns(), ToJson(owner));
    return EExit::Done;
}

EExit Scheduler(CCall& call) {
    const auto wish = call.Optional("SWITCH");
    bool isAllowed = wish == "on";
    if (wish) {
        call.Change()->SetSchedulerPermissionToRunJobs(isAllowed);
    } else {
        isAllowed = call.Agent.Look()->IsSchedulerAllowedToRunJobs();
    }
    call.Out.Say(isAllowed ? "Schedules start jobs"
                           : "Schedules start no jobs; \"zamctl control scheduler on\" allows it");
    if (!call.Out.IsForPeople()) {
        Json item;
        item["IsSchedulerAllowedToRunJobs"] = isAllowed;
        call.Out.Item({{"Schedules run", "IsSchedulerAllowedToRunJobs", EKind::Truth}}, item);
    }
    return EExit::Done;
}

constexpr std::array<const char*, 3> Modes{"exclusive", "shared", "readonly"};
constexpr std::array<const char*, 2> Switches{"on", "off"};

constexpr std::array TakeOptions{
    SOption{.Name = "--name", .Value = "NAME", .Help = "what others see; \"user NAME\" unless said"},
    SOption{.Name = "--mode",
            .Value = "MODE",
            .Help =
                "readonly: others may look (the default); shared: they may change things, too; exclusive: "
                "neither",
            .Word = EWord::Choice,
            .Choices = Modes},
    ForceOption};
constexpr std::array ModeArguments{SArgument{
    .Name = "MODE", .Help = "exclusive, shared or readonly", .Word = EWord::Choice, .Choices = Modes}};
constexpr std::array SchedulerArguments{SArgument{.Name = "SWITCH",
                                                  .Help = "on or off; without it the present state is shown",
                                                  .Word = EWord::Choice,
                                                  .IsOptional = true,
                                                  .Choices = Switches}};
constexpr std::array SchedulerOptions{ForceOption};

constexpr std::array Table{
    SVerb{.Noun = "control",
          .Name = "show",
          .Help = "shows who controls the agent, and what the agent is",
          .Details = "Needs no control, and works whoever has it.",
          .Example = "zamctl control show\nzamctl control show --output json",
          .Arguments = {},
          .Options = {},
          .Run = Show,
          .Shape = "Control"},
    SVerb{.Noun = "control",
          .Name = "take",
          .Help = "takes control of the agent, until it is given back",
          .Details = "Other commands take control for as long as they run, which is enough mostly. Taken "
                     "with this one it "
                     "is kept, by the user, across all his commands and restarts of the agent: while things "
                     "are set up that "
                     "nobody is to interfere with. Schedules go on.",
          .Example = "zamctl control take --mode exclusive --name maintenance\nzamctl control release",
          .Arguments = {},
          .Options = TakeOptions,
          .Run = Take,
          .Shape = "SZamControlOwnerInfo"},
    SVerb{.Noun = "control",
          .Name = "release",
          .Help = "gives control of the agent back",
          .Details = "What another owner has can't be given back by you: take it first, with --force.",
          .Example = "zamctl control release",
          .Arguments = {},
          .Options = {},
          .Run = Release,
          .Shape = "SZamControlOwnerInfo"},
    SVerb{.Noun = "control",
          .Name = "mode",
          .Help = "changes what others may do while you control the agent",
          .Details = "",
          .Example = "zamctl control mode shared",
          .Arguments = ModeArguments,
          .Options = {},
          .Run = Mode,
          .Shape = "SZamControlOwnerInfo"},
    SVerb{.Noun = "control",
          .Name = "scheduler",
          .Help = "shows or says whether schedules may start jobs",
          .Details = "While they may not, jobs start by hand only; times that pass are not caught up.",
          .Example = "zamctl control scheduler off\nzamctl control scheduler",
          .Arguments = SchedulerArguments,
          .Options = SchedulerOptions,
          .Run = Scheduler,
          .Shape = "Scheduler"},
};

}  // namespace

std::span<const SVerb> ControlVerbs() {
    return Table;
}

}  // namespace zamctl
