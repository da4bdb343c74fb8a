// SPDX-License-Identifier: Apache-2.0
#include "show/COutput.h"

#include <apigen/Guid.h>
#include <zamclientlib/CommonRecords.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "Failure.h"
#include "show/CPager.h"
#include "show/Characters.h"
#include "show/Table.h"
#include "show/Terminal.h"
#include "show/Words.h"

namespace zamctl {
namespace {

constexpr std::size_t PageRows = 500;
constexpr std::size_t BufferSize = 64UL * 1024;
constexpr unsigned WideForIds = 140;

/// What stands at "Source.BackupMode"; null for nothing.
const Json& ValueAt(const Json& row, std::string_view key) {
    static const Json Nothing;
    const Json* value = &row;
    while (!key.empty()) {
        const std::size_t end = key.find('.');
        if (!value->is_object()) return Nothing;
        const auto found = value->find(std::string(key.substr(0, end)));
        if (found == value->end()) return Nothing;
        value = &*found;
        key.remove_prefix(end == std::string_view::npos ? key.size() : end + 1);
    }
    return *value;
}

/// A number as a whole one; those below zero and what is none are unknown.
std::int64_t WholeOf(const Json& value) {
    if (value.is_number_unsigned()) {
        return static_cast<std::int64_t>(
            std::min<std::uint64_t>(value.get<std::uint64_t>(), std::numeric_limits<std::int64_t>::max()));
    }
    if (value.is_number_integer()) return value.get<std::int64_t>();
    if (value.is_number_float() && std::fabs(value.get<double>()) < 9e18) {
        return static_cast<std::int64_t>(value.get<double>());
    }
    return -1;
}

std::string PlainWords(const Json& value) {
    if (value.is_string()) return Escaped(value.get_ref<const std::string&>());
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (value.is_null()) return "-";
    if (!value.is_array()) return Escaped(JsonText(value, false));
    std::string words;
    for (const Json& element : value) {
        if (!words.empty()) words += ", ";
        words += PlainWords(element);
    }
    return words.empty() ? "-" : words;
}

std::string IdWords(const Json& value, bool isShort) {
    constexpr std::size_t Digits = 8;
    std::string id = PlainWords(value);
    if (id.find_first_not_of("{}0-") == std::string::npos) return "-";
    if (!isShort) return id;
    id.erase(0, id.front() == '{' ? 1 : 0);
    return id.size() == 36 || id.size() == 37 ? id.substr(0, Digits) : id;
}

std::string SecondsWords(const Json& value) {
    if (!value.is_number()) return PlainWords(value);
    const double seconds = value.get<double>();
    if (std::fabs(seconds) > 9e15) return "-";
    return SpanWords(std::chrono::milliseconds(std::llround(seconds * 1000)));
}

const char* ColourOf(const Json& value) {
    if (!value.is_string()) return nullptr;
    const auto& word = value.get_ref<const std::string&>();
    for (const std::string_view good : {"Success", "Running", "Up", "ok"})
        if (word == good) return "green";
    for (const std::string_view doubtful : {"Warning", "Canceled", "Stopped", "warning"})
        if (word == doubtful) return "brown";
    for (const std::string_view bad : {"Failed", "Error", "Down", "failed"})
        if (word == bad) return "red";
    return nullptr;
}

/// For the one escape sequence that a line of an item needs.
std::string Coloured(const std::string& text, const char* colour) {
    if (colour == nullptr) return text;
    const std::string_view name = colour;
    return (name == "green" ? "\033[32m" : name == "red" ? "\033[31m" : "\033[33m") + text + "\033[0m";
}

std::string TsvText(const Json& value) {
    if (value.is_null()) return {};
    const std::string text = value.is_string() ? value.get<std::string>() : JsonText(value, false);
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '\t':
                escaped += "\\t";
                break;
            case '\n':
                escaped += "\\n";
                break;
            case '\r':
                escaped += "\\r";
                break;
            case '\\':
                escaped += "\\\\";
                break;
            default:
                escaped += c;
        }
    }
    return ValidUtf8(escaped);
}

std::string TsvKeys(const std::vector<SColumn>& columns) {
    std::string line;
    for (const SColumn& column : columns)
        line.append(line.empty() ? "" : "\t").append(column.Key);
    return line + '\n';
}

std::string TsvRow(const std::vector<SColumn>& columns, const Json& row) {
    std::string line;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (i != 0) line += '\t';
        line += TsvText(ValueAt(row, columns[i].Key));
    }
    return line + '\n';
}

/// Indented as an element of the document.
std::string IndentedElement(const Json& row) {
    const std::string text = JsonText(row, true);
    std::string element = "  ";
    element.reserve(text.size() + text.size() / 4);
    for (const char c : text) {
        element += c;
        if (c == '\n') element += "  ";
    }
    return element;
}

void WriteError(std::string_view line) {
    const std::string text = std::string(line) + '\n';
    // There is no one to tell when this fails.
    static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
}

}  // namespace

class COutput::Impl {
public:
    explicit Impl(const SOutputOptions& options)
        : m_options(options),
          m_isTerminal(IsOutputTerminal()),
          m_isPaging(options.HasPager && m_isTerminal) {}

    [[nodiscard]] unsigned Width() {
        if (m_width == 0) m_width = m_options.Width != 0 ? m_options.Width : TerminalWidth();
        return m_width;
    }

    void Row(const COutput& output, const std::vector<SColumn>& columns, const Json& row) {
        switch (m_options.Form) {
            case EForm::Table:
                AddRow(output, columns, row);
                return;
            case EForm::Json:
                Write(m_rows++ == 0 ? "[\n" : ",\n");
                Write(IndentedElement(row));
                return;
            case EForm::JsonLines:
                Write(JsonText(row, false) + '\n');
                return;
            case EForm::Tsv:
                if (m_rows++ == 0) Write(TsvKeys(columns));
                Write(TsvRow(columns, row));
                return;
        }
    }

    void EndRows(const std::vector<SColumn>& columns, std::string_view empty) {
        switch (m_options.Form) {
            case EForm::Table:
                if (m_rows == 0 && !empty.empty() && !m_options.IsQuiet) Tell(Escaped(empty));
                EndPages();
                break;
            case EForm::Json:
                Write(m_rows == 0 ? "[]\n" : "\n]\n");
                break;
            case EForm::JsonLines:
                break;
            case EForm::Tsv:
                if (m_rows == 0) Write(TsvKeys(columns));
                break;
        }
        m_rows = 0;
        Settle();
    }

    void Item(const COutput& output, const std::vector<SColumn>& columns, const Json& item) {
        switch (m_options.Form) {
            case EForm::Table:
                EndPages();
                Write(ItemLines(output, columns, item));
                break;
            case EForm::Json:
                Write(JsonText(item, true) + '\n');
                break;
            case EForm::JsonLines:
                Write(JsonText(item, false) + '\n');
                break;
            case EForm::Tsv:
                Write(TsvKeys(columns) + TsvRow(columns, item));
                break;
        }
        Settle();
    }

    void Words(std::string_view line, bool isHeading) {
        if (m_options.Form != EForm::Table || m_options.IsQuiet) return;
        EndPages();
        if (isHeading && m_hasWritten) Write("\n");
        Write(Escaped(line) + '\n');
        Settle();
    }

    /// On standard error, behind what has been shown so far.
    void Tell(std::string_view line) {
        Drain();
        WriteError(line);
    }

    void Raw(std::string_view text) {
        EndPages();
        Write(text);
        Settle();
    }

    void Flush() {
        m_isPaging = false;
        EndPage();
        Drain();
        if (m_pager) {
            const auto pager = std::move(m_pager);
            pager->Close();
        }
        m_isPaging = m_options.HasPager && m_isTerminal && m_rows == 0;
    }

private:
    void AddRow(const COutput& output, const std::vector<SColumn>& columns, const Json& row) {
        if (m_rows++ == 0) {
            for (const SColumn& column : columns) {
                const bool isRight = column.Kind == EKind::Number || column.Kind == EKind::Bytes ||
                                     column.Kind == EKind::Rate || column.Kind == EKind::Percent;
                m_columns.push_back({column.Heading, isRight, column.IsDroppable,
                                     column.Kind == EKind::Text || column.Kind == EKind::Sentence,
                                     column.Kind == EKind::Sentence});
                m_sources.push_back(column);
            }
        }
        std::vector<STableCell>& cells = m_page.emplace_back();
        for (const SColumn& column : m_sources) {
            const Json& value = ValueAt(row, column.Key);
            cells.push_back(
                {output.Cell(column, value), column.Kind == EKind::Outcome ? ColourOf(value) : nullptr});
        }
        if (m_page.size() == PageRows) EndPage();
    }

    /// Shows the rows that have come.
    void EndPage() {
        if (!m_page.empty()) {
            const std::string lines = TablePage(m_columns, m_page, Width(), m_options.HasColours, m_layout);
            m_page.clear();
            m_held += lines;
            if (m_isPaging && !m_pager &&
                std::count(m_held.begin(), m_held.end(), '\n') >= TerminalHeight()) {
                Drain();
                m_pager = std::make_unique<CPager>();
                if (!m_pager->Start()) m_pager.reset();
                m_isPaging = false;
            }
        }
        // Until it is known whether the list is a long one.
        if (m_isPaging && !m_pager) return;
        Write(std::exchange(m_held, {}));
        Settle();
    }

    /// Ends a list for people, if one is under way.
    void EndPages() {
        EndPage();
        Write(std::exchange(m_held, {}));
        m_columns.clear();
        m_sources.clear();
        m_layout = {};
        m_rows = 0;
    }

    /// On a terminal, in lines that end where it does; an id, which is of no use in two parts, by its beginning.
    std::string Fitted(std::string words, std::size_t indent) {
        constexpr std::size_t Least = 8;
        const std::size_t room =
            std::max<std::size_t>(Width() - std::min<std::size_t>(indent, Width()), Least);
        if (!m_isTerminal || ColumnsOf(words) <= room) return words;
        if (apigen::Guid::Parse(words)) return words.substr(0, Least);
        std::string lines;
        for (std::string_view rest = words; !rest.empty();) {
            const std::size_t length = LengthWithin(rest, room);
            if (!lines.empty()) lines.append("\n").append(indent, ' ');
            lines += rest.substr(0, length);
            rest.remove_prefix(length);
        }
        return lines;
    }

    std::string ItemLines(const COutput& output, const std::vector<SColumn>& columns, const Json& item) {
        std::size_t longest = 0;
        for (const SColumn& column : columns)
            longest = std::max(longest, ColumnsOf(column.Heading));
        std::string lines;
        for (const SColumn& column : columns) {
            const Json& value = ValueAt(item, column.Key);
            std::string start = std::string(column.Heading) + ": ";
            start.append(longest + 2 - ColumnsOf(start), ' ');
            std::string words = output.Cell(column, value);
            if (value.is_array() && ColumnsOf(start) + ColumnsOf(words) > Width()) {
                words.clear();
                for (const Json& element : value) {
                    if (!words.empty()) words.append("\n").append(longest + 2, ' ');
                    words += output.Cell(column, element);
                }
            }
            if (!value.is_array()) words = Fitted(std::move(words), longest + 2);
            if (m_options.HasColours && column.Kind == EKind::Outcome)
                words = Coloured(words, ColourOf(value));
            lines.append(start).append(words).append("\n");
        }
        return lines;
    }

    void Write(std::string_view text) {
        if (text.empty()) return;
        m_hasWritten = true;
        m_buffer += text;
        if (m_buffer.size() >= BufferSize) Drain();
    }

    /// A terminal gets things at once.
    void Settle() {
        if (m_isTerminal) Drain();
    }

    void Drain() {
        // What could not be written is not tried again.
        const std::string text = std::exchange(m_buffer, {});
        if (text.empty()) return;
        if (m_pager) {
            m_pager->Write(text);
        } else {
            WriteAll(STDOUT_FILENO, text);
        }
    }

    const SOutputOptions& m_options;
    bool m_isTerminal;
    bool m_isPaging;  ///< a list that becomes long gets a pager
    bool m_hasWritten = false;
    unsigned m_width = 0;
    std::size_t m_rows = 0;  ///< of the list so far
    std::vector<STableColumn> m_columns;
    std::vector<SColumn> m_sources;
    std::vector<std::vector<STableCell>> m_page;
    STableLayout m_layout;
    std::string m_held;  ///< pages of a list that may turn out to be long
    std::string m_buffer;
    std::unique_ptr<CPager> m_pager;
};

COutput::COutput(SOutputOptions options) : m_options(options), m_impl(std::make_unique<Impl>(m_options)) {}

COutput::~COutput() {
    try {
        m_impl->Flush();
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): who wants to know has called Flush
    }
}

void COutput::Row(const std::vector<SColumn>& columns, const Json& row) {
    m_impl->Row(*this, columns, row);
}

void COutput::EndRows(const std::vector<SColumn>& columns, std::string_view empty) {
    m_impl->EndRows(columns, empty);
}

void COutput::Item(const std::vector<SColumn>& columns, const Json& item) {
    m_impl->Item(*this, columns, item);
}

void COutput::Say(std::string_view line) {
    m_impl->Words(line, false);
}

void COutput::Heading(std::string_view line) {
    m_impl->Words(line, true);
}

void COutput::Note(std::string_view line) {
    if (!m_options.IsQuiet) m_impl->Tell(Escaped(line));
}

void COutput::Raw(std::string_view text) {
    m_impl->Raw(text);
}

void COutput::Flush() {
    m_impl->Flush();
}

std::string COutput::Cell(const SColumn& column, const Json& value) const {
    if (value.is_null()) return "-";
    const auto bytes = [&value] { return SizeWords(WholeOf(value)); };
    switch (column.Kind) {
        case EKind::Id:
            return IdWords(value, m_impl->Width() < WideForIds);
        case EKind::Bytes:
            return value.is_number() ? bytes() : PlainWords(value);
        case EKind::Rate:
            return !value.is_number() ? PlainWords(value) : WholeOf(value) < 0 ? "-" : bytes() + "/s";
        case EKind::Percent:
            return value.is_number() ? PlainWords(value) + " %" : PlainWords(value);
        case EKind::Time: {
            const auto time =
                value.is_string() ? TimeFrom(value.get_ref<const std::string&>()) : std::nullopt;
            return time ? TimeWords(*time, std::chrono::system_clock::now()) : PlainWords(value);
        }
        case EKind::Span:
            return SecondsWords(value);
        case EKind::Outcome:
            return value == "None" ? "-" : PlainWords(value);
        case EKind::Text:
        case EKind::Sentence:
        case EKind::Number:
        case EKind::Truth:
            break;
    }
    return PlainWords(value);
}

}  // namespace zamctl
