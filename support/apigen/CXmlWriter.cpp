// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CXmlWriter.h"

#include <algorithm>
#include <cstdint>
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

constexpr std::size_t StartTagBytes = 2;  // besides the key
constexpr std::size_t EndTagBytes = 3;

/// Keys are short: a call of the library's function would cost more than the copy.
char* PutKey(char* at, std::string_view key) {
    const auto put = [&](auto word, std::size_t place) {
        std::memcpy(&word, key.data() + place, sizeof word);
        std::memcpy(at + place, &word, sizeof word);
    };
    // The last word may overlap the one before.
    if (key.size() >= 8) {
        for (std::size_t place = 0; place + 8 < key.size(); place += 8) {
            put(std::uint64_t(), place);
        }
        put(std::uint64_t(), key.size() - 8);
    } else if (key.size() >= 4) {
        put(std::uint32_t(), 0);
        put(std::uint32_t(), key.size() - 4);
    } else {
        for (std::size_t place = 0; place < key.size(); ++place) {
            at[place] = key[place];
        }
    }
    return at + key.size();
}

char* PutStartTag(char* at, std::string_view key) {
    *at++ = '<';
    at = PutKey(at, key);
    *at++ = '>';
    return at;
}

void PutEndTag(char* at, std::string_view key) {
    *at++ = '<';
    *at++ = '/';
    *PutKey(at, key) = '>';
}

}  // namespace

void CXmlWriter::Append(std::string_view bytes) {
    std::memcpy(m_text.Room(bytes.size()), bytes.data(), bytes.size());
    m_text.SetSize(m_text.Size() + bytes.size());
}

void CXmlWriter::EndTag(std::string_view key) {
    PutEndTag(m_text.Room(key.size() + EndTagBytes), key);
    m_text.SetSize(m_text.Size() + key.size() + EndTagBytes);
}

std::size_t CXmlWriter::Open(std::string_view key) {
    PutStartTag(m_text.Room(key.size() + StartTagBytes), key);
    m_text.SetSize(m_text.Size() + key.size() + StartTagBytes);
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
        const std::size_t bytes = 2 * key.size() + StartTagBytes + text.size() + EndTagBytes;
        char* at = PutStartTag(m_text.Room(bytes), key);
        std::memcpy(at, text.data(), text.size());
        PutEndTag(at + text.size(), key);
        return m_text.SetSize(m_text.Size() + bytes);
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
        Append(xml::Escape(*special));
        text.remove_prefix(plain + 1);
    }
}

}  // namespace apigen
