// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CTextReader.h"

#include "support/apigen/Document.h"
#include "support/apigen/XmlChars.h"

namespace apigen {
namespace {

bool IsStartTag(const char* at, const char* end, std::string_view key) {
    return end - at >= static_cast<std::ptrdiff_t>(key.size() + 2) && at[0] == '<' &&
           at[key.size() + 1] == '>' && IsSameKey(at + 1, key.data(), key.size());
}

bool IsEndTag(const char* at, const char* end, std::string_view key) {
    return end - at >= static_cast<std::ptrdiff_t>(key.size() + 3) && at[0] == '<' && at[1] == '/' &&
           at[key.size() + 2] == '>' && IsSameKey(at + 2, key.data(), key.size());
}

/// Behind the text that stands for itself: in front of what a parser has to decode, to obey or to refuse.
const char* SkipText(const char* at, const char* end) {
    while ((at = xml::SkipPlain(at, end)) != end && xml::Classify(*at) == xml::EChar::Multibyte) {
        const unsigned bytes = xml::XmlCharBytes(at, end);
        if (bytes == 0) break;
        at += bytes;
    }
    return at;
}

}  // namespace

bool CTextCursor::IsAtStart(std::string_view key) const {
    return IsStartTag(m_at, m_end, key);
}

void CTextCursor::Open(std::string_view key) {
    if (!IsStartTag(m_at, m_end, key)) return GiveUp();
    m_at += key.size() + 2;
}

void CTextCursor::Close(std::string_view key) {
    if (!IsEndTag(m_at, m_end, key)) return GiveUp();
    m_at += key.size() + 3;
}

std::string_view CTextCursor::Text(std::string_view key) {
    if (IsStartTag(m_at, m_end, key)) {
        const char* const from = m_at + key.size() + 2;
        const char* const to = SkipText(from, m_end);
        if (IsEndTag(to, m_end, key)) {
            m_at = to + key.size() + 3;
            return {from, static_cast<std::size_t>(to - from)};
        }
    }
    GiveUp();
    return {};
}

}  // namespace apigen
