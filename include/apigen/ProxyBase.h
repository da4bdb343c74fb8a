// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/Handle.h>
#include <apigen/IInvoker.h>

#include <memory>
#include <string>

namespace apigen APIGEN_API {

/// The remote half of every proxy: which object it stands for and the connection that carries its calls.
///
/// Takes no lock and keeps no state of a call; whether calls over one invoker may overlap is the
/// invoker's business. The destructor tells the service that the object is no longer used.
class ProxyBase {
public:
    /// \throws ApiInternalError when `invoker` is empty.
    ProxyBase(std::shared_ptr<IInvoker> invoker, Handle handle);
    ProxyBase(const ProxyBase&) = delete;
    ProxyBase& operator=(const ProxyBase&) = delete;

    /// Sends the release call; a failure of it is dropped.
    virtual ~ProxyBase();

    /// Addresses `request` to this object's method, sends it and returns the response.
    /// \param methodId  the method's identifier on the wire
    /// \param signature the method's declaration, for error messages only
    /// \throws the typed exception that the service reported, or ApiInternalError.
    std::shared_ptr<IData> InvokeMethod(const std::string& methodId, const std::string& signature,
                                        std::shared_ptr<IData> request) const;

    /// The connection that carries the calls; never empty.
    const std::shared_ptr<IInvoker>& GetInvoker() const noexcept { return m_invoker; }
    /// The object's number at the service.
    Handle GetHandle() const noexcept { return m_handle; }

private:
    std::shared_ptr<IInvoker> m_invoker;
    Handle m_handle;
};

}  // namespace apigen
