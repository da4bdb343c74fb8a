// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CRequest.h"

#include <apigen/CApiClientInvoker.h>

#include <string>
#include <typeinfo>
#include <utility>

#include "support/apigen/Envelope.h"
#include "support/apigen/RequestText.h"
#include "support/apigen/TextEncoders.h"

namespace apigen {

CRequest::CRequest() : m_opened(m_text.Open(RootName)), m_begin(m_text.Text().size()) {}

std::shared_ptr<IData> CRequest::Send(const ProxyBase& proxy, std::string_view methodId,
                                      std::string_view signature, StreamedXmlInvokerImpl::ResultReader read,
                                      void* result) {
    IInvoker& invoker = *proxy.GetInvoker();
    // One that is derived from it may be there to see the containers.
    if (typeid(invoker) != typeid(CApiClientInvoker)) {
        auto container = invoker.CreateContainer();
        AppendEntries(*container, m_text.Text().substr(m_begin));
        return proxy.InvokeMethod(std::string(methodId), std::string(signature), std::move(container));
    }
    EndRequest(m_text, m_opened, proxy.GetHandle(), methodId);
    auto response = static_cast<CApiClientInvoker&>(invoker).Invoke(std::string(m_text.Text()), read, result);
    if (response != nullptr) envelope::ThrowIfFailed(*response, invoker, "Method call ", signature);
    return response;
}

}  // namespace apigen
