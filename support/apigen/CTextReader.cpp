// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CTextReader.h"

#include "support/apigen/PlainText.h"
#include "support/apigen/XmlChars.h"

namespace apigen {
namespace {

/// Behind the text that stands for itself: in front of what a parser has to decode, to obey or to refuse.
[[gnu::noinline]] const char* SkipText(const char* at, const char* end) {
    while ((at = xml::SkipPlain(at, end)) != end && xml::Classify(*at) == xml::EChar::Multibyte) {
        const unsigned bytes = xml::XmlCharBytes(at, end);
        if (bytes == 0) break;
        at += bytes;
    }
    return at;
}

}  // namespace

bool CTextCursor::IsAtStart(std::string_view key) const {
    return plain::IsStartTag(m_at, m_end, key);
}

bool CTextCursor::Open(std::string_view key) {
    const bool isStart = plain::IsStartTag(m_at, m_end, key);
    if (isStart) {
        m_at += plain::StartTagBytes(key);
    } else if (plain::IsEmptyTag(m_at, m_end, key)) {
        m_at += plain::EmptyTagBytes(key);
    } else {
        GiveUp();
    }
    return isStart;
}

void CTextCursor::Close(std::string_view key) {
    if (!plain::IsEndTag(m_at, m_end, key)) return GiveUp();
    m_at += plain::EndTagBytes(key);
}

std::string_view CTextCursor::Text(std::string_view key) {
    if (plain::IsStartTag(m_at, m_end, key)) {
        const char* const from = m_at + plain::StartTagBytes(key);
        const char* to = xml::SkipPlain(from, m_end);
        const bool isPlain = to != m_end && *to == '<';
        if (!isPlain) to = SkipText(to, m_end);
        std::string_view text(from, static_cast<std::size_t>(to - from));
        if (!isPlain && to != m_end && *to == '&') {
            to = Unescape(from, to);
            text = m_unescaped;
        }
        if (plain::IsEndTag(to, m_end, key)) {
            m_at = to + plain::EndTagBytes(key);
            return text;
        }
    }
    GiveUp();
    return {};
}

/// Puts together the text that begins at `from` and has its first escape at `at`. Returns where it ends, or
/// what is not known begins.
const char* CTextCursor::Unescape(const char* from, const char* at) {
    m_unescaped.assign(from, at);
    for (;;) {
        const auto* const escape = plain::FindEscape({at, static_cast<std::size_t>(m_end - at)});
        if (escape == nullptr) return at;
        m_unescaped += escape->Character;
        at += escape->Text.size();
        const char* const end = SkipText(at, m_end);
        m_unescaped.append(at, end);
        at = end;
    }
}

}  // namespace apigen
