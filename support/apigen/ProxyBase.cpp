// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/ProxyBase.h>
#include <apigen/Serialize.h>

#include <utility>

#include "support/apigen/CRequest.h"
#include "support/apigen/Envelope.h"
#include "support/common/Quietly.h"

namespace apigen {

ProxyBase::ProxyBase(std::shared_ptr<IInvoker> invoker, Handle handle)
    : m_invoker(std::move(invoker)), m_handle(handle) {
    if (m_invoker == nullptr) throw ApiInternalError("A proxy needs an invoker");
}

ProxyBase::~ProxyBase() {
    const common::CNoCancellation uncancelled;
    // The service may be gone, and with it the object: there is nothing left to release.
    common::Quietly([this] { CRequest().Release(*this); });
}

std::shared_ptr<IData> ProxyBase::InvokeMethod(const std::string& methodId, const std::string& signature,
                                               std::shared_ptr<IData> request) const {
    Serialize(*request, envelope::HandleKey, m_handle);
    request->SetString(envelope::MethodKey, methodId);
    auto response = m_invoker->Invoke(std::move(request));
    if (response == nullptr) throw ApiInternalError("Method call " + signature + " got no response");
    envelope::ThrowIfFailed(*response, *m_invoker, "Method call ", signature);
    return response;
}

}  // namespace apigen
