// SPDX-License-Identifier: Apache-2.0
/// \file
/// Bytes that have arrived and wait to be taken.
#pragma once

#include <string.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace apigen::common {

/// Grows with what is put in and falls back to its initial size when empty.
class CByteQueue {
public:
    static constexpr std::size_t InitialCapacity = 128 * 1024;

    std::string_view Bytes() const noexcept { return {m_memory.get() + m_begin, m_end - m_begin}; }
    std::size_t Size() const noexcept { return m_end - m_begin; }
    bool IsEmpty() const noexcept { return m_begin == m_end; }

    /// From now on, nothing of what was in the queue stays in memory.
    void Wipe() noexcept { m_isWiped = true; }

    void Drop(std::size_t count) noexcept {
        if (m_isWiped) Clear(m_begin, m_begin + count);
        m_begin += count;
        if (m_begin != m_end) return;
        m_begin = m_end = 0;
        if (m_capacity > InitialCapacity) m_memory.reset(), m_capacity = 0;
    }

    /// Makes room for at least `MinRoom` bytes; those written there become part of the queue by `Commit`.
    char* Room() {
        if (m_capacity - m_end < MinRoom) Rearrange();
        return m_memory.get() + m_end;
    }
    std::size_t RoomSize() const noexcept { return m_capacity - m_end; }
    void Commit(std::size_t count) noexcept { m_end += count; }

private:
    static constexpr std::size_t MinRoom = 16 * 1024;

    void Clear(std::size_t from, std::size_t to) noexcept {
        if (from < to) ::explicit_bzero(m_memory.get() + from, to - from);
    }

    void Rearrange() {
        const std::size_t size = Size();
        if (size > m_capacity / 2 || m_capacity == 0) {
            const std::size_t capacity = std::max(InitialCapacity, 2 * m_capacity);
            std::unique_ptr<char[]> memory(new char[capacity]);
            if (size != 0) std::memcpy(memory.get(), m_memory.get() + m_begin, size);
            if (m_isWiped) Clear(m_begin, m_end);
            m_memory = std::move(memory);
            m_capacity = capacity;
        } else {
            std::memmove(m_memory.get(), m_memory.get() + m_begin, size);
            if (m_isWiped) Clear(std::max(size, m_begin), m_end);
        }
        m_begin = 0;
        m_end = size;
    }

    std::unique_ptr<char[]> m_memory;
    std::size_t m_capacity = 0;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_isWiped = false;
};

}  // namespace apigen::common
