// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>

#include <stdexcept>
#include <utility>

namespace apigen APIGEN_API {

/// A value that may be absent. On the wire an absent one leaves no trace, so a reader can tell "not set"
/// from "set to nothing".
template <class T>
class Optional {
public:
    using value_type = T;

    Optional() = default;
    Optional(T value) : m_hasValue(true), m_value(std::move(value)) {}  // NOLINT: implicit by design

    bool HasValue() const noexcept { return m_hasValue; }
    explicit operator bool() const noexcept { return m_hasValue; }

    /// \throws std::runtime_error "Optional has no value" when empty.
    const T& Value() const {
        Require();
        return m_value;
    }
    /// \copydoc Value() const
    T& Value() {
        Require();
        return m_value;
    }

    const T& operator*() const { return Value(); }
    T& operator*() { return Value(); }
    const T* operator->() const { return &Value(); }
    T* operator->() { return &Value(); }

    /// Makes it empty and drops the value.
    void Reset() {
        m_hasValue = false;
        m_value = T{};
    }

    friend bool operator==(const Optional& left, const Optional& right) {
        return left.m_hasValue == right.m_hasValue && (!left.m_hasValue || left.m_value == right.m_value);
    }
    friend bool operator!=(const Optional& left, const Optional& right) { return !(left == right); }

private:
    void Require() const {
        if (!m_hasValue) {
            throw std::runtime_error("Optional has no value");
        }
    }

    bool m_hasValue = false;
    T m_value{};
};

}  // namespace apigen
