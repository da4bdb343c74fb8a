// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CRequest.h"

#include <apigen/ApiException.h>

#include <utility>

#include "support/apigen/Envelope.h"
#include "support/apigen/RequestText.h"
#include "support/apigen/TextEncoders.h"
#include "support/common/Quietly.h"

namespace apigen {

CRequest::CRequest() {
    BeginDocument(m_text);
}

std::shared_ptr<IData> CRequest::Send(const ProxyBase& proxy, std::string_view methodId,
                                      std::string_view signature, ITextInvoker::ResultReader read,
                                      void* result) {
    IInvoker& invoker = *proxy.GetInvoker();
    ITextInvoker* const byText = invoker.AsTextInvoker();
    if (byText == nullptr) return Invoke(proxy, methodId, signature);
    auto response = byText->InvokeText(End(proxy, methodId), read, result);
    if (response != nullptr) envelope::ThrowIfFailed(*response, invoker, "Method call ", signature);
    return response;
}

void CRequest::ReadResponse(const ProxyBase& proxy, std::string_view signature, const IData& response,
                            ContainerReader read, void* result) {
    try {
        read(response, result);
    } catch (ApiInternalError& error) {
        common::Quietly([&] {
            const std::string peer = proxy.GetInvoker()->Peer();
            error.Append(std::string(" (in the answer").append(peer.empty() ? "" : " of ") + peer + " to " +
                         std::string(signature) + ')');
        });
        throw;
    }
}

void CRequest::Release(const ProxyBase& proxy) {
    if (ITextInvoker* const byText = proxy.GetInvoker()->AsTextInvoker()) {
        byText->ReleaseByText(End(proxy, envelope::ReleaseMethod));
    } else {
        Invoke(proxy, envelope::ReleaseMethod, "Destructor");
    }
}

std::string CRequest::End(const ProxyBase& proxy, std::string_view methodId) {
    EndRequest(m_text, proxy.GetHandle(), methodId);
    return std::string(m_text.Text());
}

std::shared_ptr<IData> CRequest::Invoke(const ProxyBase& proxy, std::string_view methodId,
                                        std::string_view signature) {
    auto container = proxy.GetInvoker()->CreateContainer();
    AppendEntries(*container, m_text.Text().substr(plain::StartTagBytes(RootName)));
    return proxy.InvokeMethod(std::string(methodId), std::string(signature), std::move(container));
}

}  // namespace apigen
