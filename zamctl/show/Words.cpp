// SPDX-License-Identifier: Apache-2.0
#include "show/Words.h"

#include <zamclientlib/Chrono.h>
#include <zamclientlib/RecordText.h>

#include <time.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "show/Characters.h"

namespace zamctl {
namespace {

using zamclientlib::SDateTime;

std::string TwoDigits(int number) {
    std::string text = std::to_string(number);
    return text.size() < 2 ? '0' + text : text;
}

bool IsZero(const SDateTime& time) {
    return time.seconds == 0 && time.milliseconds == 0;
}

/// Days since 1970-01-01 of a local date.
long DayOf(const std::tm& date) {
    using namespace std::chrono;
    const year_month_day day(year(date.tm_year + 1900), month(static_cast<unsigned>(date.tm_mon + 1)),
                             std::chrono::day(static_cast<unsigned>(date.tm_mday)));
    return sys_days(day).time_since_epoch().count();
}

/// A number of exactly so many digits at the front, which goes.
std::optional<int> Digits(std::string_view& text, std::size_t count) {
    if (text.size() < count) return std::nullopt;
    int number = 0;
    for (const char digit : text.substr(0, count)) {
        if (digit < '0' || digit > '9') return std::nullopt;
        number = number * 10 + (digit - '0');
    }
    text.remove_prefix(count);
    return number;
}

bool Skip(std::string_view& text, std::string_view oneOf) {
    if (text.empty() || oneOf.find(text.front()) == std::string_view::npos) return false;
    text.remove_prefix(1);
    return true;
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// How many letters were mistyped: left out, put in, changed, or exchanged with the next one. Case doesn't count.
std::size_t Mistakes(std::string_view left, std::string_view right) {
    std::vector<std::size_t> before;
    std::vector<std::size_t> last(right.size() + 1);
    std::vector<std::size_t> row(right.size() + 1);
    for (std::size_t j = 0; j <= right.size(); ++j)
        last[j] = j;
    for (std::size_t i = 1; i <= left.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const bool isSame = Lower(left[i - 1]) == Lower(right[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (isSame ? 0U : 1U)});
            if (i > 1 && j > 1 && Lower(left[i - 1]) == Lower(right[j - 2]) &&
                Lower(left[i - 2]) == Lower(right[j - 1])) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        before = std::move(last);
        last = row;
    }
    return last.back();
}

void AppendHex(std::string& text, char32_t number, std::size_t digits) {
    std::array<char, 8> buffer{};
    const auto [end, error] =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), static_cast<std::uint32_t>(number), 16);
    const auto length = static_cast<std::size_t>(end - buffer.data());
    if (length < digits) text.append(digits - length, '0');
    text.append(buffer.data(), length);
}

void AppendEscape(std::string& text, char32_t code) {
    if (code == '\n') {
        text += "\\n";
    } else if (code == '\r') {
        text += "\\r";
    } else if (code == '\t') {
        text += "\\t";
    } else if (code < 0x80) {
        text += "\\x";
        AppendHex(text, code, 2);
    } else {
        text += "\\u{";
        AppendHex(text, code, 4);
        text += '}';
    }
}

}  // namespace

std::string SizeWords(std::int64_t bytes) {
    static constexpr std::array<std::string_view, 7> Units{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 0) return "-";
    // In tenths of the unit, rounded to what is shown: tenths below 10, else whole ones.
    auto size = static_cast<std::uint64_t>(bytes);
    if (size < 1024) return std::to_string(size) + " B";
    std::size_t unit = 1;
    unsigned shift = 10;
    std::uint64_t tenths = 0;
    for (;; ++unit, shift += 10) {
        const std::uint64_t whole = size >> shift;
        const std::uint64_t rest = (size & ((std::uint64_t{1} << shift) - 1)) >> (shift - 10);  // of 1024
        tenths = whole * 10 + (rest * 10 + 512) / 1024;
        if (tenths >= 100) tenths = (whole + (rest >= 512 ? 1 : 0)) * 10;
        if (tenths < 10240 || unit + 1 == Units.size()) break;
    }
    std::string text = std::to_string(tenths / 10);
    if (tenths < 100) text.append(".").append(std::to_string(tenths % 10));
    return text.append(" ").append(Units.at(unit));
}

std::string TimeWords(const SDateTime& time, std::chrono::system_clock::time_point now) {
    static constexpr std::array<std::string_view, 7> Names{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    if (IsZero(time)) return "-";
    const std::time_t seconds = time.seconds;
    const std::time_t nowSeconds = std::chrono::system_clock::to_time_t(now);
    std::tm date{};
    std::tm today{};
    // No local time has so large a year.
    if (::localtime_r(&seconds, &date) == nullptr || date.tm_year > 30000 || date.tm_year < -1900 ||
        ::localtime_r(&nowSeconds, &today) == nullptr) {
        return TimeText(time);
    }
    std::string clock = TwoDigits(date.tm_hour) + ':' + TwoDigits(date.tm_min);
    const long days = DayOf(date) - DayOf(today);
    if (days == 0) return clock;
    if (days >= -6 && days <= 6) {
        return std::string(Names.at(static_cast<std::size_t>(date.tm_wday))) + ' ' + clock;
    }
    std::string year = std::to_string(date.tm_year + 1900);
    if (year.size() < 4) year.insert(0, 4 - year.size(), '0');
    return year + '-' + TwoDigits(date.tm_mon + 1) + '-' + TwoDigits(date.tm_mday) + ' ' + clock;
}

std::string TimeText(const SDateTime& time) {
    return IsZero(time) ? std::string() : zamclientlib::ToText(time);
}

std::optional<SDateTime> TimeFrom(std::string_view text) {
    using namespace std::chrono;
    const auto year = Digits(text, 4);
    if (!year || !Skip(text, "-")) return std::nullopt;
    const auto month = Digits(text, 2);
    if (!month || !Skip(text, "-")) return std::nullopt;
    const auto day = Digits(text, 2);
    if (!day || !Skip(text, "Tt ")) return std::nullopt;
    const auto hour = Digits(text, 2);
    if (!hour || *hour > 23 || !Skip(text, ":")) return std::nullopt;
    const auto minute = Digits(text, 2);
    if (!minute || *minute > 59 || !Skip(text, ":")) return std::nullopt;
    const auto second = Digits(text, 2);
    if (!second || *second > 60) return std::nullopt;  // 60: a leap second
    int milliseconds = 0;
    if (Skip(text, ".,")) {
        int weight = 100;
        if (text.empty() || text.front() < '0' || text.front() > '9') return std::nullopt;
        while (const auto digit = Digits(text, 1)) {
            milliseconds += *digit * weight;
            weight /= 10;
        }
    }
    long offset = 0;
    if (!Skip(text, "Zz")) {
        const bool isWest = !text.empty() && text.front() == '-';
        if (!Skip(text, "+-")) return std::nullopt;
        const auto hours = Digits(text, 2);
        if (!hours || *hours > 23 || !Skip(text, ":")) return std::nullopt;
        const auto minutes = Digits(text, 2);
        if (!minutes || *minutes > 59) return std::nullopt;
        offset = (*hours * 60L + *minutes) * (isWest ? -60 : 60);
    }
    const year_month_day date(std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                              std::chrono::day(static_cast<unsigned>(*day)));
    if (!text.empty() || !date.ok()) return std::nullopt;
    const long days = sys_days(date).time_since_epoch().count();
    return SDateTime{((days * 24 + *hour) * 60 + *minute) * 60 + *second - offset,
                     static_cast<unsigned short>(milliseconds)};
}

std::string SpanWords(std::chrono::milliseconds span) {
    if (span.count() < 0) return "-";
    constexpr std::int64_t Minute = 60;
    constexpr std::int64_t Hour = 60 * Minute;
    constexpr std::int64_t Day = 24 * Hour;
    if (span.count() > 0 && span.count() < 1000) return "< 1 s";
    const std::int64_t seconds = span.count() / 1000 + (span.count() % 1000 >= 500 ? 1 : 0);
    const auto two = [](std::int64_t large, const char* largeUnit, std::int64_t small,
                        const char* smallUnit) {
        std::string text = std::to_string(large) + ' ' + largeUnit;
        if (small != 0) text += ' ' + std::to_string(small) + ' ' + smallUnit;
        return text;
    };
    if (seconds < Minute) return std::to_string(seconds) + " s";
    if (seconds < Hour) return two(seconds / Minute, "min", seconds % Minute, "s");
    if (seconds < Day) return two(seconds / Hour, "h", seconds % Hour / Minute, "min");
    if (seconds < 2 * Day) return two(1, "day", seconds % Day / Hour, "h");
    return std::to_string(seconds / Day) + " days";
}

std::string Counted(std::size_t number, std::string_view one, std::string_view many) {
    std::string text = std::to_string(number) + ' ';
    if (number == 1) return text.append(one);
    return many.empty() ? text.append(one).append("s") : text.append(many);
}

std::string Escaped(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    while (!text.empty()) {
        const auto [code, length] = FirstCharacter(text);
        if (length == 0) {
            escaped += "\\x";
            AppendHex(escaped, static_cast<unsigned char>(text.front()), 2);
            text.remove_prefix(1);
            continue;
        }
        if (WidthOf(code) < 0) {
            AppendEscape(escaped, code);
        } else {
            escaped.append(text.substr(0, length));
        }
        text.remove_prefix(length);
    }
    return escaped;
}

std::string Quoted(std::string_view text) {
    return '"' + Escaped(text) + '"';
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const auto& word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string Nearest(std::string_view word, const std::vector<std::string>& candidates) {
    // A text that long is no misspelt word.
    if (word.empty() || word.size() > 200) return {};
    const std::string* nearest = nullptr;
    std::size_t fewest = 0;
    for (const std::string& candidate : candidates) {
        if (candidate.size() > 200) continue;
        const std::size_t mistakes = Mistakes(word, candidate);
        const std::size_t bearable = std::max<std::size_t>(1, std::max(word.size(), candidate.size()) / 3);
        // Of short words nothing would be left.
        if (mistakes > bearable || mistakes >= std::min(word.size(), candidate.size())) {
            if (mistakes != 0) continue;
        }
        if (nearest == nullptr || mistakes < fewest) {
            nearest = &candidate;
            fewest = mistakes;
        }
    }
    return nearest == nullptr ? std::string() : *nearest;
}

std::size_t ColumnsOf(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const auto [code, length] = FirstCharacter(text);
        // What is not escaped yet takes a place at least.
        const int width = length == 0 ? 1 : WidthOf(code);
        columns += width < 0 ? 1 : static_cast<std::size_t>(width);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return columns;
}

std::string CutTo(std::string_view text, std::size_t columns) {
    if (ColumnsOf(text) <= columns) return std::string(text);
    if (columns == 0) return {};
    return std::string(text.substr(0, LengthWithin(text, columns - 1))) + "…";
}

}  // namespace zamctl
