// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>

#include <type_traits>

namespace zamclientlib APIGEN_API {

namespace detail {
struct NoVisit {
    template <class Member>
    constexpr void operator()(const apigen::FieldInfo& /*info*/, Member /*member*/) const {}
};
}  // namespace detail

/// Records are equal when all their fields are.
template <class Record, class = decltype(Record::Fields(detail::NoVisit{}))>
bool operator==(const Record& left, const Record& right) {
    bool equal = true;
    Record::Fields(
        [&](const apigen::FieldInfo&, auto member) { equal = equal && left.*member == right.*member; });
    return equal;
}

/// \copydoc operator==
template <class Record, class = decltype(Record::Fields(detail::NoVisit{}))>
bool operator!=(const Record& left, const Record& right) {
    return !(left == right);
}

}  // namespace zamclientlib
