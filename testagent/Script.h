// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a test wants of the agent: its first content, its clock, its misbehaviour.
#pragma once

#include <apigen/Guid.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace testagent {

/// What makes sessions progress.
enum class EClock {
    Time,   ///< a thread, one step at a time
    Calls,  ///< each `GetInfo` of a session is a step of that session
    Held,   ///< nothing but `Stop`
};

enum class EAction {
    Throw,
    Delay,
    Exit,
    Kill,
    Disconnect,
    Garbage,
    Malformed,
    UnknownEnum,
    InternalError,
    NullObject
};

/// Stands for a method in a rule: what comes before any call.
inline constexpr const char* GreetingMethod = "greeting";

/// A misbehaviour and when it shows.
struct SRule {
    std::string Method;       ///< its name, or its whole identifier
    unsigned long Skip = 0;   ///< so many calls go well first
    unsigned long Times = 0;  ///< so many calls are affected; 0: all
    EAction Action{};
    std::string Type;  ///< of the exception
    std::string Message;
    zamclientlib::EIndexingDependency MissedPackage{};
    std::chrono::milliseconds Delay{};
    int ExitCode = 0;
};

enum class EEventAction {
    HalfFrame,
    Garbage,
    Malformed,
    Stall,
    Disconnect,
    Kill
};

/// A misbehaviour of the event socket and when it shows.
struct SEventRule {
    std::optional<zamclientlib::EEventType> Event;  ///< the kind that it is for; all without one
    unsigned long Skip = 0;                         ///< so many events go well first
    unsigned long Times = 0;                        ///< so many events are affected; 0: all
    EEventAction Action{};
    std::string Message;
};

struct SScriptedJob {
    zamclientlib::SBackupJobConfigurationInfo Config;
    std::string RepositoryName;
    bool IsEnabled = true;
};

struct SScript {
    zamclientlib::SVersion ProtocolVersion{2, 0, 0, 0};
    EClock Clock = EClock::Time;
    std::chrono::milliseconds Step{20};
    unsigned Steps = 5;                ///< from the start of a session to its end
    unsigned long FailedAttempts = 0;  ///< so many attempts of every run fail
    zamclientlib::SZamControlOwnerInfo Owner;
    std::vector<zamclientlib::SBackupRepositoryInfo> Repositories;
    std::vector<SScriptedJob> Jobs;
    std::vector<SRule> Rules;
    std::vector<SEventRule> EventRules;
    std::chrono::milliseconds IdleLimit{
        60000};  ///< an agent without clients ends after that, if it is shared

    /// Reads the file named in `ZAM_TESTAGENT_SCRIPT`; without that variable an empty agent that behaves.
    /// \throws std::runtime_error naming the file and the place in it
    static SScript FromEnvironment();
};

}  // namespace testagent
