// SPDX-License-Identifier: Apache-2.0
/// \file
/// The one sequence that every proxy method is: arguments in, call, result out.
#pragma once

#include <apigen/Handle.h>
#include <apigen/ProxyBase.h>
#include <apigen/Serialize.h>

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "src/Method.h"
#include "support/apigen/CRequest.h"
#include "support/apigen/Envelope.h"
#include "support/apigen/RequestText.h"
#include "support/apigen/TextEncoders.h"

namespace zamclientlib {

/// The proxy class of an interface: a specialisation has it as `Type`.
template <class I>
struct ProxyOf;

/// Wraps a remote object. A plain `new`: should the shared pointer fail, the proxy's destructor releases it.
template <class I>
std::shared_ptr<I> MakeProxy(const apigen::ProxyBase& parent, apigen::Handle handle) {
    return std::shared_ptr<I>(new typename ProxyOf<I>::Type(parent.GetInvoker(), handle));
}

/// How a method's result travels: the type that is read, under which key, and what becomes of it.
template <class R>
struct Result {
    using Wire = R;
    static constexpr const char* Key = apigen::envelope::ResultKey;
    static R Make(Wire&& value, const apigen::ProxyBase& /*proxy*/) { return std::move(value); }
};

template <class I>
struct Result<std::shared_ptr<I>> {
    using Wire = apigen::Handle;
    static constexpr const char* Key = apigen::envelope::HandleKey;
    static std::shared_ptr<I> Make(Wire handle, const apigen::ProxyBase& proxy) {
        return handle ? MakeProxy<I>(proxy, handle) : nullptr;
    }
};

template <class I>
struct Result<std::vector<std::shared_ptr<I>>> {
    using Wire = std::vector<apigen::Handle>;
    static constexpr const char* Key = apigen::envelope::HandleKey;
    static std::vector<std::shared_ptr<I>> Make(Wire&& handles, const apigen::ProxyBase& proxy) {
        std::vector<std::shared_ptr<I>> objects;
        objects.reserve(handles.size());
        for (const apigen::Handle handle : handles) {
            objects.push_back(MakeProxy<I>(proxy, handle));
        }
        return objects;
    }
};

template <class T>
void ReadResult(const apigen::IData& response, const char* key, T& value) {
    apigen::Deserialize(response, key, value);
}

template <class T>
void ReadResult(const apigen::IData& response, const char* key, std::vector<T>& values) {
    apigen::DeserializeVector(response, key, values);
}

/// Calls `method` on the object that `proxy` stands for.
template <class I, class Pointer, class R, class... A>
R Call(const apigen::ProxyBase& proxy, const Method<I, Pointer, R, A...>& method,
       const std::type_identity_t<A>&... arguments) {
    apigen::CRequest request;
    [[maybe_unused]] std::size_t key = 0;
    (apigen::WriteText(request.Arguments(), method.Keys[key++], arguments), ...);
    if constexpr (std::is_void_v<R>) {
        constexpr auto read = [](std::string_view answer, void* /*result*/) {
            return answer == apigen::EmptyAnswer;
        };
        request.Send(proxy, method.Id, method.Signature, read, nullptr);
    } else {
        using Wire = typename Result<R>::Wire;
        constexpr auto read = [](std::string_view answer, void* result) {
            return apigen::DeserializeText(answer, Result<R>::Key, *static_cast<Wire*>(result));
        };
        Wire value{};
        const auto response = request.Send(proxy, method.Id, method.Signature, read, &value);
        if (response != nullptr) {
            constexpr auto readContainer = [](const apigen::IData& data, void* result) {
                auto& whole = *static_cast<Wire*>(result);
                whole = {};
                ReadResult(data, Result<R>::Key, whole);
            };
            apigen::CRequest::ReadResponse(proxy, method.Signature, *response, readContainer, &value);
        }
        return Result<R>::Make(std::move(value), proxy);
    }
}

}  // namespace zamclientlib
