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
    std::shared_ptr<apigen::IData> Request = {};
    std::shared_ptr<apigen::IData> Response = {};
    bool IsUnderstood = false;  ///< the arguments have been read: what fails now is the implementation
};

/// The methods that an interface has on the wire.
class CInterface {
public:
    /// Reads the arguments, carries out the call and writes its result.
    using Handler = std::function<void(void* object, SCall& call)>;

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

/// Null has no object and so the handle 0.
template <class I>
apigen::Handle HandleOf(IObjectTable& objects, const std::shared_ptr<I>& object) {
    return object != nullptr ? objects.Add({object, &CInterface::Of<I>()}) : apigen::Handle{};
}

template <class T>
void WriteResult(apigen::IData& response, IObjectTable& /*objects*/, const T& value) {
    apigen::Serialize(response, apigen::envelope::ResultKey, value);
}

template <class T>
void WriteResult(apigen::IData& response, IObjectTable& /*objects*/, const std::vector<T>& values) {
    apigen::SerializeVector(response, apigen::envelope::ResultKey, values);
}

template <class I>
void WriteResult(apigen::IData& response, IObjectTable& objects, const std::shared_ptr<I>& object) {
    apigen::Serialize(response, apigen::envelope::HandleKey, HandleOf(objects, object));
}

template <class I>
void WriteResult(apigen::IData& response, IObjectTable& objects,
                 const std::vector<std::shared_ptr<I>>& list) {
    std::vector<apigen::Handle> handles;
    handles.reserve(list.size());
    for (const auto& object : list) {
        handles.push_back(HandleOf(objects, object));
    }
    apigen::SerializeVector(response, apigen::envelope::HandleKey, handles);
}

template <class I, class Pointer, class R, class... A>
void CInterface::Bind(const zamclientlib::Method<I, Pointer, R, A...>& method) {
    m_handlers.emplace(method.Id, [&method](void* object, SCall& call) {
        std::tuple<A...> arguments;
        std::apply(
            [&](auto&... argument) {
                [[maybe_unused]] std::size_t key = 0;
                (ReadArgument(*call.Request, method.Keys[key++], argument), ...);
            },
            arguments);
        call.IsUnderstood = true;
        const auto run = [&](auto&... argument) {
            return (static_cast<I*>(object)->*method.Member)(std::move(argument)...);
        };
        if constexpr (std::is_void_v<R>) {
            std::apply(run, arguments);
        } else {
            WriteResult(*call.Response, call.Objects, std::apply(run, arguments));
        }
    });
}

}  // namespace zamservice
