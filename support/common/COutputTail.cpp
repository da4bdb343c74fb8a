// SPDX-License-Identifier: Apache-2.0
#include "support/common/COutputTail.h"

#include <algorithm>

#include "support/common/Text.h"

namespace apigen::common {

void COutputTail::Append(std::string_view bytes) noexcept {
    if (bytes.size() > MaxBytes) {
        m_total += bytes.size() - MaxBytes;
        bytes.remove_prefix(bytes.size() - MaxBytes);
    }
    const std::size_t start = m_total % MaxBytes;
    const std::size_t beforeWrap = std::min(bytes.size(), MaxBytes - start);
    std::copy_n(bytes.data(), beforeWrap, m_ring.data() + start);
    std::copy_n(bytes.data() + beforeWrap, bytes.size() - beforeWrap, m_ring.data());
    m_total += bytes.size();
}

std::string COutputTail::Text() const {
    const bool overflown = m_total > MaxBytes;
    const std::size_t start = m_total % MaxBytes;
    std::string bytes = overflown ? std::string(m_ring.data() + start, MaxBytes - start) : std::string();
    bytes.append(m_ring.data(), overflown ? start : m_total);
    bytes.erase(bytes.find_last_not_of("\r\n") + 1);

    std::size_t begin = bytes.size();
    for (std::size_t lines = 0; lines < MaxLines && begin != 0; ++lines) {
        const std::size_t lineEnd = bytes.rfind('\n', begin - 1);
        begin = lineEnd == std::string::npos ? 0 : lineEnd;
    }
    std::string text = overflown || begin != 0 ? "..." : "";
    if (begin < bytes.size() && bytes[begin] == '\n') ++begin, text += text.empty() ? "" : "\n";
    for (std::string_view rest = std::string_view(bytes).substr(begin); !rest.empty();) {
        const std::size_t lineEnd = rest.find('\n');
        text += Escaped(rest.substr(0, lineEnd));
        if (lineEnd == std::string_view::npos) break;
        text += '\n';
        rest.remove_prefix(lineEnd + 1);
    }
    return text;
}

}  // namespace apigen::common
