// SPDX-License-Identifier: Apache-2.0
/// \file
/// The objects of a service, and the methods that they have on the wire.
#pragma once

#include <apigen/Handle.h>

#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>

#include "src/Method.h"
#include "support/apigen/CXmlWriter.h"

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
    static const CInterface& Of();

    /// Null for an unknown method.
    const Handler* Find(std::string_view methodId) const {
        const auto found = m_handlers.find(methodId);
        return found != m_handlers.end() ? &found->second : nullptr;
    }

    std::size_t Size() const { return m_handlers.size(); }

private:
    template <class I>
    static CInterface Make();

    template <class I, class Pointer, class R, class... A>
    void Bind(const zamclientlib::Method<I, Pointer, R, A...>& method);

    std::unordered_map<std::string_view, Handler> m_handlers;
};

}  // namespace zamservice
