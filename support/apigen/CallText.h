// SPDX-License-Identifier: Apache-2.0
/// \file
/// How messages and the log speak of a call; never of what it carries.
#pragma once

#include <apigen/ApiException.h>
#include <apigen/IData.h>

#include <string>

#include "support/apigen/CallLimits.h"

namespace apigen {

/// The method's name without the number behind it; "the greeting" of none.
std::string CallName(const std::string* request);

/// Adds method, peer, where the message does not name it, and limit.
void ExplainCall(ApiException& error, const std::string* request, const std::string& peer,
                 const SCallLimits& limits);

/// What the answer to a call says about its outcome, for the log: of an exception also type and message, which tell of
/// one that the client doesn't know as well. Null means that the result has been read.
std::string OutcomeText(const IData* answer);

/// The line of the log.
std::string CallLine(const std::string* request, const std::string& outcome, common::Clock::duration took);

}  // namespace apigen
