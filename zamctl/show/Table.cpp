// SPDX-License-Identifier: Apache-2.0
#include "show/Table.h"

#include <libsmartcols.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <numeric>

#include "show/Characters.h"
#include "show/Words.h"

namespace zamctl {
namespace {

constexpr std::size_t Gap = 2;  ///< between two columns
/// A text of which so much is seen is still worth more than a droppable column.
constexpr std::size_t EnoughText = 24;
constexpr std::size_t LeastText = 8;
constexpr std::size_t LeastOfAll = 4;
/// A page of so many rows may get a heading of its own.
constexpr std::size_t LongPage = 20;

using Rows = std::vector<std::vector<STableCell>>;

std::size_t Total(const std::vector<std::size_t>& widths) {
    return std::accumulate(widths.begin(), widths.end(), std::size_t{0}) +
           (widths.empty() ? 0 : (widths.size() - 1) * Gap);
}

/// The widest of the columns that may become narrower; none when all are as narrow as can be.
template <class May>
std::size_t* Widest(std::vector<std::size_t>& widths, std::size_t least, const May& may) {
    std::size_t* widest = nullptr;
    for (std::size_t i = 0; i < widths.size(); ++i) {
        if (widths[i] > least && may(i) && (widest == nullptr || widths[i] > *widest)) widest = &widths[i];
    }
    return widest;
}

/// The widths that the cells would have.
std::vector<std::size_t> NaturalWidths(const std::vector<STableColumn>& columns, const Rows& rows,
                                       std::size_t width) {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        std::size_t natural = ColumnsOf(columns[i].Heading);
        for (const auto& row : rows)
            natural = std::max(natural, ColumnsOf(row[i].Text));
        widths.push_back(std::min(natural, width));
    }
    return widths;
}

void Choose(const std::vector<STableColumn>& columns, const std::vector<std::size_t>& natural,
            std::size_t width, STableLayout& layout) {
    std::vector<std::size_t> needed;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        layout.Shown.push_back(i);
        needed.push_back(columns[i].IsCuttable ? std::min(natural[i], EnoughText) : natural[i]);
    }
    for (std::size_t i = columns.size(); i-- > 0 && Total(needed) > width;) {
        if (!columns[i].IsDroppable) continue;
        layout.Shown.erase(layout.Shown.begin() + static_cast<long>(i));
        needed.erase(needed.begin() + static_cast<long>(i));
    }
}

void Fit(const std::vector<STableColumn>& columns, std::size_t width, STableLayout& layout) {
    while (Total(layout.Widths) > width) {
        std::size_t* narrower = Widest(layout.Widths, LeastText,
                                       [&](std::size_t i) { return columns[layout.Shown[i]].IsCuttable; });
        if (narrower == nullptr)
            narrower = Widest(layout.Widths, LeastOfAll, [](std::size_t) { return true; });
        if (narrower != nullptr) {
            --*narrower;
        } else if (layout.Widths.size() > 1) {
            layout.Widths.pop_back();
            layout.Shown.pop_back();
        } else {
            return;
        }
    }
}

/// A text in pieces of at most so many columns, parted at blanks where there are some.
std::vector<std::string> Pieces(std::string_view text, std::size_t width) {
    std::vector<std::string> pieces;
    while (ColumnsOf(text) > width) {
        const std::size_t most = std::max<std::size_t>(LengthWithin(text, width), 1);
        const std::size_t blank = text.find_last_of(' ', most);
        const bool isParted = blank != std::string_view::npos && blank != 0;
        pieces.emplace_back(text.substr(0, isParted ? blank : most));
        text.remove_prefix(isParted ? blank + 1 : most);
    }
    pieces.emplace_back(text);
    return pieces;
}

/// The rows with lines below them for what goes on there.
Rows Wrapped(const std::vector<STableColumn>& columns, const Rows& rows, const STableLayout& layout) {
    Rows lines;
    for (const auto& row : rows) {
        const std::size_t first = lines.size();
        lines.push_back(row);
        for (std::size_t i = 0; i < layout.Shown.size(); ++i) {
            const std::size_t column = layout.Shown[i];
            if (!columns[column].IsWrapped) continue;
            const auto pieces = Pieces(row[column].Text, layout.Widths[i]);
            lines.resize(std::max(lines.size(), first + pieces.size()),
                         std::vector<STableCell>(columns.size()));
            for (std::size_t at = 0; at < pieces.size(); ++at)
                lines[first + at][column].Text = pieces[at];
        }
    }
    return lines;
}

struct SFree {
    void operator()(libscols_table* table) const noexcept { scols_unref_table(table); }
    void operator()(char* text) const noexcept { std::free(text); }  // NOLINT: the C library's own
};

void Require(bool isDone) {
    if (!isDone) throw std::bad_alloc();
}

std::string Padded(std::string text, std::size_t width, bool isRight) {
    const std::size_t columns = ColumnsOf(text);
    if (columns < width) text.insert(isRight ? 0 : text.size(), width - columns, ' ');
    return text;
}

std::string Print(const std::vector<STableColumn>& columns, const Rows& rows, bool hasColours,
                  bool hasHeading, const STableLayout& layout) {
    const std::unique_ptr<libscols_table, SFree> table(scols_new_table());
    Require(table != nullptr);
    scols_table_set_column_separator(table.get(), "  ");
    scols_table_enable_noencoding(table.get(), 1);  // cells are escaped
    scols_table_enable_noheadings(table.get(), hasHeading ? 0 : 1);
    scols_table_enable_colors(table.get(), hasColours ? 1 : 0);
    scols_table_set_termforce(table.get(), SCOLS_TERMFORCE_NEVER);  // cells fit already

    // What stands in the first line of a column gives it its width.
    const auto first = [&](const std::string& text, std::size_t i) {
        const bool isRight = columns[layout.Shown[i]].IsRight;
        const std::string cut = CutTo(text, layout.Widths[i]);
        return isRight || i + 1 < layout.Shown.size() ? Padded(cut, layout.Widths[i], isRight) : cut;
    };
    for (std::size_t i = 0; i < layout.Shown.size(); ++i) {
        const STableColumn& column = columns[layout.Shown[i]];
        Require(scols_table_new_column(table.get(), first(column.Heading, i).c_str(), 0,
                                       column.IsRight ? SCOLS_FL_RIGHT : 0) != nullptr);
    }
    for (std::size_t r = 0; r < rows.size(); ++r) {
        libscols_line* const line = scols_table_new_line(table.get(), nullptr);
        Require(line != nullptr);
        for (std::size_t i = 0; i < layout.Shown.size(); ++i) {
            const STableCell& cell = rows[r][layout.Shown[i]];
            const std::string text =
                r == 0 && !hasHeading ? first(cell.Text, i) : CutTo(cell.Text, layout.Widths[i]);
            Require(scols_line_set_data(line, i, text.c_str()) == 0);
            if (cell.Colour != nullptr) scols_cell_set_color(scols_line_get_cell(line, i), cell.Colour);
        }
    }
    char* raw = nullptr;
    Require(scols_print_table_to_string(table.get(), &raw) == 0);
    const std::unique_ptr<char, SFree> text(raw);
    std::string lines(text.get());
    if (!lines.empty() && lines.back() != '\n') lines += '\n';
    return lines;
}

}  // namespace

std::string TablePage(const std::vector<STableColumn>& columns, const Rows& rows, std::size_t width,
                      bool hasColours, STableLayout& layout) {
    const std::vector<std::size_t> natural = NaturalWidths(columns, rows, width);
    const bool isFirst = layout.Shown.empty();
    if (isFirst) Choose(columns, natural, width, layout);
    const std::vector<std::size_t> before = layout.Widths;
    layout.Widths.resize(layout.Shown.size());
    for (std::size_t i = 0; i < layout.Shown.size(); ++i)
        layout.Widths[i] = std::max(layout.Widths[i], natural[layout.Shown[i]]);
    Fit(columns, width, layout);
    // Wide characters in the cells have brought them already; "…" in place of what is cut off is one, too.
    for (std::size_t i = 0; i < layout.Shown.size(); ++i)
        if (layout.Widths[i] < natural[layout.Shown[i]] && !columns[layout.Shown[i]].IsWrapped)
            UseWideCharacters();
    const bool isOther = !isFirst && layout.Widths != before && rows.size() >= LongPage;
    std::string lines =
        Print(columns, Wrapped(columns, rows, layout), hasColours, isFirst || isOther, layout);
    if (isOther) lines.insert(0, 1, '\n');
    return lines;
}

}  // namespace zamctl
