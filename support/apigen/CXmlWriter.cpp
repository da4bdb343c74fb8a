// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CXmlWriter.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "support/apigen/Base64.h"
#include "support/apigen/LargeMemory.h"
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

CXmlWriter::CXmlWriter(CXmlWriter&& other) noexcept
    : m_buffer(std::move(other.m_buffer)),
      m_size(std::exchange(other.m_size, 0)),
      m_capacity(std::exchange(other.m_capacity, 0)) {}

CXmlWriter& CXmlWriter::operator=(CXmlWriter&& other) noexcept {
    m_buffer = std::move(other.m_buffer);
    m_size = std::exchange(other.m_size, 0);
    m_capacity = std::exchange(other.m_capacity, 0);
    return *this;
}

void CXmlWriter::Entry(std::string_view key, std::string_view text) {
    const char* const end = text.data() + text.size();
    if (xml::SkipPlain(text.data(), end) == end) {
        char* at = Room(2 * key.size() + text.size() + 5);
        *at++ = '<';
        at = std::copy(key.begin(), key.end(), at);
        *at++ = '>';
        at = std::copy(text.begin(), text.end(), at);
        EndTag(at, key);
        m_size += 2 * key.size() + text.size() + 5;
        return;
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
    EndTag(Room(key.size() + 3), key);
    m_size += key.size() + 3;
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

void CXmlWriter::Grow(std::size_t count) {
    constexpr std::size_t Least = 256;
    constexpr std::size_t Large = 1U << 20;
    // Small blocks double. Large ones grow by less, so as not to hold much that is never used: the allocator
    // extends them in place, or moves pages instead of bytes.
    const std::size_t more = m_capacity < Large ? m_capacity : m_capacity / 8;
    const std::size_t capacity = std::max({Least, m_size + count, m_capacity + more});
    void* const grown = std::realloc(m_buffer.get(), capacity);
    if (grown == nullptr) throw std::bad_alloc();
    (void)m_buffer.release();
    m_buffer.reset(static_cast<char*>(grown));
    m_capacity = capacity;
}

}  // namespace apigen
