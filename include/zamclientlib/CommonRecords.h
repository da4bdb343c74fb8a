// SPDX-License-Identifier: Apache-2.0
/// \file
/// The small values that other records embed.
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <zamclientlib/RecordEquality.h>

namespace zamclientlib APIGEN_API {

/// A four-part version number.
struct SVersion {
    unsigned short major = 0;
    unsigned short minor = 0;
    unsigned short revision = 0;
    unsigned short build = 0;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("major", &SVersion::major);
        field("minor", &SVersion::minor);
        field("revision", &SVersion::revision);
        field("build", &SVersion::build);
    }
};

/// What a tool reports about its protocol.
struct SCompatibilityInfo {
    SVersion protocolVersion;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("protocolVersion", &SCompatibilityInfo::protocolVersion);
    }
};

/// A point in time: whole seconds since 1970-01-01 00:00:00 UTC, and the milliseconds within the second.
struct SDateTime {
    long seconds = 0;
    unsigned short milliseconds = 0;  ///< 0 to 999

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("seconds", &SDateTime::seconds);
        field("milliseconds", &SDateTime::milliseconds);
    }
};

/// A duration: whole seconds, and the milliseconds beyond them.
struct STimeSpan {
    long seconds = 0;
    unsigned short milliseconds = 0;  ///< 0 to 999

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("seconds", &STimeSpan::seconds);
        field("milliseconds", &STimeSpan::milliseconds);
    }
};

}  // namespace zamclientlib
