// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/Envelope.h"

#include <apigen/ApiException.h>

#include <string>

#include "support/common/Text.h"

namespace apigen::envelope {

void ThrowIfFailed(const IData& response, const IInvoker& invoker, std::string_view attempt,
                   std::string_view name) {
    if (response.HasValue(ExceptionKey)) {
        const auto exception = response.GetChild(ExceptionKey);
        if (const auto generator = invoker.GetExceptionGenerator()) generator->Generate(exception);
        throw ApiInternalError("Unable to rethrow received exception");
    }
    if (response.HasValue(InternalErrorKey)) {
        const auto error = response.GetChild(InternalErrorKey);
        throw ServiceInternalError(std::string(attempt).append(name) + " ended up with internal API error: " +
                                   common::Escaped(error->GetString(InternalErrorTextKey)));
    }
}

}  // namespace apigen::envelope
