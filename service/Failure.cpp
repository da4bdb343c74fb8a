// SPDX-License-Identifier: Apache-2.0
#include "service/Failure.h"

#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>

#include <string_view>

#include "src/ExceptionTypes.h"
#include "support/apigen/Envelope.h"

namespace zamservice {

namespace envelope = apigen::envelope;
namespace exceptions = zamclientlib::exceptions;

std::shared_ptr<apigen::IData> Failure(const std::exception& error) {
    auto response = apigen::CXmlData::CreateNew();
    const auto description = response->CreateChild(envelope::ExceptionKey);
    bool isWritten = false;
    const auto tryType = [&]<class E>(std::string_view name, const E* exception) {
        if (isWritten || exception == nullptr) return;
        isWritten = true;
        description->SetString(exceptions::TypeKey, std::string(name));
        apigen::Serialize(*description, exceptions::ContentKey, *exception);
    };
    exceptions::ForEachType(
        [&]<class E>(std::string_view name) { tryType(name, dynamic_cast<const E*>(&error)); });
    if (!isWritten) {
        const char* const text = error.what();
        return Failure(zamclientlib::CGenericException(text != nullptr ? text : ""));
    }
    return response;
}

std::shared_ptr<apigen::IData> InternalError(const std::string& message) {
    auto response = apigen::CXmlData::CreateNew();
    response->CreateChild(envelope::InternalErrorKey)->SetString(envelope::InternalErrorTextKey, message);
    return response;
}

}  // namespace zamservice
