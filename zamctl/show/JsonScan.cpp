// SPDX-License-Identifier: Apache-2.0
#include "show/JsonScan.h"

#include <algorithm>
#include <set>

#include "show/Characters.h"
#include "show/Words.h"

namespace zamctl {
namespace {

/// Deeper than any record.
constexpr int MaximumDepth = 64;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

/// Reads a text to its first mistake, or to the place that is looked for.
class CScanner {
public:
    CScanner(std::string_view text, const std::string* target) : m_text(text), m_target(target) {}

    /// Whether the text is without a mistake.
    bool Run() {
        constexpr std::string_view Mark = "\xEF\xBB\xBF";
        if (m_text.substr(0, Mark.size()) == Mark) m_offset = Mark.size();
        SkipBlanks();
        if (IsAtEnd()) return Fail(m_offset, "there is nothing");
        if (!Value({}, 0)) return false;
        SkipBlanks();
        return IsAtEnd() || (IsComment() ? Fail(m_offset, Comments)
                                         : Fail(m_offset, "something follows the end of the value"));
    }

    SMistake Mistake;
    std::optional<std::size_t> Found;

private:
    static constexpr const char* Comments = "JSON has no comments";

    [[nodiscard]] bool IsAtEnd() const { return m_offset >= m_text.size(); }
    [[nodiscard]] char Next() const { return IsAtEnd() ? '\0' : m_text[m_offset]; }
    [[nodiscard]] bool IsComment() const { return Next() == '/' || Next() == '#'; }

    bool Fail(std::size_t offset, std::string why) {
        Mistake = {offset, std::move(why)};
        return false;
    }

    void SkipBlanks() {
        while (!IsAtEnd() && std::string_view(" \t\r\n").find(Next()) != std::string_view::npos)
            ++m_offset;
    }

    [[nodiscard]] std::size_t LineOf(std::size_t offset) const {
        return static_cast<std::size_t>(
                   std::count(m_text.begin(), m_text.begin() + static_cast<long>(offset), '\n')) +
               1;
    }

    [[nodiscard]] std::string NextQuoted() const {
        const std::size_t length = std::max<std::size_t>(FirstCharacter(m_text.substr(m_offset)).Length, 1);
        return Next() == '"' ? "a quotation mark" : Quoted(m_text.substr(m_offset, length));
    }

    bool FailUnclosed(std::size_t start) {
        return Fail(start, "the \"" + std::string(1, m_text[start]) + "\" of line " +
                               std::to_string(LineOf(start)) + " is never closed");
    }

    void Reached(const std::string& path, std::size_t offset) {
        if (m_target != nullptr && !Found && path == *m_target) Found = offset;
    }

    bool Value(const std::string& path, int depth) {
        if (depth > MaximumDepth) return Fail(m_offset, "this is nested too deeply");
        if (IsAtEnd()) return Fail(m_offset, "the text ends where a value should stand");
        switch (Next()) {
            case '{':
                return Object(path, depth);
            case '[':
                return List(path, depth);
            case '"':
                return Text(nullptr);
            case '\'':
                return Fail(m_offset, "texts stand in double quotes");
            case ',':
            case '}':
            case ']':
                return Fail(m_offset, "a value is missing here");
            default:
                break;
        }
        if (IsComment()) return Fail(m_offset, Comments);
        if (IsDigit(Next()) || Next() == '-' || Next() == '+' || Next() == '.') return Number();
        if (IsLetter(Next())) return Word();
        return Fail(m_offset, "a value can't begin with " + NextQuoted());
    }

    bool Word() {
        const std::size_t start = m_offset;
        while (IsLetter(Next()) || IsDigit(Next()))
            ++m_offset;
        const std::string_view word = m_text.substr(start, m_offset - start);
        const std::string lower = LowerCase(word);
        if (lower != "true" && lower != "false" && lower != "null") {
            // The word may be a password: it is not repeated.
            return Fail(start, "a word without quotes is true, false or null; texts stand in double quotes");
        }
        if (word != lower) return Fail(start, '"' + std::string(word) + "\" is written " + lower);
        return true;
    }

    bool Number() {
        const std::size_t start = m_offset;
        while (IsDigit(Next()) || IsLetter(Next()) || Next() == '+' || Next() == '-' || Next() == '.')
            ++m_offset;
        const std::string_view number = m_text.substr(start, m_offset - start);
        std::string_view rest = number;
        const auto take = [&rest](std::string_view oneOf) {
            const bool is = !rest.empty() && oneOf.find(rest.front()) != std::string_view::npos;
            if (is) rest.remove_prefix(1);
            return is;
        };
        const auto digits = [&rest] {
            const std::size_t count = std::min(rest.find_first_not_of("0123456789"), rest.size());
            rest.remove_prefix(count);
            return count;
        };
        const auto wrong = [&](const std::string& why) {
            return Fail(start, Quoted(CutTo(number, 30)) + " is no number" + why);
        };
        if (number.front() == '+') return wrong(": it has no \"+\" before it");
        take("-");
        const std::string_view whole = rest;
        const std::size_t before = digits();
        if (before == 0) return wrong(": a digit is missing");
        if (before > 1 && whole.front() == '0') return wrong(": it begins with a zero");
        if (take(".") && digits() == 0) return wrong(": digits are missing behind the point");
        if (take("eE")) {
            take("+-");
            if (digits() == 0) return wrong(": its exponent is missing");
        }
        return rest.empty() || wrong("");
    }

    bool HexDigits(unsigned& number) {
        number = 0;
        for (int i = 0; i < 4; ++i, ++m_offset) {
            const std::size_t digit =
                std::string_view("0123456789abcdef")
                    .find(LowerCase({&m_text[std::min(m_offset, m_text.size() - 1)], 1}));
            if (IsAtEnd() || digit == std::string_view::npos) return false;
            number = number * 16 + static_cast<unsigned>(digit);
        }
        return true;
    }

    bool Escape() {
        const std::size_t start = m_offset++;
        if (Next() != 'u') {
            if (!IsAtEnd() && std::string_view("\"\\/bfnrt").find(Next()) != std::string_view::npos) {
                ++m_offset;
                return true;
            }
            return Fail(start, IsAtEnd() ? "the text ends in an escape"
                                         : "a backslash and " + NextQuoted() +
                                               " are no escape; a backslash itself is written \"\\\\\"");
        }
        ++m_offset;
        unsigned code = 0;
        if (!HexDigits(code)) return Fail(start, "behind \"\\u\" stand four hexadecimal digits");
        if (code < 0xD800 || code > 0xDFFF) return true;
        unsigned second = 0;
        if (code > 0xDBFF || m_text.substr(m_offset, 2) != "\\u" || (m_offset += 2, !HexDigits(second)) ||
            second < 0xDC00 || second > 0xDFFF) {
            return Fail(start, "half of a pair of \"\\u\" escapes, without the other half");
        }
        return true;
    }

    /// \param content gets what stands between the quotes, escapes and all
    bool Text(std::string_view* content) {
        const std::size_t start = m_offset++;
        for (;;) {
            if (IsAtEnd() || Next() == '\n') return Fail(start, "this text is not closed on its line");
            if (Next() == '"') break;
            if (Next() == '\\') {
                if (!Escape()) return false;
                continue;
            }
            if (static_cast<unsigned char>(Next()) < 0x20) {
                return Fail(m_offset,
                            "a control character in a text is written as an escape, \"\\t\" for instance");
            }
            const std::size_t length = FirstCharacter(m_text.substr(m_offset)).Length;
            if (length == 0) return Fail(m_offset, "a byte that is no UTF-8: " + NextQuoted());
            m_offset += length;
        }
        if (content != nullptr) *content = m_text.substr(start + 1, m_offset - start - 1);
        ++m_offset;
        return true;
    }

    /// What stands behind a value in an object or a list: whether another one follows.
    bool Separator(std::size_t start, char close, bool& isLast) {
        SkipBlanks();
        if (IsAtEnd()) return FailUnclosed(start);
        isLast = Next() == close;
        if (isLast) {
            ++m_offset;
            return true;
        }
        if (IsComment()) return Fail(m_offset, Comments);
        if (Next() != ',') {
            if (Next() == '"' || Next() == '{' || Next() == '[') {
                return Fail(m_offset, "a comma is missing before this");
            }
            return Fail(m_offset, std::string("expected \",\" or \"") + close + "\", not " + NextQuoted());
        }
        const std::size_t comma = m_offset++;
        SkipBlanks();
        if (IsAtEnd()) return FailUnclosed(start);
        return Next() != close || Fail(comma, "nothing follows this comma");
    }

    bool Object(const std::string& path, int depth) {
        const std::size_t start = m_offset++;
        std::set<std::string_view> keys;
        SkipBlanks();
        bool isLast = Next() == '}';
        if (isLast) ++m_offset;
        while (!isLast) {
            SkipBlanks();
            if (IsAtEnd()) return FailUnclosed(start);
            if (IsComment()) return Fail(m_offset, Comments);
            if (Next() != '"') return Fail(m_offset, "expected a field's name in double quotes");
            const std::size_t keyStart = m_offset;
            std::string_view key;
            if (!Text(&key)) return false;
            const std::string fieldPath = FieldPath(path, key);
            Reached(fieldPath, keyStart);
            if (!keys.insert(key).second) return Fail(keyStart, Quoted(CutTo(key, 60)) + " is there already");
            SkipBlanks();
            if (Next() != ':') return Fail(m_offset, "expected \":\" behind " + Quoted(CutTo(key, 60)));
            ++m_offset;
            SkipBlanks();
            if (!Value(fieldPath, depth + 1) || !Separator(start, '}', isLast)) return false;
        }
        return true;
    }

    bool List(const std::string& path, int depth) {
        const std::size_t start = m_offset++;
        SkipBlanks();
        bool isLast = Next() == ']';
        if (isLast) ++m_offset;
        for (std::size_t i = 0; !isLast; ++i) {
            SkipBlanks();
            if (IsAtEnd()) return FailUnclosed(start);
            const std::string elementPath = ElementPath(path, i);
            Reached(elementPath, m_offset);
            if (!Value(elementPath, depth + 1) || !Separator(start, ']', isLast)) return false;
        }
        return true;
    }

    std::string_view m_text;
    std::size_t m_offset = 0;
    const std::string* m_target;
};

}  // namespace

std::optional<SMistake> MistakeOf(std::string_view text) {
    CScanner scanner(text, nullptr);
    if (scanner.Run()) return std::nullopt;
    return std::move(scanner.Mistake);
}

std::optional<std::size_t> OffsetOf(std::string_view text, std::string_view path) {
    const std::string target(path);
    CScanner scanner(text, &target);
    static_cast<void>(scanner.Run());
    return scanner.Found;
}

std::string FieldPath(const std::string& path, std::string_view key) {
    return path.empty() ? Escaped(key) : path + '.' + Escaped(key);
}

std::string ElementPath(const std::string& path, std::size_t index) {
    return path + '[' + std::to_string(index) + ']';
}

}  // namespace zamctl
