// SPDX-License-Identifier: Apache-2.0
/// \file
/// Rows for people, or for programs.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "agent/core/IClock.h"

namespace tarvo::commands {

/// One cell: the column, what people see, and what programs get.
struct SCell {
    std::string Column;
    std::string Shown;
    std::variant<std::monostate, std::string, std::uint64_t, bool> Value = {};  ///< nothing: null
};

using Row = std::vector<SCell>;

/// Aligned text under headings, when the table ends; or a line of JSON for each row, at once.
class CTable {
public:
    CTable(std::ostream& out, bool isJson) : m_out(out), m_isJson(isJson) {}
    CTable(const CTable&) = delete;
    CTable& operator=(const CTable&) = delete;
    ~CTable();

    void Add(Row row);

private:
    std::ostream& m_out;
    const bool m_isJson;
    std::vector<Row> m_rows;
};

/// One line of JSON. What is no valid UTF-8 is replaced.
std::string JsonLine(const Row& row);

SCell Text(std::string column, std::string shown);
SCell Number(std::string column, std::uint64_t value);
SCell Bytes(std::string column, std::uint64_t value);
SCell Time(std::string column, Moment moment);

/// "2026-11-21T16:31:01Z"
std::string TimeText(Moment moment);

/// "3.1 MiB"
std::string SizeText(std::uint64_t bytes);

}  // namespace tarvo::commands
