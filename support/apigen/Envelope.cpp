// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/Envelope.h"

#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>

namespace apigen::envelope {

void ThrowIfFailed(const IData& response, const IInvoker& invoker, std::string_view attempt,
                   std::string_view name) {
    // Asked of every response, so not made anew each time.
    static const std::string exceptionKey = ExceptionKey;
    static const std::string internalErrorKey = InternalErrorKey;
    if (response.HasValue(exceptionKey)) {
        const auto exception = response.GetChild(exceptionKey);
        if (const auto generator = invoker.GetExceptionGenerator()) generator->Generate(exception);
        throw ApiInternalError("Unable to rethrow received exception");
    }
    if (response.HasValue(internalErrorKey)) {
        const auto error = response.GetChild(internalErrorKey);
        throw ApiInternalError(std::string(attempt).append(name) + " ended up with internal API error: " +
                               error->GetString(InternalErrorTextKey));
    }
}

const std::string& EmptyResponse() {
    static const std::string text = CXmlData::Serialize(*CXmlData::CreateNew());
    return text;
}

}  // namespace apigen::envelope
