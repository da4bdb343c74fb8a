// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>

#include <exception>
#include <string>

namespace apigen APIGEN_API {

/// Where the library writes its diagnostics. Passed around as a shared pointer, which may be empty.
/// An implementation that is shared between connections must be safe to call from several threads.
class ILogger {
public:
    virtual ~ILogger() = default;

    /// Writes one line.
    virtual void Info(const std::string& message) = 0;

    /// Writes an error and the text of the exception that caused it.
    virtual void Error(const std::string& message, std::exception& error) = 0;
};

/// Discards everything.
class CApiEmptyLogger final : public ILogger {
public:
    void Info(const std::string& /*message*/) override {}
    void Error(const std::string& /*message*/, std::exception& /*error*/) override {}
};

}  // namespace apigen
