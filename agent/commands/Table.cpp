// SPDX-License-Identifier: Apache-2.0
#include "agent/commands/Table.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

namespace tarvo::commands {
namespace {

/// What a terminal needs for it, near enough.
std::size_t Width(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80; }));
}

std::string Heading(std::string column) {
    std::transform(column.begin(), column.end(), column.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return column;
}

}  // namespace

CTable::~CTable() {
    if (m_rows.empty()) return;
    std::vector<std::size_t> widths;
    for (const auto& cell : m_rows.front())
        widths.push_back(cell.Column.size());
    for (const auto& row : m_rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], Width(row[i].Shown));
    const auto print = [&](const Row& row, bool isHeading) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string text = isHeading ? Heading(row[i].Column) : row[i].Shown;
            const std::string blanks(widths[i] - std::min(widths[i], Width(text)), ' ');
            const bool isNumber = std::holds_alternative<std::uint64_t>(row[i].Value);
            line += isNumber ? blanks + text : text + blanks;
            if (i + 1 < row.size()) line += "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        m_out << line << '\n';
    };
    print(m_rows.front(), true);
    for (const auto& row : m_rows)
        print(row, false);
}

void CTable::Add(Row row) {
    if (m_isJson) {
        m_out << JsonLine(row) << '\n';
    } else {
        m_rows.push_back(std::move(row));
    }
}

std::string JsonLine(const Row& row) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const auto& cell : row) {
        auto& value = object[cell.Column];
        if (const auto* text = std::get_if<std::string>(&cell.Value)) value = *text;
        if (const auto* number = std::get_if<std::uint64_t>(&cell.Value)) value = *number;
        if (const auto* truth = std::get_if<bool>(&cell.Value)) value = *truth;
    }
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

SCell Text(std::string column, std::string shown) {
    SCell cell{std::move(column), shown, {}};
    cell.Value = std::move(shown);
    return cell;
}

SCell Number(std::string column, std::uint64_t value) {
    return {std::move(column), std::to_string(value), value};
}

SCell Bytes(std::string column, std::uint64_t value) {
    return {std::move(column), SizeText(value), value};
}

SCell Time(std::string column, Moment moment) {
    return Text(std::move(column), TimeText(moment));
}

std::string TimeText(Moment moment) {
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(std::chrono::floor<std::chrono::seconds>(moment - day));
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text.data();
}

std::string SizeText(std::uint64_t bytes) {
    static constexpr std::array<const char*, 6> Units{"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024) return std::to_string(bytes) + " B";
    double size = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    while (size >= 1023.95 && unit + 1 < Units.size()) {
        size /= 1024;
        ++unit;
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.1f %s", size, Units.at(unit));
    return text.data();
}

}  // namespace tarvo::commands
