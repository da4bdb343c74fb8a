// SPDX-License-Identifier: Apache-2.0
/// \file
/// A method call on its way out.
#pragma once

#include <apigen/Export.h>
#include <apigen/IData.h>
#include <apigen/IInvoker.h>
#include <apigen/ProxyBase.h>

#include <memory>
#include <string>
#include <string_view>

#include "support/apigen/CXmlWriter.h"

namespace apigen APIGEN_API {

/// The text of a request, for one call.
///
/// Over the library's own connection it goes out as it stands, and the answer's text is offered to `read`: no
/// container is made of either. Any other invoker gets the container that it asks for.
class CRequest {
public:
    CRequest();

    /// Where the arguments are to be written, before `Send`.
    CXmlWriter& Arguments() noexcept { return m_text; }

    /// Calls a method of the object that `proxy` stands for, as `ProxyBase::InvokeMethod` does.
    /// \return the response, or null when `read` has put what there was in it into `result`; what stands in
    ///         `result` otherwise means nothing
    std::shared_ptr<IData> Send(const ProxyBase& proxy, std::string_view methodId, std::string_view signature,
                                ITextInvoker::ResultReader read, void* result);

    /// Reads the result out of a response that `Send` returned; a failure names the method.
    using ContainerReader = void (*)(const IData& response, void* result);
    static void ReadResponse(const ProxyBase& proxy, std::string_view signature, const IData& response,
                             ContainerReader read, void* result);

    /// Releases the object that `proxy` stands for.
    void Release(const ProxyBase& proxy);

private:
    /// The whole request, of which nothing can be added then.
    std::string End(const ProxyBase& proxy, std::string_view methodId);

    /// By way of a container.
    std::shared_ptr<IData> Invoke(const ProxyBase& proxy, std::string_view methodId,
                                  std::string_view signature);

    CXmlWriter m_text;
};

}  // namespace apigen
