// SPDX-License-Identifier: Apache-2.0
#include "testagent/Script.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace testagent {
namespace {

using nlohmann::json;

constexpr const char* ScriptVariable = "ZAM_TESTAGENT_SCRIPT";

[[noreturn]] void Refuse(const std::string& what) {
    throw std::runtime_error(what);
}

/// An object of which each member is read once; `Finish` refuses those that nobody asked for, so that a
/// misspelt name does not pass silently.
class CMembers {
public:
    CMembers(const json& object, std::string place) : m_place(std::move(place)) {
        if (!object.is_object()) Refuse(m_place + ": an object is expected");
        m_members = object;
    }

    const std::string& Place() const noexcept { return m_place; }

    template <class T>
    void Read(const char* name, T& value) {
        const json member = Take(name);
        if (member.is_null()) return;
        try {
            member.get_to(value);
        } catch (const json::exception& error) {
            Refuse(m_place + "." + name + ": " + error.what());
        }
    }

    template <class E>
    void ReadEnum(const char* name, E& value) {
        std::string text;
        Read(name, text);
        if (text.empty()) return;
        const auto member = zamclientlib::MemberNamed<E>(text);
        if (!member) Refuse(m_place + "." + name + ": there is no " + text);
        value = *member;
    }

    void ReadMilliseconds(const char* name, std::chrono::milliseconds& value) {
        unsigned long count = static_cast<unsigned long>(value.count());
        Read(name, count);
        value = std::chrono::milliseconds(count);
    }

    void ReadGuid(const char* name, apigen::Guid& value) {
        std::string text;
        Read(name, text);
        if (!text.empty()) value = apigen::Guid::Deserialize(text);
    }

    template <class F>
    void ReadObject(const char* name, F read) {
        const json member = Take(name);
        if (member.is_null()) return;
        CMembers members(member, m_place + "." + name);
        read(members);
        members.Finish();
    }

    template <class F>
    void ReadList(const char* name, F read) {
        const json list = Take(name);
        if (!list.is_null() && !list.is_array()) Refuse(m_place + "." + name + ": a list is expected");
        std::size_t index = 0;
        for (const json& element : list) {
            CMembers members(element, m_place + "." + name + "[" + std::to_string(index++) + "]");
            read(members);
            members.Finish();
        }
    }

    void Finish() const {
        if (!m_members.empty()) {
            Refuse(m_place + ": nothing is called \"" + m_members.items().begin().key() + "\"");
        }
    }

private:
    json Take(const char* name) {
        json member = m_members.value(name, json());
        m_members.erase(name);
        return member;
    }

    std::string m_place;
    json m_members;
};

template <class E>
E OneOf(const std::string& name, std::initializer_list<std::pair<std::string_view, E>> members,
        const std::string& place) {
    for (const auto& [memberName, member] : members) {
        if (name == memberName) return member;
    }
    Refuse(place + ": there is no \"" + name + "\"");
}

SRule ReadRule(CMembers& members) {
    SRule rule;
    std::string action;
    members.Read("method", rule.Method);
    members.Read("skip", rule.Skip);
    members.Read("times", rule.Times);
    members.Read("action", action);
    if (rule.Method.empty()) Refuse(members.Place() + ": a rule needs a method");
    rule.Action = OneOf<EAction>(action,
                                 {{"throw", EAction::Throw},
                                  {"delay", EAction::Delay},
                                  {"exit", EAction::Exit},
                                  {"kill", EAction::Kill},
                                  {"garbage", EAction::Garbage},
                                  {"malformed", EAction::Malformed},
                                  {"unknown-enum", EAction::UnknownEnum},
                                  {"internal-error", EAction::InternalError}},
                                 members.Place() + ".action");
    switch (rule.Action) {
        case EAction::Throw:
            rule.Type = "CGenericException";
            members.Read("type", rule.Type);
            members.ReadEnum("missedPackage", rule.MissedPackage);
            members.Read("message", rule.Message);
            break;
        case EAction::InternalError:
        case EAction::Garbage:
            members.Read("message", rule.Message);
            break;
        case EAction::Delay:
            members.ReadMilliseconds("ms", rule.Delay);
            break;
        case EAction::Exit:
            members.Read("code", rule.ExitCode);
            break;
        case EAction::Kill:
        case EAction::Malformed:
        case EAction::UnknownEnum:
            break;
    }
    return rule;
}

SScriptedJob ReadJob(CMembers& members) {
    SScriptedJob job;
    auto& config = job.Config;
    config.Source.BackupMode = zamclientlib::JobBackupMode::FileLevel;
    members.Read("name", config.JobName);
    members.Read("repository", job.RepositoryName);
    members.Read("enabled", job.IsEnabled);
    members.Read("userData", config.UserData);
    members.ReadEnum("backupMode", config.Source.BackupMode);
    members.Read("includeDirs", config.Source.IncludeDirs);
    members.ReadObject("retries", [&](CMembers& retries) {
        zamclientlib::SRetriesInfo info;
        retries.Read("attempts", info.AttemptsNum);
        retries.Read("timeoutMs", info.TimeoutMs);
        config.RetriesInfo = info;
    });
    return job;
}

zamclientlib::SBackupRepositoryInfo ReadRepository(CMembers& members) {
    zamclientlib::SBackupRepositoryInfo repository;
    repository.Type = zamclientlib::BackupTargetType::LocalFolder;
    members.ReadGuid("id", repository.Id);
    members.Read("name", repository.Name);
    members.ReadEnum("type", repository.Type);
    members.Read("location", repository.Location);
    return repository;
}

void ReadVersion(const std::string& text, zamclientlib::SVersion& version) {
    std::istringstream stream(text);
    char dot = '.';
    stream >> version.major >> dot >> version.minor >> dot >> version.revision >> dot >> version.build;
}

SScript Read(CMembers& members) {
    SScript script;
    std::string version;
    members.Read("protocolVersion", version);
    if (!version.empty()) ReadVersion(version, script.ProtocolVersion);
    members.ReadObject("clock", [&](CMembers& clock) {
        std::string mode = "time";
        clock.Read("mode", mode);
        script.Clock =
            OneOf<EClock>(mode, {{"time", EClock::Time}, {"calls", EClock::Calls}, {"held", EClock::Held}},
                          clock.Place() + ".mode");
        clock.ReadMilliseconds("stepMs", script.Step);
        clock.Read("steps", script.Steps);
        clock.Read("failedAttempts", script.FailedAttempts);
    });
    members.ReadObject("owner", [&](CMembers& owner) {
        owner.ReadGuid("id", script.Owner.Id);
        owner.Read("name", script.Owner.Name);
        owner.ReadEnum("type", script.Owner.Type);
        owner.ReadEnum("mode", script.Owner.Mode);
    });
    members.ReadList("repositories",
                     [&](CMembers& each) { script.Repositories.push_back(ReadRepository(each)); });
    members.ReadList("jobs", [&](CMembers& each) { script.Jobs.push_back(ReadJob(each)); });
    members.ReadList("rules", [&](CMembers& each) { script.Rules.push_back(ReadRule(each)); });
    return script;
}

}  // namespace

SScript SScript::FromEnvironment() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes the environment
    const char* const path = std::getenv(ScriptVariable);
    if (path == nullptr) return {};
    try {
        std::ifstream file(path);
        if (!file) Refuse("it can't be opened");
        CMembers members(json::parse(file), "script");
        SScript script = Read(members);
        members.Finish();
        return script;
    } catch (const std::exception& error) {
        throw std::runtime_error("The script " + std::string(path) + " can't be used: " + error.what());
    }
}

}  // namespace testagent
