// SPDX-License-Identifier: Apache-2.0
/// \file
/// What the event stream delivers, and how to find it.
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/Optional.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/RecordEquality.h>

#include <string>

namespace zamclientlib APIGEN_API {

/// How to reach the event source.
struct SEventConfigV1 {
    std::string socketPath{};  ///< of a Unix-domain stream socket

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("socketPath", &SEventConfigV1::socketPath);
    }
};

/// How to reach the event source, by version of the event protocol.
struct SEventConfig {
    apigen::Optional<SEventConfigV1> v1{};  ///< absent when the agent offers none

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("v1", &SEventConfig::v1);
    }
};

/// A job was created.
struct SEventBackupJobCreated {
    apigen::Guid JobId{};
    std::string Username{};  ///< who caused it

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("JobId", &SEventBackupJobCreated::JobId);
        field("Username", &SEventBackupJobCreated::Username);
    }
};

/// A job was deleted.
struct SEventBackupJobDeleted {
    apigen::Guid JobId{};
    std::string Username{};  ///< who caused it

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("JobId", &SEventBackupJobDeleted::JobId);
        field("Username", &SEventBackupJobDeleted::Username);
    }
};

/// A job was changed.
struct SEventBackupJobModified {
    apigen::Guid JobId{};
    std::string Username{};  ///< who caused it

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("JobId", &SEventBackupJobModified::JobId);
        field("Username", &SEventBackupJobModified::Username);
    }
};

/// A job's source was changed.
struct SEventBackupSourceUpdated {
    apigen::Guid JobId{};
    std::string Username{};  ///< who caused it

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("JobId", &SEventBackupSourceUpdated::JobId);
        field("Username", &SEventBackupSourceUpdated::Username);
    }
};

/// A job's backup mode was changed.
struct SEventBackupModeChanged {
    apigen::Guid JobId{};
    std::string Username{};  ///< who caused it

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("JobId", &SEventBackupModeChanged::JobId);
        field("Username", &SEventBackupModeChanged::Username);
    }
};

/// A session of a job ended.
struct SEventBackupJobFinished {
    apigen::Guid JobId{};
    apigen::Guid SessionId{};
    JobSessionTaskStatus Status{};
    JobBackupMode JobMode{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("JobId", &SEventBackupJobFinished::JobId);
        field("SessionId", &SEventBackupJobFinished::SessionId);
        field("Status", &SEventBackupJobFinished::Status);
        field("JobMode", &SEventBackupJobFinished::JobMode);
    }
};

/// A session of a job started.
struct SEventBackupJobStarted {
    apigen::Guid JobId{};
    apigen::Guid SessionId{};
    std::string Username{};
    JobBackupMode JobMode{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("JobId", &SEventBackupJobStarted::JobId);
        field("SessionId", &SEventBackupJobStarted::SessionId);
        field("Username", &SEventBackupJobStarted::Username);
        field("JobMode", &SEventBackupJobStarted::JobMode);
    }
};

/// A session of a job is tried again.
struct SEventBackupJobRetried {
    apigen::Guid JobId{};
    apigen::Guid SessionId{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("JobId", &SEventBackupJobRetried::JobId);
        field("SessionId", &SEventBackupJobRetried::SessionId);
    }
};

/// One event: a header, and the data in whichever of the optionals has a value.
struct SBaseEvent {
    EEventType Type{};
    unsigned long Id = 0;  ///< ascending
    SDateTime CreateTimeUTC{};
    EEventSourceType SourceType{};
    apigen::Guid ControlSessionId{};  ///< the control session that raised it
    apigen::Optional<SEventBackupJobCreated> eventBackupJobCreated{};
    apigen::Optional<SEventBackupJobDeleted> eventBackupJobDeleted{};
    apigen::Optional<SEventBackupJobModified> eventBackupJobModified{};
    apigen::Optional<SEventBackupSourceUpdated> eventBackupSourceUpdated{};
    apigen::Optional<SEventBackupModeChanged> eventBackupModeChanged{};
    apigen::Optional<SEventBackupJobFinished> eventBackupJobFinished{};
    apigen::Optional<SEventBackupJobStarted> eventBackupJobStarted{};
    apigen::Optional<SEventBackupJobRetried> eventBackupJobRetried{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Type", &SBaseEvent::Type);
        field("Id", &SBaseEvent::Id);
        field("CreateTimeUTC", &SBaseEvent::CreateTimeUTC);
        field("SourceType", &SBaseEvent::SourceType);
        field("ControlSessionId", &SBaseEvent::ControlSessionId);
        field("eventBackupJobCreated", &SBaseEvent::eventBackupJobCreated);
        field("eventBackupJobDeleted", &SBaseEvent::eventBackupJobDeleted);
        field("eventBackupJobModified", &SBaseEvent::eventBackupJobModified);
        field("eventBackupSourceUpdated", &SBaseEvent::eventBackupSourceUpdated);
        field("eventBackupModeChanged", &SBaseEvent::eventBackupModeChanged);
        field("eventBackupJobFinished", &SBaseEvent::eventBackupJobFinished);
        field("eventBackupJobStarted", &SBaseEvent::eventBackupJobStarted);
        field("eventBackupJobRetried", &SBaseEvent::eventBackupJobRetried);
    }
};

}  // namespace zamclientlib
