// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/RecordText.h>

#include <charconv>
#include <cstdint>
#include <limits>
#include <ostream>

#include "support/common/Text.h"

namespace zamclientlib {
namespace {

constexpr std::int64_t SecondsOfADay = 24 * 60 * 60;

struct SMoment {
    std::int64_t Seconds;
    int Milliseconds;
};

/// Milliseconds below a thousand; at the very end of the range, the last second.
SMoment Normal(std::int64_t seconds, unsigned short milliseconds) {
    const int more = milliseconds / 1000;
    if (seconds > std::numeric_limits<std::int64_t>::max() - more) {
        return {std::numeric_limits<std::int64_t>::max(), 999};
    }
    return {seconds + more, milliseconds % 1000};
}

/// At least so many digits.
void AppendNumber(std::string& text, std::uint64_t number, std::size_t width) {
    const std::string digits = std::to_string(number);
    if (digits.size() < width) text.append(width - digits.size(), '0');
    text += digits;
}

struct SDate {
    std::int64_t Year;
    unsigned int Month;
    unsigned int Day;
};

/// The date of a day since 1970-01-01, in years that begin in March, so that a leap day is the last of its year.
SDate DateOf(std::int64_t days) {
    constexpr std::int64_t DaysOfAnEra = 146097;  // 400 years
    days += 719468;                               // since 0000-03-01
    const std::int64_t era = (days >= 0 ? days : days - (DaysOfAnEra - 1)) / DaysOfAnEra;
    const auto day = static_cast<unsigned int>(days - era * DaysOfAnEra);
    const unsigned int year = (day - day / 1460 + day / 36524 - day / 146096) / 365;
    const unsigned int dayOfYear = day - (365 * year + year / 4 - year / 100);
    const unsigned int month = (5 * dayOfYear + 2) / 153;
    return {era * 400 + year + (month >= 10 ? 1 : 0), month < 10 ? month + 3 : month - 9,
            dayOfYear - (153 * month + 2) / 5 + 1};
}

}  // namespace

std::string ToText(const SDateTime& time) {
    const SMoment moment = Normal(time.seconds, time.milliseconds);
    std::int64_t days = moment.Seconds / SecondsOfADay;
    std::int64_t second = moment.Seconds % SecondsOfADay;
    if (second < 0) {
        second += SecondsOfADay;
        --days;
    }
    const SDate date = DateOf(days);
    std::string text;
    if (date.Year < 0) text += '-';
    AppendNumber(text, static_cast<std::uint64_t>(date.Year < 0 ? -date.Year : date.Year), 4);
    const auto part = [&text](char before, std::int64_t number, std::size_t width) {
        text += before;
        AppendNumber(text, static_cast<std::uint64_t>(number), width);
    };
    part('-', date.Month, 2);
    part('-', date.Day, 2);
    part('T', second / 3600, 2);
    part(':', second / 60 % 60, 2);
    part(':', second % 60, 2);
    part('.', moment.Milliseconds, 3);
    return text += 'Z';
}

std::string ToText(const STimeSpan& span) {
    SMoment moment = Normal(span.seconds, span.milliseconds);
    std::string text;
    std::uint64_t seconds = static_cast<std::uint64_t>(moment.Seconds);
    if (moment.Seconds < 0) {
        text += '-';
        seconds = 0 - seconds;
        if (moment.Milliseconds != 0) {
            --seconds;
            moment.Milliseconds = 1000 - moment.Milliseconds;
        }
    }
    AppendNumber(text, seconds, 1);
    text += '.';
    AppendNumber(text, static_cast<std::uint64_t>(moment.Milliseconds), 3);
    return text += 's';
}

std::string ToText(const SVersion& version) {
    std::string text;
    for (const unsigned short part : {version.major, version.minor, version.revision, version.build}) {
        if (!text.empty()) text += '.';
        text += std::to_string(part);
    }
    return text;
}

apigen::Optional<SVersion> ParseVersion(std::string_view text) {
    SVersion version;
    for (auto* const part : {&version.major, &version.minor, &version.revision, &version.build}) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *part);
        if (error != std::errc()) return {};
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        if (text.empty()) return version;
        if (text.front() != '.') return {};
        text.remove_prefix(1);
    }
    return {};
}

std::ostream& operator<<(std::ostream& stream, const SVersion& version) {
    return stream << ToText(version);
}

void detail::Append(std::string& text, std::string_view piece) {
    text += piece;
}

void detail::AppendQuoted(std::string& text, std::string_view value) {
    text += apigen::common::Quoted(value);
}

void detail::AppendKey(std::string& text, std::string_view key) {
    if (text.back() != '{') text += ", ";
    text.append(key).append(": ");
}

void detail::Stream(std::ostream& stream, std::string_view text) {
    stream << text;
}

}  // namespace zamclientlib
