// SPDX-License-Identifier: Apache-2.0
/// \file
/// From a method's descriptor to the call of the interface's member: decoding, call and encoding follow from the
/// descriptor's types.
#pragma once

#include <apigen/Serialize.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "service/CInterface.h"
#include "src/Method.h"
#include "support/apigen/Envelope.h"
#include "support/apigen/TextEncoders.h"

namespace zamservice {

template <class T>
void ReadArgument(const apigen::IData& request, std::string_view key, T& value) {
    apigen::Deserialize(request, std::string(key), value);
}

template <class T>
void ReadArgument(const apigen::IData& request, std::string_view key, std::vector<T>& values) {
    apigen::DeserializeVector(request, std::string(key), values);
}

template <class Keys, class... A>
bool ReadArguments(const SCall& call, const Keys& keys, A&... arguments) {
    [[maybe_unused]] std::size_t key = 0;
    if (call.Container != nullptr) {
        (ReadArgument(*call.Container, keys[key++], arguments), ...);
        return true;
    }
    apigen::CTextCursor cursor(call.Arguments);
    apigen::CTextReader reader(cursor);
    (apigen::ReadText(reader, keys[key++], arguments), ...);
    return cursor.IsWhollyRead();
}

/// Null has no object and so the handle 0.
template <class I>
apigen::Handle HandleOf(IObjectTable& objects, const std::shared_ptr<I>& object) {
    return object != nullptr ? objects.Add({object, &CInterface::Of<I>()}) : apigen::Handle{};
}

template <class T>
void WriteResult(SCall& call, const T& value) {
    apigen::WriteText(call.Result, apigen::envelope::ResultKey, value);
}

template <class I>
void WriteResult(SCall& call, const std::shared_ptr<I>& object) {
    apigen::WriteText(call.Result, apigen::envelope::HandleKey, HandleOf(call.Objects, object));
}

template <class I>
void WriteResult(SCall& call, const std::vector<std::shared_ptr<I>>& list) {
    std::vector<apigen::Handle> handles;
    handles.reserve(list.size());
    for (const auto& object : list) {
        handles.push_back(HandleOf(call.Objects, object));
    }
    apigen::WriteText(call.Result, apigen::envelope::HandleKey, handles);
}

template <class I, class Pointer, class R, class... A>
void CInterface::Bind(const zamclientlib::Method<I, Pointer, R, A...>& method) {
    m_handlers.emplace(method.Id, [&method](void* object, SCall& call) {
        std::tuple<A...> arguments;
        const auto read = [&](auto&... argument) { return ReadArguments(call, method.Keys, argument...); };
        if (!std::apply(read, arguments)) return false;
        call.IsUnderstood = true;
        const auto run = [&](auto&... argument) {
            return (static_cast<I*>(object)->*method.Member)(std::move(argument)...);
        };
        if constexpr (std::is_void_v<R>) {
            std::apply(run, arguments);
        } else {
            WriteResult(call, std::apply(run, arguments));
        }
        return true;
    });
}

template <class I>
CInterface CInterface::Make() {
    CInterface table;
    zamclientlib::MethodsOf<I>::ForEach([&table](const auto& method) { table.Bind(method); });
    return table;
}

template <class I>
const CInterface& CInterface::Of() {
    static const CInterface table = Make<I>();
    return table;
}

}  // namespace zamservice
