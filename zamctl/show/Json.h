// SPDX-License-Identifier: Apache-2.0
/// \file
/// Records as JSON and back, by their field lists.
///
/// Keys are the records' own, enumerations stand by name (a value without a name by its number), days and months as
/// "Monday|Friday", ids and versions as text, points in time as RFC 3339 in UTC ("2026-11-21T16:31:01.250Z", null for
/// the time zero), durations as seconds (a number, 90.5), absent optionals as null. Secrets are never written: one that
/// is set stands as null, like one that is not. Texts that are no UTF-8 have each odd byte replaced.
#pragma once

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>

namespace zamctl {

using Json = nlohmann::ordered_json;

/// A field that can't be read: where it stands ("ScheduleInfo.Calendar.Days"), and what is wrong with it.
class CFieldError : public std::runtime_error {
public:
    CFieldError(std::string path, const std::string& why)
        : std::runtime_error(path.empty() ? why : path + ": " + why), m_path(std::move(path)) {}
    [[nodiscard]] const std::string& Path() const noexcept { return m_path; }

private:
    std::string m_path;
};

/// Defined in Json.cpp, and instantiated there for the records that commands show: add yours.
template <class Record>
[[nodiscard]] Json ToJson(const Record& record);

/// Puts what `json`, an object, holds into `record`; what is not there stays as it is. Strict: an unknown key (with the
/// nearest known one in the message), a wrong type, a name that no member has (with those that there are), a number
/// out of range are errors.
/// \throws CFieldError
template <class Record>
void FromJson(const Json& json, Record& record);

/// Text that is to become JSON.
/// \throws CFieldError with line and column in its message
[[nodiscard]] Json ParseJson(const std::string& text);

/// One line, or indented by two. Never throws for texts that are no UTF-8.
[[nodiscard]] std::string JsonText(const Json& json, bool isIndented);

}  // namespace zamctl
