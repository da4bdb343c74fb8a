// SPDX-License-Identifier: Apache-2.0
/// \file
/// A visit of an event by its kind.
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/Optional.h>
#include <zamclientlib/EventRecords.h>

#include <type_traits>
#include <utility>

namespace zamclientlib APIGEN_API {

/// Functions of several types as one: `Overloaded{[](const SEventBackupJobStarted&) {}, [](const SBaseEvent&) {}}`.
template <class... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};
/// Deduces the types of the functions.
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

namespace detail {
template <class T>
inline constexpr bool IsPayload = false;
template <class Record>
inline constexpr bool IsPayload<apigen::Optional<Record>> = apigen::IsRecord<Record>;

template <class Visitor>
constexpr bool TakesAnEvent() {
    bool takes = std::is_invocable_v<Visitor&, const SBaseEvent&>;
    SBaseEvent::Fields([&](const apigen::FieldInfo&, auto member) {
        using Field = std::decay_t<decltype(std::declval<const SBaseEvent&>().*member)>;
        if constexpr (IsPayload<Field>) {
            takes = takes || std::is_invocable_v<Visitor&, const typename Field::value_type&>;
        }
    });
    return takes;
}
}  // namespace detail

/// Calls `visitor` with the event's data, an `SEventBackupJobStarted` for instance; or with the event itself where
/// that has no data which the visitor takes: one of a newer agent, for instance. A visitor need not take every kind.
/// What counts is the data that is there, whatever `Type` says; should there be several, each is visited.
/// \return whether the visitor was called
template <class Visitor>
bool Visit(const SBaseEvent& event, Visitor&& visitor) {
    static_assert(detail::TakesAnEvent<Visitor>(), "zamclientlib::Visit: the visitor takes no kind of event");
    bool wasCalled = false;
    apigen::ForEachField(event, [&](const apigen::FieldInfo&, const auto& field) {
        using Field = std::decay_t<decltype(field)>;
        if constexpr (detail::IsPayload<Field>) {
            if constexpr (std::is_invocable_v<Visitor&, const typename Field::value_type&>) {
                if (field.HasValue()) {
                    visitor(*field);
                    wasCalled = true;
                }
            }
        }
    });
    if constexpr (std::is_invocable_v<Visitor&, const SBaseEvent&>) {
        if (!wasCalled) {
            visitor(event);
            wasCalled = true;
        }
    }
    return wasCalled;
}

}  // namespace zamclientlib
