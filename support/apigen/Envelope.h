// SPDX-License-Identifier: Apache-2.0
/// \file
/// What every request and every response carries besides arguments and results.
#pragma once

#include <apigen/Export.h>
#include <apigen/IData.h>
#include <apigen/IInvoker.h>

#include <string_view>

namespace apigen {
namespace envelope APIGEN_API {

inline constexpr const char* HandleKey = "__handle";  ///< the target of a request, the object in a response
inline constexpr const char* MethodKey = "__method";  ///< the method identifier of a request
inline constexpr const char* ResultKey = "__result";  ///< the value that a method returned
inline constexpr const char* ExceptionKey = "__exception_obj";  ///< a typed exception of the service
inline constexpr const char* InternalErrorKey =
    "__api_internal_err";                                   ///< a failure of the service's machinery
inline constexpr const char* InternalErrorTextKey = "msg";  ///< its text
inline constexpr const char* ReleaseMethod = "__dtr";       ///< the method that every object has: its release

/// Throws the failure that `response`, an answer from `invoker`, reports, if it does; a typed exception goes
/// before an internal error.
/// \param attempt, name what was attempted, for the message of an internal error: "Method call ", "void
/// Start()"
APIGEN_API void ThrowIfFailed(const IData& response, const IInvoker& invoker, std::string_view attempt,
                              std::string_view name);

}  // namespace apigen
}  // namespace apigen
