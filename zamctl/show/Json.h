// SPDX-License-Identifier: Apache-2.0
/// \file
/// Records as JSON and back, by their field lists.
///
/// Keys are the records' own, enumerations stand by name (a value without a name by its number), days and months as
/// "Monday|Friday", ids and versions as text, points in time as RFC 3339 in UTC ("2026-11-21T16:31:01.250Z", null for
/// the time zero), durations as seconds (a number, 90.5), absent optionals as null. Secrets are never written: one that
/// is set stands as null, like one that is not; so a null that is read leaves a secret as it is. Texts that are no UTF-8
/// have each odd byte replaced.
#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace zamctl {

using Json = nlohmann::ordered_json;

/// A place in a text, as editors count: from 1, in characters.
struct SPlace {
    std::size_t Line = 1;
    std::size_t Column = 1;
};

/// A field that can't be read: where it stands ("ScheduleInfo.Calendar.Days"), and what is wrong with it.
class CFieldError : public std::runtime_error {
public:
    CFieldError(std::string path, const std::string& why)
        : std::runtime_error(path.empty() ? why : path + ": " + why), m_path(std::move(path)) {}
    /// Text that is no JSON.
    CFieldError(SPlace place, const std::string& why)
        : std::runtime_error("line " + std::to_string(place.Line) + ", column " +
                             std::to_string(place.Column) + ": " + why),
          m_place(place) {}
    [[nodiscard]] const std::string& Path() const noexcept { return m_path; }
    /// For text that is no JSON; `PlaceOf` finds that of a path.
    [[nodiscard]] const std::optional<SPlace>& Place() const noexcept { return m_place; }

private:
    std::string m_path;
    std::optional<SPlace> m_place;
};

/// Defined in Json.cpp, and instantiated there for the records that commands show: add yours.
template <class Record>
[[nodiscard]] Json ToJson(const Record& record);

/// Puts what `json`, an object, holds into `record`; what is not there stays as it is. Strict: an unknown key (with the
/// nearest known one in the message), a wrong type, a name that no member has (with those that there are), a number
/// out of range are errors. A null takes the value of an optional away. "$schema" at the top is for editors.
/// \throws CFieldError
template <class Record>
void FromJson(const Json& json, Record& record);

/// Text that is to become JSON. A name that an object has twice is an error, too.
/// \throws CFieldError with line and column in its message
[[nodiscard]] Json ParseJson(const std::string& text);

/// Where a field that a CFieldError names stands in the text; none when it does not.
[[nodiscard]] std::optional<SPlace> PlaceOf(const std::string& text, std::string_view path);

/// One line, or indented by two. Never throws for texts that are no UTF-8.
[[nodiscard]] std::string JsonText(const Json& json, bool isIndented);

}  // namespace zamctl
