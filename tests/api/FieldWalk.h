// SPDX-License-Identifier: Apache-2.0
/// \file
/// What tests ask of a record's field list.
#pragma once

#include <apigen/CXmlData.h>
#include <apigen/Fields.h>
#include <apigen/Serialize.h>
#include <zamclientlib/RecordEquality.h>

#include <cstddef>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zamtest {

/// Stands for a value of any member's type when braces are tried.
template <class Record>
struct SAnything {
    template <class T>
    requires(!std::is_same_v<T, Record>) operator T() const;
};

template <class Record, std::size_t... Index>
constexpr bool TakesValues(std::index_sequence<Index...> /*indexes*/) {
    return requires {
        Record{((void)Index, SAnything<Record>{})...};
    };
}

/// How many members a record has, found without its field list: as many as its braces take.
template <class Record, std::size_t Count = 0>
constexpr std::size_t MemberCount() {
    if constexpr (TakesValues<Record>(std::make_index_sequence<Count + 1>())) {
        return MemberCount<Record, Count + 1>();
    } else {
        return Count;
    }
}

template <class Record>
constexpr std::size_t FieldCount() {
    std::size_t count = 0;
    Record::Fields([&count](const apigen::FieldInfo&, auto) { ++count; });
    return count;
}

template <class T>
inline constexpr bool MayBeAbsent = false;
template <class T>
inline constexpr bool MayBeAbsent<apigen::Optional<T>> = true;
template <class T>
inline constexpr bool MayBeAbsent<std::vector<T>> = true;

/// The type of the member that a member pointer points to.
template <class Record, class Member>
std::type_identity<Member> MemberType(Member Record::*);

template <class T>
void Write(apigen::IData& data, const std::string& key, const T& value) {
    apigen::Serialize(data, key, value);
}
template <class T>
void Write(apigen::IData& data, const std::string& key, const std::vector<T>& values) {
    apigen::SerializeVector(data, key, values);
}

/// The whole document with `value` under "K".
template <class T>
std::string DocumentOf(const T& value) {
    const auto data = apigen::CXmlData::CreateNew();
    Write(*data, "K", value);
    return apigen::CXmlData::Serialize(*data);
}

}  // namespace zamtest

namespace zamclientlib {

/// Lets a failed comparison show the records.
template <class Record, class = std::enable_if_t<apigen::IsRecord<Record>>>
std::ostream& operator<<(std::ostream& out, const Record& record) {
    return out << zamtest::DocumentOf(record);
}

}  // namespace zamclientlib
