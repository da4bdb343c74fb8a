// SPDX-License-Identifier: Apache-2.0
/// \file
/// The storage of texts and nodes: without an allocation as long as there are few.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

namespace apigen {

/// An array of plain values, the first few of which need no memory of their own.
template <class T, std::size_t InPlace>
class CSmallArray {
    static_assert(std::is_trivially_copyable_v<T> && alignof(T) <= alignof(std::max_align_t));

public:
    CSmallArray() = default;
    CSmallArray(const CSmallArray&) = delete;
    CSmallArray& operator=(const CSmallArray&) = delete;
    ~CSmallArray() {
        if (!IsInPlace()) std::free(m_data);
    }

    T* Data() { return m_data; }
    const T* Data() const { return m_data; }
    T* begin() { return m_data; }
    const T* begin() const { return m_data; }
    T* end() { return m_data + m_size; }
    const T* end() const { return m_data + m_size; }
    T& operator[](std::size_t index) { return m_data[index]; }
    const T& operator[](std::size_t index) const { return m_data[index]; }
    std::size_t Size() const { return m_size; }

    void Append(const T& value) {
        new (Room(1)) T(value);
        ++m_size;
    }

    /// The place behind the last value, with room for `count` more; they count once `SetSize` says so.
    T* Room(std::size_t count) {
        if (m_capacity - m_size < count) GrowBy(count);
        return m_data + m_size;
    }
    void SetSize(std::size_t size) { m_size = size; }

    void Reserve(std::size_t capacity) {
        if (capacity > m_capacity) Reallocate(capacity);
    }

private:
    bool IsInPlace() const { return m_data == static_cast<const void*>(m_inPlace); }

    /// Small blocks double. Large ones grow by less, so as not to hold much that is never used: the allocator
    /// extends them in place, or moves pages instead of bytes.
    void GrowBy(std::size_t count) {
        constexpr std::size_t Large = (1U << 20) / sizeof(T);
        const std::size_t more = m_capacity < Large ? m_capacity : m_capacity / 8;
        Reallocate(std::max(m_size + count, m_capacity + more));
    }

    void Reallocate(std::size_t capacity) {
        if (capacity > static_cast<std::size_t>(-1) / 2 / sizeof(T)) throw std::bad_alloc();
        void* const grown = std::realloc(IsInPlace() ? nullptr : m_data, capacity * sizeof(T));
        if (grown == nullptr) throw std::bad_alloc();
        if (IsInPlace()) std::memcpy(grown, m_inPlace, m_size * sizeof(T));
        m_data = static_cast<T*>(grown);
        m_capacity = capacity;
    }

    alignas(T) std::byte m_inPlace[InPlace * sizeof(T)];
    T* m_data = reinterpret_cast<T*>(m_inPlace);
    std::size_t m_size = 0;
    std::size_t m_capacity = InPlace;
};

}  // namespace apigen
