// SPDX-License-Identifier: Apache-2.0
#include "support/common/CMessageAssembler.h"

#include <apigen/IIoDev.h>

#include <string.h>

#include <algorithm>
#include <utility>

#include "support/common/FrameHeader.h"

namespace apigen::common {

namespace {

// A message is given room for so many times what has come of it. Room that stays untouched costs nothing.
constexpr std::size_t RoomAhead = 8;

}  // namespace

CMessageAssembler::EState CMessageAssembler::Advance() {
    m_bytes.Drop(std::exchange(m_viewed, 0));
    if (!m_isWithin) {
        if (!m_message.empty()) DropMessage();
        if (m_bytes.Size() < HeaderBytes) return EState::Between;
        m_length = DecodeHeader(m_bytes.Bytes());
        if (m_length > IIoDev::MaxMessageBytes) return EState::Overlong;
        m_bytes.Drop(HeaderBytes);
        m_isWithin = true;
    }
    if (m_message.empty() && m_bytes.Size() >= m_length) return EState::Whole;

    // Apart from what mostly happens, which needs hardly a register.
    const auto collect = [this]() __attribute__((noinline)) {
        const std::string_view bytes = m_bytes.Bytes().substr(0, m_length - m_message.size());
        const std::size_t needed = m_message.size() + bytes.size();
        if (needed > m_message.capacity()) {
            std::string larger;
            larger.reserve(std::min(m_length, RoomAhead * needed));
            larger = m_message;
            m_message.swap(larger);
            if (m_isWiped) ::explicit_bzero(larger.data(), larger.size());
        }
        m_message += bytes;
        m_bytes.Drop(bytes.size());
        return m_message.size() == m_length ? EState::Whole : EState::Within;
    };
    return collect();
}

/// One that was viewed.
void CMessageAssembler::DropMessage() noexcept {
    if (m_isWiped) ::explicit_bzero(m_message.data(), m_message.size());
    m_message = {};
}

std::string CMessageAssembler::Take() {
    if (!m_message.empty()) {
        m_isWithin = false;
        return std::exchange(m_message, {});
    }
    std::string message(m_bytes.Bytes().substr(0, m_length));
    m_isWithin = false;
    m_bytes.Drop(m_length);
    return message;
}

std::string_view CMessageAssembler::View() {
    m_isWithin = false;
    if (!m_message.empty()) return m_message;
    m_viewed = m_length;
    return m_bytes.Bytes().substr(0, m_length);
}

}  // namespace apigen::common
