// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CTextReader.h"

#include <algorithm>

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

bool IsEmptyTag(const char* at, const char* end, std::string_view key) {
    return end - at >= static_cast<std::ptrdiff_t>(key.size() + 3) && at[0] == '<' &&
           at[key.size() + 1] == '/' && at[key.size() + 2] == '>' &&
           IsSameKey(at + 1, key.data(), key.size());
}

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
    return IsStartTag(m_at, m_end, key);
}

bool CTextCursor::Open(std::string_view key) {
    const bool isStart = IsStartTag(m_at, m_end, key);
    if (isStart) {
        m_at += key.size() + 2;
    } else if (IsEmptyTag(m_at, m_end, key)) {
        m_at += key.size() + 3;
    } else {
        GiveUp();
    }
    return isStart;
}

void CTextCursor::Close(std::string_view key) {
    if (!IsEndTag(m_at, m_end, key)) return GiveUp();
    m_at += key.size() + 3;
}

std::string_view CTextCursor::Text(std::string_view key) {
    if (IsStartTag(m_at, m_end, key)) {
        const char* const from = m_at + key.size() + 2;
        const char* to = xml::SkipPlain(from, m_end);
        const bool isPlain = to != m_end && *to == '<';
        if (!isPlain) to = SkipText(to, m_end);
        std::string_view text(from, static_cast<std::size_t>(to - from));
        if (!isPlain && to != m_end && *to == '&') {
            to = Unescape(from, to);
            text = m_unescaped;
        }
        if (IsEndTag(to, m_end, key)) {
            m_at = to + key.size() + 3;
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
        const std::string_view rest(at, static_cast<std::size_t>(m_end - at));
        const auto* const escape =
            std::find_if(xml::Escapes.begin(), xml::Escapes.end(),
                         [&](const xml::SEscape& each) { return rest.starts_with(each.Text); });
        if (escape == xml::Escapes.end()) return at;
        m_unescaped += escape->Character;
        at += escape->Text.size();
        const char* const end = SkipText(at, m_end);
        m_unescaped.append(at, end);
        at = end;
    }
}

}  // namespace apigen
