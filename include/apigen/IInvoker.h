// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/IData.h>

#include <memory>

namespace apigen APIGEN_API {

/// Turns the description of a remote failure into a thrown exception.
class IApiExceptionGenerator {
public:
    virtual ~IApiExceptionGenerator() = default;

    /// Throws the exception that `exceptionData` (the content of "__exception_obj") describes.
    virtual void Generate(std::shared_ptr<IData> exceptionData) = 0;
};

/// The one door from proxies to the outside: carries a request to the service and brings the answer.
class IInvoker {
public:
    /// A new, empty request container.
    virtual std::shared_ptr<IData> CreateContainer() = 0;

    /// Sends the request and waits for the answer. An error that the service reports comes back as an
    /// answer like any other; an exception means that the transport failed.
    virtual std::shared_ptr<IData> Invoke(std::shared_ptr<IData> request) = 0;

    /// The generator for the typed exceptions of the API; may be empty.
    virtual std::shared_ptr<IApiExceptionGenerator> GetExceptionGenerator() const = 0;

    virtual ~IInvoker() = default;
};

}  // namespace apigen
