// SPDX-License-Identifier: Apache-2.0
#include "testagent/Script.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <initializer_list>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "support/apigen/Envelope.h"
#include "support/common/CDescriptor.h"
#include "testagent/CMembers.h"
#include "testagent/Methods.h"

namespace testagent {
namespace {

constexpr const char* ScriptVariable = "ZAM_TESTAGENT_SCRIPT";

template <class E>
using Names = std::vector<std::pair<std::string, E>>;

template <class E>
bool ReadOneOf(CMembers& members, const char* name, const Names<E>& accepted, E& value) {
    std::string text;
    if (!members.ReadText(name, text)) return false;
    std::vector<std::string> names;
    for (const auto& [acceptedName, member] : accepted) {
        if (acceptedName == text) {
            value = member;
            return true;
        }
        names.push_back(acceptedName);
    }
    members.Refuse(name, "there is no " + Quoted(text) + "; accepted are " + Listed(names));
}

const Names<EAction>& GreetingActions() {
    static const Names<EAction> actions = {
        {"throw", EAction::Throw}, {"delay", EAction::Delay}, {"garbage", EAction::Garbage},
        {"exit", EAction::Exit},   {"kill", EAction::Kill},   {"disconnect", EAction::Disconnect}};
    return actions;
}

const Names<EAction>& CallActions() {
    static const Names<EAction> actions = [] {
        auto all = GreetingActions();
        all.insert(all.end(), {{"internal-error", EAction::InternalError},
                               {"null-object", EAction::NullObject},
                               {"unknown-enum", EAction::UnknownEnum},
                               {"malformed", EAction::Malformed}});
        return all;
    }();
    return actions;
}

bool IsGreeting(const SRule& rule) {
    return rule.Method == GreetingMethod;
}

/// Whether the rule is for this method.
bool IsFor(const SRule& rule, const SMethod& method) {
    return rule.Method == method.Name || rule.Method == method.Id;
}

void CheckMethod(const CMembers& members, const SRule& rule) {
    if (rule.Method.empty()) members.Refuse("a rule needs a method");
    if (IsGreeting(rule) || rule.Method == apigen::envelope::ReleaseMethod) return;
    const auto& methods = Methods();
    if (std::any_of(methods.begin(), methods.end(), [&](const auto& each) { return IsFor(rule, each); }))
        return;
    members.Refuse("method", "no interface has a method " + Quoted(rule.Method) +
                                 "; accepted are a method's name, as GetInfo, its whole identifier, " +
                                 GreetingMethod + " and " + apigen::envelope::ReleaseMethod);
}

/// An object can be missing only where one is handed out.
void CheckHandsOutObject(const CMembers& members, const SRule& rule) {
    std::vector<std::string> names;
    for (const auto& method : Methods()) {
        if (!method.HandsOutObject) continue;
        if (IsFor(rule, method)) return;
        names.emplace_back(method.Name);
    }
    members.Refuse(
        "action", Quoted(rule.Method) + " hands out no object; null-object is accepted for " + Listed(names));
}

void ReadThrow(CMembers& members, SRule& rule) {
    rule.Type = "CGenericException";
    members.ReadText("message", rule.Message);
    members.ReadText("type", rule.Type);
    if (rule.Type.empty()) members.Refuse("type", "the name of an exception is expected");
    if (IsGreeting(rule) && rule.Type != "CGenericException") {
        members.Refuse("type", "a greeting throws CGenericException alone, not " + Quoted(rule.Type));
    }
    if (rule.Type == "CIndexingUnmetDependencies") members.ReadEnum("missedPackage", rule.MissedPackage);
}

SRule ReadRule(CMembers& members) {
    constexpr std::uint64_t MaxExitCode = 255;
    SRule rule;
    members.ReadText("method", rule.Method);
    CheckMethod(members, rule);
    members.ReadNumber("skip", rule.Skip);
    members.ReadNumber("times", rule.Times);
    const auto& actions = IsGreeting(rule) ? GreetingActions() : CallActions();
    if (!ReadOneOf(members, "action", actions, rule.Action)) members.Refuse("a rule needs an action");
    switch (rule.Action) {
        case EAction::Throw:
            ReadThrow(members, rule);
            break;
        case EAction::InternalError:
        case EAction::Garbage:
            members.ReadText("message", rule.Message);
            break;
        case EAction::Delay:
            members.ReadMilliseconds("ms", rule.Delay, 0);
            break;
        case EAction::Exit:
            members.ReadNumber("code", rule.ExitCode, 0, MaxExitCode);
            break;
        case EAction::NullObject:
            CheckHandsOutObject(members, rule);
            break;
        case EAction::Kill:
        case EAction::Disconnect:
        case EAction::Malformed:
        case EAction::UnknownEnum:
            break;
    }
    return rule;
}

SEventRule ReadEventRule(CMembers& members) {
    SEventRule rule;
    constexpr auto Any = static_cast<zamclientlib::EEventType>(-1);
    auto event = Any;
    members.ReadEnum("event", event);
    if (event == zamclientlib::EEventType::Unknown) members.Refuse("event", "there is no event of this kind");
    if (event != Any) rule.Event = event;
    members.ReadNumber("skip", rule.Skip);
    members.ReadNumber("times", rule.Times);
    const Names<EEventAction> actions = {
        {"half-frame", EEventAction::HalfFrame},  {"garbage", EEventAction::Garbage},
        {"malformed", EEventAction::Malformed},   {"stall", EEventAction::Stall},
        {"disconnect", EEventAction::Disconnect}, {"kill", EEventAction::Kill}};
    if (!ReadOneOf(members, "action", actions, rule.Action)) members.Refuse("a rule needs an action");
    if (rule.Action == EEventAction::Garbage) {
        members.ReadText("message", rule.Message);
        if (rule.Message.empty()) members.Refuse("garbage needs a message");
    }
    return rule;
}

zamclientlib::SBackupRepositoryInfo ReadRepository(CMembers& members, const SScript& script) {
    zamclientlib::SBackupRepositoryInfo repository;
    repository.Type = zamclientlib::BackupTargetType::LocalFolder;
    const bool hasId = members.ReadGuid("id", repository.Id);
    members.ReadText("name", repository.Name);
    members.ReadEnum("type", repository.Type);
    members.ReadText("location", repository.Location);
    if (repository.Name.empty()) members.Refuse("a repository needs a name");
    if (hasId && repository.Id == apigen::Guid{}) members.Refuse("id", "another one than zero is expected");
    for (const auto& other : script.Repositories) {
        if (other.Name == repository.Name) {
            members.Refuse("name", "there is a repository called " + Quoted(other.Name) + " already");
        }
        if (hasId && other.Id == repository.Id) {
            members.Refuse("id", "the repository " + Quoted(other.Name) + " has it already");
        }
    }
    return repository;
}

SScriptedJob ReadJob(CMembers& members, const SScript& script) {
    SScriptedJob job;
    auto& config = job.Config;
    config.Source.BackupMode = zamclientlib::JobBackupMode::FileLevel;
    members.ReadText("name", config.JobName);
    const bool hasRepository = members.ReadText("repository", job.RepositoryName);
    members.ReadFlag("enabled", job.IsEnabled);
    members.ReadText("userData", config.UserData);
    members.ReadEnum("backupMode", config.Source.BackupMode);
    members.ReadTexts("includeDirs", config.Source.IncludeDirs);
    members.ReadObject("retries", [&](CMembers& retries) {
        zamclientlib::SRetriesInfo info;
        retries.ReadNumber("attempts", info.AttemptsNum);
        retries.ReadNumber("timeoutMs", info.TimeoutMs);
        config.RetriesInfo = info;
    });
    if (config.JobName.empty()) members.Refuse("a job needs a name");
    for (const auto& other : script.Jobs) {
        if (other.Config.JobName == config.JobName) {
            members.Refuse("name", "there is a job called " + Quoted(config.JobName) + " already");
        }
    }
    std::vector<std::string> names;
    for (const auto& repository : script.Repositories)
        names.push_back(repository.Name);
    if (hasRepository && std::find(names.begin(), names.end(), job.RepositoryName) == names.end()) {
        members.Refuse("repository",
                       "there is no " + Quoted(job.RepositoryName) + "; accepted are " +
                           (names.empty() ? "those of \"repositories\", which has none" : Listed(names)));
    }
    return job;
}

/// Four numbers and three dots, and nothing else.
bool ParseVersion(std::string_view text, zamclientlib::SVersion& version) {
    const std::array parts = {&version.major, &version.minor, &version.revision, &version.build};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (auto* const part : parts) {
        if (part != parts.front() && (at == end || *at++ != '.')) return false;
        const auto [stop, error] = std::from_chars(at, end, *part);
        if (error != std::errc()) return false;
        at = stop;
    }
    return at == end;
}

void ReadVersion(CMembers& members, const char* name, zamclientlib::SVersion& version) {
    std::string text;
    if (members.ReadText(name, text) && !ParseVersion(text, version)) {
        members.Refuse(name, Quoted(text) +
                                 " is no version; accepted are four numbers up to 65535, as in "
                                 "2.0.0.0");
    }
}

void ReadClock(CMembers& members, SScript& script) {
    constexpr std::uint64_t MaxSteps = 1000000;  // a hundred times as many still fit
    ReadOneOf(members, "mode",
              Names<EClock>{{"time", EClock::Time}, {"calls", EClock::Calls}, {"held", EClock::Held}},
              script.Clock);
    members.ReadMilliseconds("stepMs", script.Step, 1);
    members.ReadNumber("steps", script.Steps, 1, MaxSteps);
    members.ReadNumber("failedAttempts", script.FailedAttempts);
}

void ReadOwner(CMembers& members, zamclientlib::SZamControlOwnerInfo& owner) {
    members.ReadGuid("id", owner.Id);
    members.ReadText("name", owner.Name);
    members.ReadEnum("type", owner.Type);
    members.ReadEnum("mode", owner.Mode);
    if (owner.Id == apigen::Guid{}) members.Refuse("an owner needs an id");
}

SScript Read(CMembers& members) {
    SScript script;
    ReadVersion(members, "protocolVersion", script.ProtocolVersion);
    members.ReadObject("clock", [&](CMembers& clock) { ReadClock(clock, script); });
    members.ReadObject("owner", [&](CMembers& owner) { ReadOwner(owner, script.Owner); });
    members.ReadList("repositories",
                     [&](CMembers& each) { script.Repositories.push_back(ReadRepository(each, script)); });
    members.ReadList("jobs", [&](CMembers& each) { script.Jobs.push_back(ReadJob(each, script)); });
    members.ReadList("rules", [&](CMembers& each) { script.Rules.push_back(ReadRule(each)); });
    members.ReadList("events", [&](CMembers& each) { script.EventRules.push_back(ReadEventRule(each)); });
    members.ReadObject("shared",
                       [&](CMembers& shared) { shared.ReadMilliseconds("idleMs", script.IdleLimit, 0); });
    return script;
}

/// What stands in a file of ordinary kind and size: nothing else may keep the agent waiting.
std::string ReadFile(const char* path) {
    constexpr std::size_t MaxBytes = 1024 * 1024;
    const auto refuse = [](const char* what, int error) {
        throw std::runtime_error(what + std::generic_category().message(error));
    };
    const apigen::common::CDescriptor file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) refuse("it can't be opened: ", errno);
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) refuse("it can't be examined: ", errno);
    if (!S_ISREG(status.st_mode)) throw std::runtime_error("it is no regular file");
    std::string text;
    std::array<char, 16 * 1024> piece{};
    while (text.size() <= MaxBytes) {
        const ssize_t got = ::read(file.Get(), piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) refuse("it can't be read: ", errno);
        if (got == 0) break;
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    if (text.empty()) throw std::runtime_error("it is empty; {} is the least that is accepted");
    if (text.size() > MaxBytes) {
        throw std::runtime_error("it is larger than " + std::to_string(MaxBytes) + " bytes");
    }
    return text;
}

}  // namespace

SScript SScript::FromEnvironment() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes the environment
    const char* const path = std::getenv(ScriptVariable);
    if (path == nullptr) return {};
    try {
        const nlohmann::json document = ParseStrictly(ReadFile(path));
        CMembers members(document, "script");
        SScript script = Read(members);
        members.Finish();
        return script;
    } catch (const std::exception& error) {
        throw std::runtime_error("The script " + std::string(path) + " can't be used: " + error.what());
    }
}

}  // namespace testagent
