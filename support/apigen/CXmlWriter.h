// SPDX-License-Identifier: Apache-2.0
/// \file
/// The writer of the text form.
#pragma once

#include <apigen/Export.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace apigen APIGEN_API {

/// Writes the elements of a document, one behind the other, into a buffer of its own.
class CXmlWriter {
public:
    CXmlWriter() = default;
    CXmlWriter(CXmlWriter&& other) noexcept;
    CXmlWriter& operator=(CXmlWriter&& other) noexcept;

    std::string_view Text() const { return {m_buffer.get(), m_size}; }

    /// Drops everything behind the first `size` bytes.
    void CutTo(std::size_t size) { m_size = size; }

    /// Begins an element that holds others; returns what `Close` wants to know.
    std::size_t Open(std::string_view key) {
        char* const at = Room(key.size() + 2);
        *at = '<';
        std::memcpy(at + 1, key.data(), key.size());
        at[key.size() + 1] = '>';
        return m_size += key.size() + 2;
    }

    /// Ends it. One that holds nothing gets the short form.
    void Close(std::string_view key, std::size_t opened) {
        if (m_size == opened) {
            Room(1);
            m_buffer.get()[m_size - 1] = '/';
            m_buffer.get()[m_size++] = '>';
        } else {
            EndTag(Room(key.size() + 3), key);
            m_size += key.size() + 3;
        }
    }

    /// Writes an element that holds `text`, whatever its bytes are.
    void Entry(std::string_view key, std::string_view text);

private:
    struct SFree {
        void operator()(char* memory) const { std::free(memory); }
    };

    char* Room(std::size_t count) {
        if (m_capacity - m_size < count) Grow(count);
        return m_buffer.get() + m_size;
    }
    void Grow(std::size_t count);

    static void EndTag(char* at, std::string_view key) {
        at[0] = '<';
        at[1] = '/';
        std::memcpy(at + 2, key.data(), key.size());
        at[key.size() + 2] = '>';
    }
    void Append(std::string_view bytes) {
        std::memcpy(Room(bytes.size()), bytes.data(), bytes.size());
        m_size += bytes.size();
    }
    void AppendEscaped(std::string_view text);

    std::unique_ptr<char, SFree> m_buffer;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};

}  // namespace apigen
