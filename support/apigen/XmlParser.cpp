// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/XmlParser.h"

#include <apigen/ApiException.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>

#include "support/apigen/Base64.h"
#include "support/apigen/LargeMemory.h"
#include "support/apigen/PlainText.h"
#include "support/apigen/XmlChars.h"
#include "support/apigen/XmlText.h"
#include "support/common/Text.h"

namespace apigen {
namespace {

struct SRange {
    std::uint32_t First;
    std::uint32_t Last;
};

// Productions [4] NameStartChar and [4a] NameChar beyond ASCII.
constexpr SRange NameStartRanges[] = {{0xC0, 0xD6},     {0xD8, 0xF6},     {0xF8, 0x2FF},
                                      {0x370, 0x37D},   {0x37F, 0x1FFF},  {0x200C, 0x200D},
                                      {0x2070, 0x218F}, {0x2C00, 0x2FEF}, {0x3001, 0xD7FF},
                                      {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF}};
constexpr SRange NameMoreRanges[] = {{0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}};

template <std::size_t Size>
bool IsIn(const SRange (&ranges)[Size], std::uint32_t c) {
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [c](const SRange& range) { return c >= range.First && c <= range.Last; });
}

bool IsNameStart(std::uint32_t c) {
    if (c >= 0x80) return IsIn(NameStartRanges, c);
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':';
}

bool IsNameChar(std::uint32_t c) {
    if (IsNameStart(c)) return true;
    if (c >= 0x80) return IsIn(NameMoreRanges, c);
    return (c >= '0' && c <= '9') || c == '-' || c == '.';
}

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

/// Skips white space; says whether there was any.
bool SkipSpace(const char*& at, const char* end) {
    const char* const from = at;
    while (at != end && IsSpace(*at)) {
        ++at;
    }
    return at != from;
}

bool EqualsIgnoringCase(std::string_view left, std::string_view lowerCase) {
    return left.size() == lowerCase.size() &&
           std::equal(left.begin(), left.end(), lowerCase.begin(),
                      [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; });
}

void AppendUtf8(std::string& output, std::uint32_t c) {
    const auto add = [&](std::uint32_t byte) { output += static_cast<char>(byte); };
    if (c < 0x80) {
        add(c);
    } else if (c < 0x800) {
        add(0xC0 | c >> 6);
        add(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        add(0xE0 | c >> 12);
        add(0x80 | (c >> 6 & 0x3F));
        add(0x80 | (c & 0x3F));
    } else {
        add(0xF0 | c >> 18);
        add(0x80 | (c >> 12 & 0x3F));
        add(0x80 | (c >> 6 & 0x3F));
        add(0x80 | (c & 0x3F));
    }
}

/// The character that `&name;` stands for; 0 for an unknown name.
char NamedEntity(std::string_view name) {
    if (name == "lt") return '<';
    if (name == "gt") return '>';
    if (name == "amp") return '&';
    if (name == "quot") return '"';
    if (name == "apos") return '\'';
    return 0;
}

/// The code point of a character reference's body, "#13" or "#xD"; 0 when it names none.
std::uint32_t NumericEntity(std::string_view body) {
    const bool isHex = body.size() > 1 && body[1] == 'x';
    const std::string_view digits = body.substr(isHex ? 2 : 1);
    std::uint32_t value = 0;
    for (const char c : digits) {
        std::uint32_t digit = 0;
        if (c >= '0' && c <= '9') {
            digit = static_cast<std::uint32_t>(c - '0');
        } else if (isHex && c >= 'a' && c <= 'f') {
            digit = static_cast<std::uint32_t>(c - 'a' + 10);
        } else if (isHex && c >= 'A' && c <= 'F') {
            digit = static_cast<std::uint32_t>(c - 'A' + 10);
        } else {
            return 0;
        }
        value = value * (isHex ? 16 : 10) + digit;
        if (value > 0x10FFFF) return 0;
    }
    return xml::IsXmlChar(value) ? value : 0;
}

}  // namespace

void CXmlParser::Fail(const std::string& reason, std::size_t offset) const {
    throw BrokenMessageError("Malformed document: " + reason + " at offset " + std::to_string(offset));
}

void CXmlParser::Adopt(std::string text) {
    m_document.m_text.reset();
    // About what records need; memory that stays untouched costs nothing.
    constexpr std::size_t BytesPerElement = 20;
    auto& nodes = m_document.m_nodes;
    nodes.Reserve(text.size() / BytesPerElement + 1);
    PrepareLargeBlock(nodes.Data(), text.size() / BytesPerElement * sizeof nodes[0]);
    m_document.m_bytes = std::move(text);
    if (Size() > std::numeric_limits<std::uint32_t>::max()) Fail("more than 4 GiB of text", Size());
    constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
    if (StartsWith(ByteOrderMark)) m_at = m_start = ByteOrderMark.size();
    Items();
    if (m_depth != 0) FailAtEnd();
    if (!m_hasRoot) Fail("no root element", Size());
    m_document.m_tidyAbove += 2 * m_document.HeldBytes();
}

void CXmlParser::ParseBelow(NodeId node, std::string_view elements) {
    m_at = m_document.AppendBytes(elements);
    m_hasRoot = true;
    m_depth = 1;
    m_current = node;
    Items();
}

void CXmlParser::Items() {
    while (PlainElements(), m_at != Size()) {
        if (Base()[m_at] == '<') {
            Markup();
        } else if (m_depth == 0) {
            Blank();
        } else {
            TextRun();
        }
    }
}

/// Takes what nearly everything is, as far as it goes: elements without attributes that hold plain text, start
/// tags whose first child follows at once, and the end tags of those.
void CXmlParser::PlainElements() {
    auto& nodes = m_document.m_nodes;
    const char* at = Base() + m_at;
    const char* const end = Base() + Size();
    if (Size() > CDocument::MaxKeyBytes) return;  // no message is that long
    // Single characters may be looked at without asking for the end: there is a NUL, which fits nowhere.
    while (m_depth != 0 && *at == '<') {
        if (at[1] == '/') {
            const std::string_view key = m_document.Key(m_current);
            if (!m_document.HasChildren(m_current) || !plain::IsEndTag(at, end, key)) break;
            at += plain::EndTagBytes(key);
            m_current = nodes[m_current].Parent;
            --m_depth;
            continue;
        }
        const std::string_view key = plain::StartTagKey(at, end);
        if (key.empty() || m_depth == MaxXmlDepth) break;
        const char* const text = at + plain::StartTagBytes(key);
        const char* const textEnd = xml::SkipPlain(text, end);
        const bool isLeaf = plain::IsEndTag(textEnd, end, key);
        if (!isLeaf && (textEnd != text || *text != '<' || !xml::IsKeyStart(text[1]))) break;

        const NodeId node = m_document.Link(m_current, static_cast<std::uint32_t>(Offset(key.data())),
                                            static_cast<std::uint32_t>(key.size()));
        if (isLeaf) {
            m_document.PutText(node, Offset(text), static_cast<std::size_t>(textEnd - text));
            at = textEnd + plain::EndTagBytes(key);
        } else {
            m_current = node;
            ++m_depth;
            at = text;
        }
    }
    m_at = Offset(at);
}

void CXmlParser::Markup() {
    const std::string_view rest = Rest();
    if (rest.size() < 2) FailAtEnd();
    if (rest[1] == '/') return EndTag();
    if (rest[1] == '?') return Instruction();
    if (rest[1] != '!') return StartTag();
    if (StartsWith("<!--")) return Comment();
    if (StartsWith("<![CDATA[")) return CData();
    if (StartsWith("<!DOCTYPE")) Fail("a document type declaration is not accepted", m_at);
    if (std::string_view("<!--").substr(0, rest.size()) == rest) FailAtEnd();
    if (std::string_view("<![CDATA[").substr(0, rest.size()) == rest) FailAtEnd();
    if (std::string_view("<!DOCTYPE").substr(0, rest.size()) == rest) FailAtEnd();
    Fail("unknown markup", m_at);
}

/// Only white space may stand outside the root element.
void CXmlParser::Blank() {
    SCursor cursor = Cursor(0);
    SkipSpace(cursor.At, cursor.End);
    if (cursor.At != cursor.End && *cursor.At != '<') Fail("text outside the root element", cursor.At);
    m_at = Offset(cursor.At);
}

void CXmlParser::TextRun() {
    const char* const from = Base() + m_at;
    const char* const end = Base() + Size();
    const char* at = from;
    bool isPlain = true;
    while (true) {
        at = xml::SkipPlain(at, end);
        if (at == end) break;
        const char c = *at;
        if (c == '<') break;
        if (c == '&' || c == '\r') {
            isPlain = false;
            ++at;
        } else if (c == '>') {
            if (at - from >= 2 && at[-1] == ']' && at[-2] == ']') Fail("\"]]>\" in a text", at);
            ++at;
        } else {
            const unsigned bytes = xml::XmlCharBytes(at, end);
            if (bytes == 0) Fail("a byte that no document may hold", at);
            at += bytes;
        }
    }
    if (at == end) FailAtEnd();
    StoreText(m_at, Offset(at), isPlain);
    m_at = Offset(at);
}

void CXmlParser::StoreText(std::size_t from, std::size_t end, bool isPlain) {
    auto& node = m_document.m_nodes[m_current];
    char* const base = m_document.m_bytes.data();
    const bool isKept = node.Children == 0;
    if (isKept && node.TextLength == 0 && isPlain) {
        node.TextOffset = static_cast<std::uint32_t>(from);
        node.TextLength = static_cast<std::uint32_t>(end - from);
        return;
    }
    if (isKept && node.TextLength == 0) node.TextOffset = static_cast<std::uint32_t>(from);
    char* const target = isKept ? base + node.TextOffset + node.TextLength : base + from;
    std::size_t length = end - from;
    if (!isPlain) {
        length = Decode(base + from, base + end, target);
    } else if (isKept) {
        std::memmove(target, base + from, length);
    }
    if (isKept) node.TextLength += static_cast<std::uint32_t>(length);
}

std::size_t CXmlParser::Decode(const char* from, const char* end, char* target) const {
    char* const start = target;
    std::string expanded;
    while (from != end) {
        if (*from == '&') {
            expanded.clear();
            from = Reference(from, end, expanded);
            // Never longer than the reference, so what is still to be read stays untouched.
            target = std::copy(expanded.begin(), expanded.end(), target);
        } else if (*from == '\r') {
            *target++ = '\n';
            ++from;
            if (from != end && *from == '\n') ++from;
        } else {
            const char* const stop = xml::SkipPlain(from + 1, end);
            std::memmove(target, from, static_cast<std::size_t>(stop - from));
            target += stop - from;
            from = stop;
        }
    }
    return static_cast<std::size_t>(target - start);
}

const char* CXmlParser::Reference(const char* from, const char* end, std::string& output) const {
    const char* const stop = std::find(from, end, ';');
    if (stop == end) Fail("an \"&\" that begins no reference", from);
    const std::string_view body(from + 1, static_cast<std::size_t>(stop - from - 1));
    if (body.size() > 1 && body.front() == '#') {
        const std::uint32_t c = NumericEntity(body);
        if (c == 0) Fail("a reference to no character", from);
        AppendUtf8(output, c);
    } else {
        const char c = NamedEntity(body);
        if (c == 0) Fail("an unknown entity", from);
        output += c;
    }
    return stop + 1;
}

std::string_view CXmlParser::Name(SCursor& cursor) const {
    const char* const from = cursor.At;
    if (from != cursor.End && xml::IsKeyStart(*from)) cursor.At = xml::SkipKeyChars(from, cursor.End);
    while (true) {
        if (cursor.At == cursor.End) FailAtEnd();
        const xml::SCodePoint point = xml::DecodeUtf8(cursor.At, cursor.End);
        if (point.Bytes == 0 || !(cursor.At == from ? IsNameStart(point.Value) : IsNameChar(point.Value)))
            break;
        cursor.At += point.Bytes;
    }
    if (cursor.At == from) Fail("a name was expected", from);
    return {from, static_cast<std::size_t>(cursor.At - from)};
}

std::string_view CXmlParser::Attribute(SCursor& cursor, std::string& value) const {
    const std::string_view name = Name(cursor);
    SkipSpace(cursor.At, cursor.End);
    if (cursor.At == cursor.End) FailAtEnd();
    if (*cursor.At != '=') Fail("an attribute without a value", cursor.At);
    ++cursor.At;
    SkipSpace(cursor.At, cursor.End);
    if (cursor.At == cursor.End) FailAtEnd();
    const char quote = *cursor.At;
    if (quote != '"' && quote != '\'') Fail("an attribute value without quotes", cursor.At);
    ++cursor.At;
    const char* const from = cursor.At;
    cursor.At = std::find(from, cursor.End, quote);
    if (cursor.At == cursor.End) FailAtEnd();
    CheckChars(from, cursor.At);
    value.clear();
    for (const char* at = from; at != cursor.At;) {
        if (*at == '<') Fail("a \"<\" in an attribute value", at);
        if (*at == '&') {
            at = Reference(at, cursor.At, value);
        } else {
            value += IsSpace(*at) ? ' ' : *at;
            ++at;
        }
    }
    ++cursor.At;
    return name;
}

void CXmlParser::CheckChars(const char* from, const char* end) const {
    const char* const stop = xml::SkipXmlChars(from, end);
    if (stop != end) Fail("a byte that no document may hold", stop);
}

/// \return whether they say that the text is in base64
bool CXmlParser::Attributes(SCursor& cursor) const {
    bool isBase64 = false;
    std::vector<std::string_view> names;
    std::string value;
    while (true) {
        const bool hasSpace = SkipSpace(cursor.At, cursor.End);
        if (cursor.At == cursor.End) FailAtEnd();
        if (*cursor.At == '>' || *cursor.At == '/') break;
        if (!hasSpace) Fail("white space was expected", cursor.At);
        const char* const from = cursor.At;
        names.push_back(Attribute(cursor, value));
        if (names.back() == plain::EncodingName) {
            if (value != plain::Base64Name) Fail("an encoding other than base64", from);
            isBase64 = true;
        }
    }
    std::sort(names.begin(), names.end());
    const auto twin = std::adjacent_find(names.begin(), names.end());
    if (twin != names.end()) Fail("an attribute given twice", std::max(twin->data(), (twin + 1)->data()));
    return isBase64;
}

void CXmlParser::StartTag() {
    if (m_depth == 0 && m_hasRoot) Fail("a second root element", m_at);
    SCursor cursor = Cursor(1);
    const std::string_view name = Name(cursor);
    const bool isBase64 = *cursor.At != '>' && Attributes(cursor);
    const bool isEmpty = *cursor.At == '/';
    if (isEmpty && ++cursor.At == cursor.End) FailAtEnd();
    if (*cursor.At != '>') Fail("\">\" was expected", cursor.At);
    ++cursor.At;

    const NodeId node = Open(name);
    m_base64 = isBase64 ? node : CDocument::None;
    m_at = Offset(cursor.At);
    if (isEmpty) Close(false);
}

NodeId CXmlParser::Open(std::string_view name) {
    if (++m_depth > MaxXmlDepth) {
        Fail("elements nested deeper than " + std::to_string(MaxXmlDepth) + " levels", m_at);
    }
    if (name.size() > CDocument::MaxKeyBytes) Fail("an element whose name is too long", m_at);
    const auto offset = static_cast<std::uint32_t>(Offset(name.data()));
    const auto length = static_cast<std::uint32_t>(name.size());
    if (!m_hasRoot) {
        m_hasRoot = true;
        auto& root = m_document.m_nodes[CDocument::Root];
        root.KeyOffset = offset;
        root.Traits |= length;
        m_current = CDocument::Root;
    } else {
        if (!IsKey(name)) Fail("an element whose name can't be a key", m_at);
        m_current = m_document.Link(m_current, offset, length);
    }
    return m_current;
}

void CXmlParser::Close(bool isText) {
    auto& node = m_document.m_nodes[m_current];
    if (node.Children == 0) {
        if (isText) node.Traits |= CDocument::SNode::Text;
        if (m_base64 == m_current) {
            char* const text = m_document.m_bytes.data() + node.TextOffset;
            const auto length = base64::Decode({text, node.TextLength}, text);
            if (!length) Fail("an invalid base64 text", node.TextOffset);
            node.TextLength = static_cast<std::uint32_t>(*length);
            node.Traits |= CDocument::SNode::Text;
        }
    }
    m_base64 = CDocument::None;
    m_current = node.Parent;
    --m_depth;
}

void CXmlParser::EndTag() {
    const std::string_view rest = Rest();
    if (m_depth == 0) Fail("an end tag without its start tag", m_at);
    const std::string_view name = m_document.Key(m_current);
    const std::string_view came = rest.substr(2, name.size() + 1);
    const std::string_view cameName = came.substr(0, name.size());
    if (cameName != name.substr(0, cameName.size()) ||
        (came.size() > name.size() && came.back() != '>' && !IsSpace(came.back()))) {
        Fail("an end tag that does not match <" + common::Escaped(name.substr(0, 64)) + ">", m_at);
    }
    if (came.size() <= name.size()) FailAtEnd();
    const char* at = rest.data() + 2 + name.size();
    const char* const end = rest.data() + rest.size();
    SkipSpace(at, end);
    if (at == end) FailAtEnd();
    if (*at != '>') Fail("\">\" was expected", at);
    m_at = Offset(at + 1);
    Close(true);
}

void CXmlParser::Comment() {
    constexpr std::string_view Start = "<!--";
    const std::string_view rest = Rest();
    const std::size_t dashes = rest.find("--", Start.size());
    if (dashes == std::string_view::npos || dashes + 2 >= rest.size()) FailAtEnd();
    if (rest[dashes + 2] != '>') Fail("\"--\" in a comment", m_at + dashes);
    CheckChars(rest.data() + Start.size(), rest.data() + dashes);
    m_at += dashes + 3;
}

void CXmlParser::CData() {
    constexpr std::string_view Start = "<![CDATA[";
    if (m_depth == 0) Fail("a CDATA section outside the root element", m_at);
    const std::string_view rest = Rest();
    const std::size_t stop = rest.find("]]>", Start.size());
    if (stop == std::string_view::npos) FailAtEnd();
    char* const base = m_document.m_bytes.data();
    const std::size_t from = m_at + Start.size();
    std::size_t end = m_at + stop;
    CheckChars(base + from, base + end);
    // Line ends first, by themselves: no reference is to be read in here.
    const auto isCr = [](char c) { return c == '\r'; };
    if (std::any_of(base + from, base + end, isCr)) {
        char* target = base + from;
        for (std::size_t i = from; i < end; ++i) {
            if (isCr(base[i]) && i + 1 < end && base[i + 1] == '\n') continue;
            *target++ = isCr(base[i]) ? '\n' : base[i];
        }
        end = Offset(target);
    }
    m_at += stop + 3;
    StoreText(from, end, true);
}

void CXmlParser::Instruction() {
    SCursor cursor = Cursor(2);
    const std::string_view target = Name(cursor);
    if (EqualsIgnoringCase(target, "xml")) {
        if (target == "xml" && m_at == m_start && IsSpace(*cursor.At)) return Declaration();
        Fail("an XML declaration that is not at the start", m_at);
    }
    const std::string_view rest(cursor.At, static_cast<std::size_t>(cursor.End - cursor.At));
    const std::size_t stop = rest.find("?>");
    if (stop == std::string_view::npos) FailAtEnd();
    if (stop != 0 && !IsSpace(rest.front())) Fail("white space was expected", cursor.At);
    CheckChars(cursor.At, cursor.At + stop);
    m_at = Offset(cursor.At + stop + 2);
}

void CXmlParser::Declaration() {
    SCursor cursor = Cursor(std::size("<?xml") - 1);
    const auto isVersion = [](const std::string& value) {
        return value.size() > 2 && value.compare(0, 2, "1.") == 0 &&
               value.find_first_not_of("0123456789", 2) == std::string::npos;
    };
    std::size_t parts = 0;
    std::string value;
    while (true) {
        const bool hasSpace = SkipSpace(cursor.At, cursor.End);
        if (cursor.End - cursor.At < 2) FailAtEnd();
        if (*cursor.At == '?') break;
        const char* const from = cursor.At;
        if (!hasSpace) Fail("white space was expected", from);
        const std::string_view name = Attribute(cursor, value);
        if (std::find(from, cursor.At, '&') != cursor.At) Fail("a reference in the XML declaration", from);
        if (name == "version" && parts == 0) {
            if (!isVersion(value)) Fail("an XML version other than 1.0", from);
            parts = 1;
        } else if (name == "encoding" && parts == 1) {
            for (char& c : value) {
                if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
            }
            if (value != "utf-8" && value != "us-ascii") Fail("a character set other than UTF-8", from);
            parts = 2;
        } else if (name == "standalone" && (parts == 1 || parts == 2)) {
            if (value != "yes" && value != "no") Fail("an invalid XML declaration", from);
            parts = 3;
        } else {
            Fail("an invalid XML declaration", from);
        }
    }
    if (parts == 0 || cursor.At[1] != '>') Fail("an invalid XML declaration", m_at);
    m_at = Offset(cursor.At + 2);
}

}  // namespace apigen
