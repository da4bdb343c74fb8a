// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CXmlWriter.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "support/apigen/Base64.h"
#include "support/apigen/XmlChars.h"

namespace apigen {
namespace {

/// True when every character is one that XML can carry.
bool IsXmlText(std::string_view text) {
    const char* at = text.data();
    const char* const end = at + text.size();
    while ((at = xml::SkipPlain(at, end)) != end) {
        const unsigned bytes = xml::XmlCharBytes(at, end);
        if (bytes == 0) return false;
        at += bytes;
    }
    return true;
}

/// What stands in a text for a character that means something to a parser.
std::string_view Escape(char c) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        default:
            return "&#13;";
    }
}

}  // namespace

inline void CXmlWriter::StartTag(std::string_view key) {
    char* const at = m_text.Room(key.size() + 2);
    at[0] = '<';
    std::memcpy(at + 1, key.data(), key.size());
    at[key.size() + 1] = '>';
    m_text.SetSize(m_text.Size() + key.size() + 2);
}

inline void CXmlWriter::EndTag(std::string_view key) {
    char* const at = m_text.Room(key.size() + 3);
    at[0] = '<';
    at[1] = '/';
    std::memcpy(at + 2, key.data(), key.size());
    at[key.size() + 2] = '>';
    m_text.SetSize(m_text.Size() + key.size() + 3);
}

inline void CXmlWriter::Append(std::string_view bytes) {
    std::memcpy(m_text.Room(bytes.size()), bytes.data(), bytes.size());
    m_text.SetSize(m_text.Size() + bytes.size());
}

std::size_t CXmlWriter::Open(std::string_view key) {
    StartTag(key);
    return m_text.Size();
}

void CXmlWriter::Close(std::string_view key, std::size_t opened) {
    if (m_text.Size() != opened) return EndTag(key);
    m_text[opened - 1] = '/';
    m_text.Append('>');
}

void CXmlWriter::Entry(std::string_view key, std::string_view text) {
    const char* const end = text.data() + text.size();
    if (xml::SkipPlain(text.data(), end) == end) {
        m_text.Room(2 * key.size() + text.size() + 5);
        StartTag(key);
        Append(text);
        return EndTag(key);
    }
    Append("<");
    Append(key);
    if (IsXmlText(text)) {
        Append(">");
        AppendEscaped(text);
    } else {
        Append(" encoding=\"base64\">");
        std::string encoded;
        base64::Append(encoded, text);
        Append(encoded);
    }
    EndTag(key);
}

void CXmlWriter::AppendEscaped(std::string_view text) {
    while (!text.empty()) {
        const auto isSpecial = [](char c) { return xml::Classify(c) == xml::EChar::Special; };
        const auto special = std::find_if(text.begin(), text.end(), isSpecial);
        const auto plain = static_cast<std::size_t>(special - text.begin());
        Append(text.substr(0, plain));
        if (special == text.end()) break;
        Append(Escape(*special));
        text.remove_prefix(plain + 1);
    }
}

}  // namespace apigen
