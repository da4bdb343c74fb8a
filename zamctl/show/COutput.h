// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a command shows: rows, single things and words, in the form that was asked for.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "show/Json.h"

namespace zamctl {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"  // g++ takes the member for one that hides the type
/// How results are shown.
enum class EForm {
    Table,      ///< for people
    Json,       ///< one document: an array for rows, an object for a single thing
    JsonLines,  ///< one object a line
    Tsv,        ///< a line of keys, then a line a row; tabs, line ends and backslashes as \t, \n, \r and \\.
};
#pragma GCC diagnostic pop

/// How a column's value is shown to people. Programs get it as JSON has it, in TSV as text.
enum class EKind {
    Text,
    Sentence,  ///< text that goes on in the next line, where a table would cut another one
    Id,        ///< the first eight digits on a terminal narrower than 140 columns
    Number,
    Bytes,
    Rate,  ///< bytes a second
    Percent,
    Time,
    Span,     ///< seconds
    Outcome,  ///< success, warning, failure and their like, in colour
    Truth,    ///< yes, no
};

/// One column: what people read above it, and where its value stands in a row ("Source.BackupMode").
struct SColumn {
    const char* Heading;
    const char* Key;
    EKind Kind = EKind::Text;
    bool IsDroppable = false;  ///< left out where the terminal is too narrow
};

struct SOutputOptions {
    EForm Form = EForm::Table;
    bool IsQuiet = false;  ///< no words for people
    bool HasPager = true;  ///< a long table on a terminal goes through $PAGER ("less -FRX")
    unsigned Width = 0;    ///< 0: the terminal's
    bool HasColours = false;
};

/// Writes to standard output, at once on a terminal, else when there is much or `Flush` says so. SIGPIPE has to be
/// ignored. Words are escaped: a line stays a line. Not for several threads.
class COutput {
public:
    explicit COutput(SOutputOptions options);
    COutput(const COutput&) = delete;
    COutput& operator=(const COutput&) = delete;
    ~COutput();

    [[nodiscard]] const SOutputOptions& Options() const { return m_options; }
    [[nodiscard]] bool IsForPeople() const { return m_options.Form == EForm::Table; }

    /// A row of a list. JSON gets the whole object, tables and TSV the columns. The columns of the first row are the
    /// list's. Memory stays constant: programs get rows as they come, people by pages of 500.
    void Row(const std::vector<SColumn>& columns, const Json& row);

    /// Ends the list: an empty one is `[]`, a heading line, or, for people, `empty` on standard error.
    void EndRows(const std::vector<SColumn>& columns, std::string_view empty = {});

    /// A single thing: for people a line a column, "Heading: value".
    void Item(const std::vector<SColumn>& columns, const Json& item);

    /// A line for people on standard output; nothing in the other forms, nor when quiet.
    void Say(std::string_view line);

    /// As `Say`, but a headline or a paragraph of its own.
    void Heading(std::string_view line);

    /// A remark on standard error, in every form, but not when quiet.
    void Note(std::string_view line);

    /// Text as it is, in every form: a generated document.
    void Raw(std::string_view text);

    /// Writes what is held back, also of a list that goes on, and waits for the user to leave the pager. A list that is
    /// flushed gets no pager any more: its rows are to be seen as they come.
    /// \throws COutputGone; CFailure (Refused) when the output can't be written, a full disk say
    void Flush();

    /// A cell as people see it.
    [[nodiscard]] std::string Cell(const SColumn& column, const Json& value) const;

private:
    class Impl;
    SOutputOptions m_options;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace zamctl
