// SPDX-License-Identifier: Apache-2.0
/// \file
/// Values in the words that people read.
#pragma once

#include <zamclientlib/CommonRecords.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zamctl {

/// "3.1 MiB"; "-" below zero, which means unknown.
[[nodiscard]] std::string SizeWords(std::int64_t bytes);

/// Local and short: "14:05" of today, "Mon 14:05" within six days of it, "2026-11-21 14:05" else; "-" for the time zero.
[[nodiscard]] std::string TimeWords(const zamclientlib::SDateTime& time,
                                    std::chrono::system_clock::time_point now);

/// RFC 3339 in UTC, "2026-11-21T16:31:01.250Z"; empty for the time zero.
[[nodiscard]] std::string TimeText(const zamclientlib::SDateTime& time);

/// The point in time of an RFC 3339 text, in UTC or with an offset ("2026-11-21T17:31:01+01:00"); none for every other
/// text. What is finer than a millisecond is cut off.
[[nodiscard]] std::optional<zamclientlib::SDateTime> TimeFrom(std::string_view text);

/// "45 s", "3 min 20 s", "2 h 5 min", "1 day 3 h", "3 days"; "-" below zero.
[[nodiscard]] std::string SpanWords(std::chrono::milliseconds span);

/// "1 job", "2 jobs"; with `many` where an "s" won't do.
[[nodiscard]] std::string Counted(std::size_t number, std::string_view one, std::string_view many = {});

/// What could garble a terminal, as escapes: control characters ("\n", "\x1b"), those that change the direction of
/// others, hide, or can't be shown ("\u{202e}"), and bytes that are no UTF-8 ("\xff").
[[nodiscard]] std::string Escaped(std::string_view text);

/// In quotes, escaped: for messages.
[[nodiscard]] std::string Quoted(std::string_view text);

/// "disk, tape".
[[nodiscard]] std::string Joined(const std::vector<std::string>& words);

/// The nearest of the candidates, when it is near enough for "did you mean"; else empty.
[[nodiscard]] std::string Nearest(std::string_view word, const std::vector<std::string>& candidates);

/// The columns that a terminal needs for a text: none for combining characters, two for wide ones.
[[nodiscard]] std::size_t ColumnsOf(std::string_view text);

/// The text, cut to so many columns with "…" where it is longer.
[[nodiscard]] std::string CutTo(std::string_view text, std::size_t columns);

}  // namespace zamctl
