// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>

#include <type_traits>

namespace zamclientlib APIGEN_API {

/// Says to the encoders that they know the types of this namespace.
template <class T>
std::true_type HasEncoders(const T*);

/// Records are equal when all their fields are.
template <class Record, class = std::enable_if_t<apigen::IsRecord<Record>>>
bool operator==(const Record& left, const Record& right) {
    bool equal = true;
    Record::Fields(
        [&](const apigen::FieldInfo&, auto member) { equal = equal && left.*member == right.*member; });
    return equal;
}

/// \copydoc operator==
template <class Record, class = std::enable_if_t<apigen::IsRecord<Record>>>
bool operator!=(const Record& left, const Record& right) {
    return !(left == right);
}

}  // namespace zamclientlib
