// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>

#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace apigen APIGEN_API {

template <class T>
class Optional;

/// An empty one, whatever its type; the standard's own.
using std::nullopt;
using std::nullopt_t;

namespace detail {
template <class T>
inline constexpr bool IsOptional = false;
template <class T>
inline constexpr bool IsOptional<Optional<T>> = true;
template <class T>
inline constexpr bool IsOptional<std::optional<T>> = true;

template <class T>
using Plain = std::remove_cv_t<std::remove_reference_t<T>>;

/// True when an optional of `T` takes a `U` for a value: not another optional, which may be empty.
template <class T, class U>
inline constexpr bool TakesAsValue = std::is_constructible_v<T, U> &&
                                     (std::is_same_v<T, Plain<U>> || !IsOptional<Plain<U>>);
}  // namespace detail

/// A value that may be absent. On the wire an absent one leaves no trace, so a reader can tell "not set"
/// from "set to nothing".
///
/// Used as `std::optional` is, and converted from and to it. Two things differ: reading an empty one throws,
/// whichever way, and no value stands in a storage of its own, so that its type needs a default.
template <class T>
class Optional {
public:
    using value_type = T;

    Optional() = default;
    /// An empty one.
    Optional(nullopt_t) {}  // NOLINT: implicit by design
    /// One that has `value`.
    Optional(T value) : m_hasValue(true), m_value(std::move(value)) {}  // NOLINT: implicit by design

    /// From what makes a value: a literal, for instance, where the value is a `std::string`.
    template <class U,
              std::enable_if_t<detail::TakesAsValue<T, U&&> && std::is_convertible_v<U&&, T>, int> = 0>
    Optional(U&& value) : m_hasValue(true), m_value(std::forward<U>(value)) {}  // NOLINT: implicit by design
    /// \overload
    template <class U,
              std::enable_if_t<detail::TakesAsValue<T, U&&> && !std::is_convertible_v<U&&, T>, int> = 0>
    explicit Optional(U&& value) : m_hasValue(true), m_value(std::forward<U>(value)) {}

    /// From another optional; empty when that is.
    template <class U, std::enable_if_t<std::is_convertible_v<const U&, T>, int> = 0>
    Optional(const std::optional<U>& other) {  // NOLINT: implicit by design
        if (other) *this = Optional(T(*other));
    }
    /// \overload
    template <class U, std::enable_if_t<std::is_convertible_v<U, T>, int> = 0>
    Optional(std::optional<U>&& other) {  // NOLINT: implicit by design
        if (other) *this = Optional(T(*std::move(other)));
    }
    /// \overload
    template <class U, std::enable_if_t<!std::is_same_v<T, U> && std::is_convertible_v<const U&, T>, int> = 0>
    Optional(const Optional<U>& other) {  // NOLINT: implicit by design
        if (other) *this = Optional(T(*other));
    }

    /// As `Reset`.
    Optional& operator=(nullopt_t) {
        Reset();
        return *this;
    }

    /// From what its value can be made of and assigned from.
    template <class U = T, std::enable_if_t<detail::TakesAsValue<T, U&&> && std::is_assignable_v<T&, U&&> &&
                                                !(std::is_scalar_v<T> && std::is_same_v<T, std::decay_t<U>>),
                                            int> = 0>
    Optional& operator=(U&& value) {
        m_value = std::forward<U>(value);
        m_hasValue = true;
        return *this;
    }

    /// Implicit, so assignment and arguments just work. `std::optional<bool> copy(flag)` would ask whether there is
    /// a value at all, by `operator bool`; write `std::optional<bool> copy = flag`.
    operator std::optional<T>() const& {  // NOLINT: implicit by design
        return m_hasValue ? std::optional<T>(m_value) : std::nullopt;
    }
    /// \overload
    operator std::optional<T>() && {  // NOLINT: implicit by design
        return m_hasValue ? std::optional<T>(std::move(m_value)) : std::nullopt;
    }

    /// Whether there is a value.
    [[nodiscard]] bool HasValue() const noexcept { return m_hasValue; }
    /// \copydoc HasValue
    [[nodiscard]] bool has_value() const noexcept { return m_hasValue; }
    /// \copydoc HasValue
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
    /// \copydoc Value() const
    const T& value() const { return Value(); }
    /// \copydoc Value() const
    T& value() { return Value(); }

    /// The value, or `other` made one when there is none.
    template <class U>
    [[nodiscard]] T value_or(U&& other) const& {
        return m_hasValue ? m_value : static_cast<T>(std::forward<U>(other));
    }
    /// \overload
    template <class U>
    [[nodiscard]] T value_or(U&& other) && {
        return m_hasValue ? std::move(m_value) : static_cast<T>(std::forward<U>(other));
    }

    /// \copydoc Value() const
    const T& operator*() const { return Value(); }
    /// \copydoc Value() const
    T& operator*() { return Value(); }
    /// \copydoc Value() const
    const T* operator->() const { return &Value(); }
    /// \copydoc Value() const
    T* operator->() { return &Value(); }

    /// Makes it empty and drops the value.
    void Reset() {
        m_hasValue = false;
        m_value = T{};
    }
    /// \copydoc Reset
    void reset() { Reset(); }

    /// Sets a value made of `arguments`: those of a constructor, or the first fields of a record.
    template <class... Arguments>
    T& emplace(Arguments&&... arguments) {
        if constexpr (std::is_constructible_v<T, Arguments&&...>) {
            m_value = T(std::forward<Arguments>(arguments)...);
        } else {
            m_value = T{std::forward<Arguments>(arguments)...};
        }
        m_hasValue = true;
        return m_value;
    }

    /// Empty ones are equal, and below every value.
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

template <class T>
bool operator<(const Optional<T>& left, const Optional<T>& right) {
    return right.HasValue() && (!left.HasValue() || *left < *right);
}
template <class T>
bool operator>(const Optional<T>& left, const Optional<T>& right) {
    return right < left;
}
template <class T>
bool operator<=(const Optional<T>& left, const Optional<T>& right) {
    return !(right < left);
}
template <class T>
bool operator>=(const Optional<T>& left, const Optional<T>& right) {
    return !(left < right);
}

// Without these the standard's own would take the other optional for a value.
template <class T, class U>
bool operator==(const Optional<T>& left, const std::optional<U>& right) {
    return left.HasValue() == right.has_value() && (!left.HasValue() || *left == *right);
}
template <class T, class U>
bool operator==(const std::optional<U>& left, const Optional<T>& right) {
    return right == left;
}
template <class T, class U>
bool operator!=(const Optional<T>& left, const std::optional<U>& right) {
    return !(left == right);
}
template <class T, class U>
bool operator!=(const std::optional<U>& left, const Optional<T>& right) {
    return !(right == left);
}

}  // namespace apigen
