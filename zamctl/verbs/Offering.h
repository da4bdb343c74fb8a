// SPDX-License-Identifier: Apache-2.0
/// \file
/// What `zamctl server` and `zamctl provider` have in common: each is reached elsewhere, by addresses and as a user, and
/// offers repositories. What differs is a kind: its record, its words, and what its manager calls things.
#pragma once

#include <array>
#include <functional>
#include <string>

#include "show/Words.h"
#include "verbs/Places.h"

namespace zamctl {

inline constexpr const char* AddressesKey = "Addresses";  // which the records lack

inline constexpr std::array OfferingAddArguments{
    SArgument{.Name = "NAME", .Help = "what it is to be called", .IsOptional = true}};
inline constexpr SOption SignInOption{.Name = "--user", .Value = "USER", .Help = "who signs in"};
inline constexpr std::array OfferingForceOptions{ForceOption};

inline constexpr const char* OfferingAddDetails =
    "The password is asked for when a user is named, or read from --password-file; an empty first line is "
    "none. It never stands on a command line.";
inline constexpr const char* OfferingUpdateDetails =
    "What the options, or the file, don't speak of stays as it is: the password as well. --address replaces "
    "all addresses.";
inline constexpr const char* OfferingDeleteDetails =
    "The repositories that it offers go with it, unless a job uses one: then it is refused.";

template <class Record>
Json OfferingItem(const Record& record) {
    Json json = ToJson(record);
    json[AddressesKey] = AddressWords(record.Connection);
    return json;
}

template <class Kind>
EExit ListOffering(CCall& call) {
    for (const auto& one : std::invoke(Kind::All, *Kind::Manager(*call.Agent.Look())))
        call.Out.Row(Kind::ListColumns(), OfferingItem(one));
    call.Out.EndRows(Kind::ListColumns(), Kind::None);
    return EExit::Done;
}

template <class Kind>
EExit ShowOffering(CCall& call) {
    const auto record = Kind::Called(*call.Agent.Look(), call.Value(Kind::Argument));
    call.Out.Item(Kind::OneColumns(), OfferingItem(record));
    return EExit::Done;
}

/// What the file and the options say.
template <class Kind>
void ApplyToOffering(const CCall& call, typename Kind::Record& record, bool isNew) {
    ApplyFile(call, record, {AddressesKey});
    if (const auto name = call.Optional(isNew ? "NAME" : "--name")) record.Name = *name;
    if (call.Has("--address")) record.Connection = AddressesOf(call);
    if (const auto user = call.Optional("--user")) record.Username = *user;
    Kind::ApplyOwn(call, record);
    Kind::ApplyPassword(call, record, PasswordOf(call, record.Username, isNew), isNew);
}

template <class Kind>
EExit ShowUnsentOffering(CCall& call, const typename Kind::Record& record) {
    ShowUnsent(call, Kind::OneColumns(), call.Out.IsForPeople() ? ToJson(record) : OfferingItem(record),
               record.Password.HasValue());
    return EExit::Done;
}

/// "Server "main" deleted" for people; for programs the record.
template <class Kind>
EExit TellOfOffering(CCall& call, const typename Kind::Record& record, const std::string& what) {
    call.Out.Say(std::string(Kind::Title) + " " + Quoted(record.Name) + " " + what);
    ShowForPrograms(call, Kind::OneColumns(), OfferingItem(record));
    return EExit::Done;
}

template <class Kind>
EExit AddOffering(CCall& call) {
    if (!call.Has("NAME") && !call.Has("--file"))
        throw CFailure(EExit::Usage, "NAME is missing, and no file has one", Kind::AddExample);
    if (!call.Has("--address") && !call.Has("--file"))
        throw CFailure(EExit::Usage, "where is the " + std::string(Kind::Word) + "?",
                       "say --address HOST[:PORT] or --file FILE");
    typename Kind::Record record;
    ApplyToOffering<Kind>(call, record, true);
    record.Id = {};  // of the one that was the file's model
    if (call.Has("--dry-run")) return ShowUnsentOffering<Kind>(call, record);
    auto change = call.Change();
    const auto added = std::invoke(Kind::Add, *Kind::Manager(*change), record);
    return TellOfOffering<Kind>(call, added, "added (" + IdText(added.Id) + ")");
}

template <class Kind>
EExit UpdateOffering(CCall& call) {
    RequireChange(call);
    const auto changed = [&](zamclientlib::IZamProduct& product) {
        auto record = Kind::Called(product, call.Value(Kind::Argument));
        // The agent tells at most that there is a password, and never which: it keeps the one that it has.
        record.Password.Reset();
        ApplyToOffering<Kind>(call, record, false);
        return record;
    };
    if (call.Has("--dry-run")) return ShowUnsentOffering<Kind>(call, changed(*call.Agent.Look()));
    auto change = call.Change();
    const auto record = changed(*change);
    const auto manager = Kind::Manager(*change);
    std::invoke(Kind::Update, *manager, record);
    const auto updated = std::invoke(Kind::Find, *manager, record.Id).value_or(record);
    return TellOfOffering<Kind>(call, updated, "updated (" + IdText(updated.Id) + ")");
}

template <class Kind>
EExit DeleteOffering(CCall& call) {
    auto change = call.Change();
    const auto record = Kind::Called(*change, call.Value(Kind::Argument));
    const std::string named = "the " + std::string(Kind::Word) + " " + Quoted(record.Name);
    call.RequireYes("Delete " + named + ", and the repositories that it offers?");
    if (!std::invoke(Kind::Delete, *Kind::Manager(*change), record.Id))
        throw CFailure(EExit::NotFound, named + " has gone meanwhile");
    return TellOfOffering<Kind>(call, record, "deleted");
}

template <class Kind>
EExit ResyncOffering(CCall& call) {
    auto change = call.Change();
    const auto record = Kind::Called(*change, call.Value(Kind::Argument));
    std::invoke(Kind::Resync, *Kind::Manager(*change), record.Id);
    return TellOfOffering<Kind>(call, record, "has had its repositories read anew");
}

}  // namespace zamctl
