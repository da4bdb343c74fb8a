// SPDX-License-Identifier: Apache-2.0
/// \file
/// Cells in columns that fit a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zamctl {

/// A column of a table, with what is known of its width.
struct STableColumn {
    std::string Heading;
    bool IsRight = false;
    bool IsDroppable = false;
    bool IsCuttable = false;  ///< text, of which the beginning will do
    bool IsWrapped = false;   ///< text that goes on in the next line in place of that
};

struct STableCell {
    std::string Text;              ///< escaped
    const char* Colour = nullptr;  ///< as libsmartcols calls it
};

/// Which columns are shown, and how wide; those of a page are kept for the next.
struct STableLayout {
    std::vector<std::size_t> Shown;
    std::vector<std::size_t> Widths;  ///< of those shown
};

/// The lines of a page of a table, none longer than `width`. The heading stands above the first page, and above a long
/// one whose columns had to become wider.
[[nodiscard]] std::string TablePage(const std::vector<STableColumn>& columns,
                                    const std::vector<std::vector<STableCell>>& rows, std::size_t width,
                                    bool hasColours, STableLayout& layout);

}  // namespace zamctl
