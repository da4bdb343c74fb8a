// SPDX-License-Identifier: Apache-2.0
/// \file
/// The answers that report a failure instead of a result.
#pragma once

#include <apigen/IData.h>

#include <exception>
#include <memory>
#include <string>

namespace zamservice {

/// The implementation threw: the answer describes the exception with its type.
std::shared_ptr<apigen::IData> Failure(const std::exception& error);

/// The request could not be understood or carried out.
std::shared_ptr<apigen::IData> InternalError(const std::string& message);

}  // namespace zamservice
