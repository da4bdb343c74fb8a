// SPDX-License-Identifier: Apache-2.0
/// \file
/// The encoder family: how a value is written into a container and read back.
///
/// Defined and instantiated in the libraries, so that a user's build does not pay for them: for
/// `std::string`, `bool`, `int`, `long`, `unsigned short`, `unsigned int`, `unsigned long`, `Guid` and
/// `Handle` here; for every record, enumeration and exception of an API in the library of that API.
#pragma once

#include <apigen/Export.h>
#include <apigen/IData.h>
#include <apigen/Optional.h>

#include <string>
#include <vector>

namespace apigen APIGEN_API {

/// Writes `value` under `key`: a text for plain values, a new child node for a record.
template <class T>
void Serialize(IData& data, const std::string& key, const T& value);

/// Reads the value under `key` into `value`. A number text that holds no number reads as 0 and a boolean
/// is true for "true", "True" and "1" alone; nothing is thrown for odd texts.
/// \throws ApiInternalError naming the path to the missing entry.
template <class T>
void Deserialize(const IData& data, const std::string& key, T& value);

/// Writes nothing when empty, otherwise a child node that holds the value under "opt".
template <class T>
void Serialize(IData& data, const std::string& key, const Optional<T>& value);

/// Leaves `value` as it was when `key` is absent.
template <class T>
void Deserialize(const IData& data, const std::string& key, Optional<T>& value);

/// Writes one child node per element, in order, each holding the element under "item".
template <class T>
void SerializeVector(IData& data, const std::string& key, const std::vector<T>& values);

/// Appends every element found under `key`, in order; the list is not cleared first.
template <class T>
void DeserializeVector(const IData& data, const std::string& key, std::vector<T>& values);

}  // namespace apigen
