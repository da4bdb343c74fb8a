// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/IData.h>

#include <memory>
#include <string>
#include <string_view>

namespace apigen APIGEN_API {

/// Turns the description of a remote failure into a thrown exception.
class IApiExceptionGenerator {
public:
    virtual ~IApiExceptionGenerator() = default;

    /// Throws the exception that `exceptionData` (the content of "__exception_obj") describes.
    virtual void Generate(std::shared_ptr<IData> exceptionData) = 0;
};

/// The way of the library's own code past the containers: requests and answers as the texts that travel.
class ITextInvoker {
public:
    /// Reads the result straight out of an answer's text, or returns false when it does not know that.
    using ResultReader = bool (*)(std::string_view answer, void* result);

    /// Sends the text of a request; null when `read` has read the answer. \param read may be null
    virtual std::shared_ptr<IData> InvokeText(const std::string& request, ResultReader read,
                                              void* result) = 0;

    /// Sends the text of a release call, without waiting for anything. What fails is dropped.
    virtual void ReleaseByText(const std::string& request) noexcept = 0;

protected:
    ~ITextInvoker() = default;
};

/// Whether calls still can be made, and why not.
struct SConnectionState {
    bool IsAlive = true;
    std::string Reason;  ///< of its end; empty as long as it lives

    /// As `IsAlive`.
    explicit operator bool() const noexcept { return IsAlive; }
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

    /// The invoker's shorter way, when it has one and nobody is meant to see the containers.
    virtual ITextInvoker* AsTextInvoker() noexcept { return nullptr; }

    /// Looks, without waiting for anything. An invoker that can't tell is alive.
    [[nodiscard]] virtual SConnectionState GetState() { return {}; }

    /// What it speaks to, for messages; may be empty.
    [[nodiscard]] virtual std::string Peer() const { return {}; }
};

}  // namespace apigen
