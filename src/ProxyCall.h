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
#include "support/apigen/Envelope.h"

namespace zamclientlib {

/// The proxy class of an interface: a specialisation has it as `Type`.
template <class I>
struct ProxyOf;

/// Takes a method's result out of the response; chosen by the result's type.
template <class R>
struct ResultReader {
    static R Read(const apigen::IData& response, const apigen::ProxyBase& /*proxy*/) {
        R result{};
        apigen::Deserialize(response, apigen::envelope::ResultKey, result);
        return result;
    }
};

template <>
struct ResultReader<void> {
    static void Read(const apigen::IData& /*response*/, const apigen::ProxyBase& /*proxy*/) {}
};

template <class T>
struct ResultReader<std::vector<T>> {
    static std::vector<T> Read(const apigen::IData& response, const apigen::ProxyBase& /*proxy*/) {
        std::vector<T> result;
        apigen::DeserializeVector(response, apigen::envelope::ResultKey, result);
        return result;
    }
};

/// Wraps a remote object. A plain `new`: should the shared pointer fail, the proxy's destructor releases it.
template <class I>
std::shared_ptr<I> MakeProxy(const apigen::ProxyBase& parent, apigen::Handle handle) {
    return std::shared_ptr<I>(new typename ProxyOf<I>::Type(parent.GetInvoker(), handle));
}

template <class I>
struct ResultReader<std::shared_ptr<I>> {
    static std::shared_ptr<I> Read(const apigen::IData& response, const apigen::ProxyBase& proxy) {
        const apigen::Handle handle = apigen::HandleUtils::FromData(response);
        return handle ? MakeProxy<I>(proxy, handle) : nullptr;
    }
};

template <class I>
struct ResultReader<std::vector<std::shared_ptr<I>>> {
    static std::vector<std::shared_ptr<I>> Read(const apigen::IData& response,
                                                const apigen::ProxyBase& proxy) {
        std::vector<apigen::Handle> handles;
        apigen::DeserializeVector(response, apigen::envelope::HandleKey, handles);
        std::vector<std::shared_ptr<I>> result;
        result.reserve(handles.size());
        for (const apigen::Handle handle : handles) {
            result.push_back(MakeProxy<I>(proxy, handle));
        }
        return result;
    }
};

template <class T>
void WriteArgument(apigen::IData& request, std::string_view key, const T& value) {
    apigen::Serialize(request, std::string(key), value);
}

template <class T>
void WriteArgument(apigen::IData& request, std::string_view key, const std::vector<T>& values) {
    apigen::SerializeVector(request, std::string(key), values);
}

/// Calls `method` on the object that `proxy` stands for.
template <class I, class Pointer, class R, class... A>
R Call(const apigen::ProxyBase& proxy, const Method<I, Pointer, R, A...>& method,
       const std::type_identity_t<A>&... arguments) {
    auto request = proxy.GetInvoker()->CreateContainer();
    [[maybe_unused]] std::size_t key = 0;
    (WriteArgument(*request, method.Keys[key++], arguments), ...);
    const auto response =
        proxy.InvokeMethod(std::string(method.Id), std::string(method.Signature), std::move(request));
    return ResultReader<R>::Read(*response, proxy);
}

}  // namespace zamclientlib
