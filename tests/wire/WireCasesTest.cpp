// SPDX-License-Identifier: Apache-2.0
// The tables of odd numbers and GUIDs in docs/wire.md say what the library reads.
#include <apigen/ApiGen.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

/// The rows of the table below a heading of the page, without the head.
std::vector<std::vector<std::string>> Rows(const std::string& heading) {
    std::ifstream page(WIRE_DOCUMENT);
    std::vector<std::vector<std::string>> rows;
    std::string line;
    while (std::getline(page, line) && line != heading) {
    }
    while (std::getline(page, line) && line.rfind('#', 0) != 0) {
        if (line.rfind("| ", 0) != 0) continue;
        std::istringstream cells(line.substr(2));
        auto& row = rows.emplace_back();
        for (std::string cell; std::getline(cells, cell, '|');) {
            // As it stands between the backquotes: the blanks at its ends count.
            const auto quote = cell.find('`');
            if (quote != std::string::npos) {
                cell = cell.substr(quote + 1, cell.rfind('`') - quote - 1);
            } else {
                cell = cell.substr(cell.find_first_not_of(' '));
                cell.erase(cell.find_last_not_of(' ') + 1);
            }
            row.push_back(cell == "(empty)" ? "" : cell);
        }
    }
    if (!rows.empty()) rows.erase(rows.begin());
    return rows;
}

template <class T>
std::string Read(const std::string& text) {
    const auto data = apigen::CXmlData::CreateNew();
    data->SetString("K", text);
    T value = 7;
    apigen::Deserialize(*data, "K", value);
    return std::to_string(value);
}

TEST(WireDocument, TellsHowOddNumbersAreRead) {
    const auto rows = Rows("### Odd numbers");
    ASSERT_GT(rows.size(), 15U);
    for (const auto& row : rows) {
        ASSERT_EQ(row.size(), 6U) << row[0];
        EXPECT_EQ(Read<int>(row[0]), row[1]) << row[0];
        EXPECT_EQ(Read<long>(row[0]), row[2]) << row[0];
        EXPECT_EQ(Read<unsigned short>(row[0]), row[3]) << row[0];
        EXPECT_EQ(Read<unsigned int>(row[0]), row[4]) << row[0];
        EXPECT_EQ(Read<unsigned long>(row[0]), row[5]) << row[0];
    }
}

TEST(WireDocument, TellsHowOddGuidsAreRead) {
    const auto rows = Rows("### Odd GUIDs");
    ASSERT_GT(rows.size(), 15U);
    for (const auto& row : rows) {
        ASSERT_EQ(row.size(), 2U) << row[0];
        EXPECT_EQ(apigen::Guid::Deserialize(row[0]).Serialize(), row[1]) << row[0];
    }
}

}  // namespace
