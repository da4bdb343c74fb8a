// SPDX-License-Identifier: Apache-2.0
/// \file
/// From a method's descriptor to the call of the interface's member: decoding, call and encoding follow
/// from the descriptor's types.
#pragma once

#include <apigen/Handle.h>
#include <apigen/Serialize.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "src/Method.h"
#include "support/apigen/Envelope.h"
#include "support/apigen/TextEncoders.h"

namespace zamservice {

class CInterface;

/// An object that a client may call, with the interface that it is called through.
struct SObject {
    std::shared_ptr<void> Object;
    const CInterface* Interface = nullptr;
};

/// Gives objects their handles.
class IObjectTable {
public:
    virtual ~IObjectTable() = default;
    virtual apigen::Handle Add(SObject object) = 0;
};

/// A call on its way through the service.
struct SCall {
    IObjectTable& Objects;
    apigen::CXmlWriter& Result;                     ///< takes the response's entries
    std::string_view Arguments = {};                ///< their text, as long as there is no container
    std::shared_ptr<apigen::IData> Container = {};  ///< the whole request
    bool IsUnderstood = false;  ///< the arguments have been read: what fails now is the implementation
};

/// The methods that an interface has on the wire.
class CInterface {
public:
    /// Reads the arguments, carries out the call and writes its result. False, and nothing done, when the text
    /// of the arguments is not as it would be written: a container has to be made of the request then.
    using Handler = std::function<bool(void* object, SCall& call)>;

    /// The one table of interface `I`.
    template <class I>
    static const CInterface& Of() {
        static const CInterface table = Make<I>();
        return table;
    }

    /// Null for an unknown method.
    const Handler* Find(std::string_view methodId) const {
        const auto found = m_handlers.find(methodId);
        return found != m_handlers.end() ? &found->second : nullptr;
    }

    std::size_t Size() const { return m_handlers.size(); }

private:
    template <class I>
    static CInterface Make() {
        CInterface table;
        zamclientlib::MethodsOf<I>::ForEach([&table](const auto& method) { table.Bind(method); });
        return table;
    }

    template <class I, class Pointer, class R, class... A>
    void Bind(const zamclientlib::Method<I, Pointer, R, A...>& method);

    std::unordered_map<std::string_view, Handler> m_handlers;
};

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

}  // namespace zamservice
