// SPDX-License-Identifier: Apache-2.0
/// \file
/// The owner of what a class hides.
#pragma once

#include <apigen/Export.h>

#include <memory>
#include <utility>

namespace apigen APIGEN_API {
namespace detail {

/// What classes here need of a `std::unique_ptr`. The standard's own costs each source that sees such a class twenty
/// million instructions of the compiler, for each type.
template <class T>
class COwned {
public:
    COwned() = default;
    template <class Deleter>
    COwned(std::unique_ptr<T, Deleter> owner) noexcept
        : m_object(owner.release()) {}  // NOLINT: implicit by design
    COwned(COwned&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    COwned& operator=(COwned&& other) noexcept {
        COwned old(std::move(other));
        std::swap(m_object, old.m_object);
        return *this;
    }
    ~COwned() {
        static_assert(sizeof(T) != 0, "known where it is destroyed");
        delete m_object;
    }

    void reset() noexcept { *this = COwned(); }

    T* get() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    T* operator->() const noexcept { return m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

}  // namespace detail
}  // namespace apigen
