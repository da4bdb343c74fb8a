// SPDX-License-Identifier: Apache-2.0
/// \file
/// What the verbs of repositories, servers and providers have in common: records from files and options.
#pragma once

#include <zamclientlib/InfrastructureRecords.h>

#include <optional>
#include <string>
#include <vector>

#include "agent/Find.h"
#include "show/Json.h"
#include "verbs/Verb.h"

namespace zamctl {

inline constexpr SOption FileOption{.Name = "--file",
                                    .Value = "FILE",
                                    .Help =
                                        "the record as JSON, \"-\" for standard input; what is not in "
                                        "it stays, and the other options go on top",
                                    .Word = EWord::File};
inline constexpr SOption DryRunOption{.Name = "--dry-run",
                                      .Help = "shows what would be sent, and sends nothing"};
inline constexpr SOption PasswordFileOption{
    .Name = "--password-file",
    .Value = "FILE",
    .Help = "its first line is the password; \"fd:N\" for a descriptor that is open",
    .Word = EWord::File};
inline constexpr SOption AskPasswordOption{.Name = "--ask-password", .Help = "asks for the password"};
inline constexpr SOption AddressOption{.Name = "--address",
                                       .Value = "HOST[:PORT]",
                                       .Help =
                                           "where it is reached; an IPv6 address with a port stands in "
                                           "brackets",
                                       .IsRepeated = true};

inline constexpr SOption NameOption{.Name = "--name", .Value = "NAME", .Help = "what it is to be called"};
inline constexpr SOption DomainOption{
    .Name = "--domain", .Value = "DOMAIN", .Help = "the domain of the user"};

/// What `--file` names; none when it was not given. \throws CFailure (Usage)
[[nodiscard]] std::optional<Json> FileOf(const CCall& call);

[[noreturn]] void ThrowFileFault(const CCall& call, const CFieldError& error);

/// Puts what stands in the file of `--file` into the record, but for the keys of `ours`, which `show` adds to it.
/// \throws CFailure (Usage) for what the record lacks, and for the file of another object than the one it is to change
template <class Record>
void ApplyFile(const CCall& call, Record& record, const std::vector<const char*>& ours) {
    auto json = FileOf(call);
    if (!json) return;
    if (json->is_object())
        for (const char* const key : ours)
            json->erase(key);
    const apigen::Guid id = record.Id;
    try {
        FromJson(*json, record);
    } catch (const CFieldError& error) {
        ThrowFileFault(call, error);
    }
    if (!id.IsNil() && record.Id != id)
        ThrowFileFault(call,
                       CFieldError("Id", "that is another one than the one to be changed, " + IdText(id)));
}

/// The password of `--password-file`, or one that is asked for: under `--ask-password`, and where a new object has a
/// user. None under `--dry-run`, which needs none. \throws CFailure (Usage)
[[nodiscard]] std::optional<std::string> PasswordOf(const CCall& call, const std::string& user, bool isNew);

/// Those of `--address`. \throws CFailure (Usage)
[[nodiscard]] std::vector<zamclientlib::SServerConnectionInfo> AddressesOf(const CCall& call);

/// "backup.example:9392, [fd00::1]:9392".
[[nodiscard]] std::string AddressWords(const std::vector<zamclientlib::SServerConnectionInfo>& addresses);

/// Refuses a change that changes nothing: without an option of the verb's own that says something of the object.
void RequireChange(const CCall& call);

/// For `--dry-run`: the record, for people as JSON as well.
void ShowUnsent(CCall& call, const std::vector<SColumn>& columns, const Json& record, bool hasPassword);

/// What programs get of a single thing, people none.
void ShowForPrograms(CCall& call, const std::vector<SColumn>& columns, const Json& item);

}  // namespace zamctl
