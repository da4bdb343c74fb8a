// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/CProcess.h>
#include <apigen/Export.h>
#include <apigen/Handle.h>
#include <apigen/Owned.h>
#include <apigen/StreamedXmlInvokerImpl.h>

#include <chrono>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace apigen APIGEN_API {

/// How to start a tool, and how to speak to it.
struct SToolOptions {
    /// Bound of the greeting; 0 means none.
    std::chrono::milliseconds ConnectTimeout{0};

    /// Variables that the tool has beside, or in place of, the caller's.
    std::unordered_map<std::string, std::string> Environment;

    /// How its calls are made.
    SInvokerOptions Calls;
};

/// The connection to a tool process that serves calls over its standard streams. Owns the process: it is
/// ended, and reaped, with the invoker.
class CApiClientInvoker final : public StreamedXmlInvokerImpl {
public:
    /// Starts the tool and waits for its greeting.
    /// \param program   a name looked up in `PATH`, or a path
    /// \param generator may be empty
    /// \param timeout   bound of the greeting and of each call, in which its waiting for other calls counts; 0 means
    ///                  none
    /// \param logger    may be empty
    /// \throws ProcessLaunchError, or another ApiInternalError, or the failure that the tool greets with. A negative
    /// time-out is refused, and nothing is started.
    static std::shared_ptr<CApiClientInvoker> CreateByProcess(
        const std::string& program, const std::vector<std::string>& arguments,
        std::shared_ptr<IApiExceptionGenerator> generator, std::chrono::seconds timeout,
        std::shared_ptr<ILogger> logger);

    /// \overload
    /// \throws also ProcessLaunchError for a name that can't be an environment variable's, or a NUL character
    static std::shared_ptr<CApiClientInvoker> CreateByProcess(
        const std::string& program, const std::vector<std::string>& arguments,
        std::shared_ptr<IApiExceptionGenerator> generator, const SToolOptions& options);
    ~CApiClientInvoker() override;

    /// The handle of the service's root object, as the greeting named it.
    Handle GetRootHandle() const noexcept { return m_rootHandle; }

private:
    CApiClientInvoker(std::unique_ptr<CProcess> process, std::shared_ptr<IApiExceptionGenerator> generator,
                      const SInvokerOptions& options);
    void TakeGreeting(const std::string& program, std::chrono::milliseconds timeout);
    void OnStreamLost() noexcept override;
    void OnCallRefused() noexcept override;
    ITextInvoker* AsTextInvoker() noexcept override { return this; }

    detail::COwned<CProcess> m_process;
    Handle m_rootHandle;
};

}  // namespace apigen
