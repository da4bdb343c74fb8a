// SPDX-License-Identifier: Apache-2.0
/// \file
/// The encoder family: how a value is written into a container and read back.
///
/// Defined and instantiated in the libraries, so that a user's build does not pay for them: for
/// `std::string`, `bool`, `int`, `long`, `unsigned short`, `unsigned int`, `unsigned long`, `Guid` and
/// `Handle` here; for every record and exception of an API in the library of that API. There are none for other types, which the compiler says.
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/IData.h>
#include <apigen/Optional.h>

#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

namespace apigen APIGEN_API {

class ApiException;
struct Guid;
struct Handle;

namespace detail {

/// How values of a type are written and read.
struct SEncoder;

/// That of `T`. Defined and instantiated in the libraries; enumerations have none, they travel as numbers.
template <class T>
struct EncoderOf {
    static const SEncoder& Get() noexcept;
};

/// What is written or read: a value, an optional or a list of values that `Encoder` knows.
enum class EShape {
    Value,
    Optional,
    List
};
struct SSource {
    const SEncoder& Encoder;
    EShape Shape;
    const void* First;  ///< of `Count`
    std::size_t Count;
};
struct STarget {
    const SEncoder& Encoder;
    EShape Shape;
    void* Object;
};

APIGEN_API void Write(IData& data, const std::string& key, const SSource& source);
APIGEN_API void Read(const IData& data, const std::string& key, const STarget& target);

template <class T>
SSource SourceOf(const T& value) {
    return {EncoderOf<T>::Get(), EShape::Value, &value, 1};
}
template <class T>
SSource SourceOf(const Optional<T>& value) {
    const bool hasValue = value.HasValue();
    return {EncoderOf<T>::Get(), EShape::Optional, hasValue ? &*value : nullptr, hasValue};
}
template <class T>
SSource SourceOf(const std::vector<T>& values) {
    return {EncoderOf<T>::Get(), EShape::List, values.data(), values.size()};
}

template <class T>
STarget TargetOf(T& value) {
    return {EncoderOf<T>::Get(), EShape::Value, &value};
}
template <class T>
STarget TargetOf(Optional<T>& value) {
    return {EncoderOf<T>::Get(), EShape::Optional, &value};
}
template <class T>
STarget TargetOf(std::vector<T>& values) {
    return {EncoderOf<T>::Get(), EShape::List, &values};
}

/// Calls `write` with the source that stands for `value`.
template <class T, class Function>
void WithSource(const T& value, Function&& write) {
    if constexpr (std::is_enum_v<T>) {
        const int number = static_cast<int>(value);
        write(SourceOf(number));
    } else {
        write(SourceOf(value));
    }
}
template <class T, class Function>
void WithSource(const Optional<T>& value, Function&& write) {
    if constexpr (std::is_enum_v<T>) {
        Optional<int> number;
        if (value.HasValue()) number = static_cast<int>(*value);
        write(SourceOf(number));
    } else {
        write(SourceOf(value));
    }
}

/// Calls `read` with the target that stands for `value`.
template <class T, class Function>
void WithTarget(T& value, Function&& read) {
    if constexpr (std::is_enum_v<T>) {
        int number = 0;
        read(TargetOf(number));
        value = static_cast<T>(number);
    } else {
        read(TargetOf(value));
    }
}
template <class T, class Function>
void WithTarget(Optional<T>& value, Function&& read) {
    if constexpr (std::is_enum_v<T>) {
        Optional<int> number;
        read(TargetOf(number));
        if (number.HasValue()) value = static_cast<T>(*number);
    } else {
        read(TargetOf(value));
    }
}

template <class T>
void WriteTo(IData& data, const std::string& key, const T& value) {
    WithSource(value, [&](const SSource& source) { Write(data, key, source); });
}
template <class T>
void ReadFrom(const IData& data, const std::string& key, T& value) {
    WithTarget(value, [&](const STarget& target) { Read(data, key, target); });
}

template <class T, class... Types>
inline constexpr bool IsOneOf = (std::is_same_v<T, Types> || ...);

template <class T>
constexpr bool IsException() {
    if constexpr (std::is_class_v<T> && !IsRecord<T>) {
        return std::is_same_v<T, ApiException> || (IsOfAnApi<T> && std::is_base_of_v<ApiException, T>);
    } else {
        return false;
    }
}

/// True for what can stand in an optional.
template <class T>
inline constexpr bool IsValue =
    IsOneOf<T, std::string, bool, int, long, unsigned short, unsigned int, unsigned long, Guid, Handle> ||
    ((std::is_enum_v<T> || IsRecord<T>)&&IsOfAnApi<T>);

/// True for what can stand in a list.
template <class T>
inline constexpr bool IsElement = IsValue<T> && !std::is_same_v<T, bool> && !std::is_enum_v<T>;

}  // namespace detail

/// Writes `value` under `key`: a text for plain values, a new child node for a record.
template <class T>
void Serialize(IData& data, const std::string& key, const T& value) {
    static_assert(detail::IsValue<T> || detail::IsException<T>(),
                  "apigen::Serialize: this type has no encoder; see Serialize.h for those that have");
    detail::WriteTo(data, key, value);
}

/// Reads the value under `key` into `value`. A number text that holds no number reads as 0 and a boolean
/// is true for "true", "True" and "1" alone; nothing is thrown for odd texts.
/// \throws ApiInternalError naming the path to the missing entry.
template <class T>
void Deserialize(const IData& data, const std::string& key, T& value) {
    static_assert(detail::IsValue<T> || detail::IsException<T>(),
                  "apigen::Deserialize: this type has no encoder; see Serialize.h for those that have");
    detail::ReadFrom(data, key, value);
}

/// Writes nothing when empty, otherwise a child node that holds the value under "opt".
template <class T>
void Serialize(IData& data, const std::string& key, const Optional<T>& value) {
    static_assert(detail::IsValue<T>,
                  "apigen::Serialize: an optional of this type has no encoder; see Serialize.h");
    detail::WriteTo(data, key, value);
}

/// Leaves `value` as it was when `key` is absent.
template <class T>
void Deserialize(const IData& data, const std::string& key, Optional<T>& value) {
    static_assert(detail::IsValue<T>,
                  "apigen::Deserialize: an optional of this type has no encoder; see Serialize.h");
    detail::ReadFrom(data, key, value);
}

/// Writes one child node per element, in order, each holding the element under "item". There are no lists of
/// `bool` and of enumerations.
template <class T>
void SerializeVector(IData& data, const std::string& key, const std::vector<T>& values) {
    static_assert(detail::IsElement<T>,
                  "apigen::SerializeVector: a list of this type has no encoder; see Serialize.h");
    detail::WriteTo(data, key, values);
}

/// Appends every element found under `key`, in order; the list is not cleared first.
template <class T>
void DeserializeVector(const IData& data, const std::string& key, std::vector<T>& values) {
    static_assert(detail::IsElement<T>,
                  "apigen::DeserializeVector: a list of this type has no encoder; see Serialize.h");
    detail::ReadFrom(data, key, values);
}

}  // namespace apigen
