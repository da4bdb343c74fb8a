// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CApiClientInvoker.h>

#include <utility>

#include "support/apigen/Envelope.h"
#include "support/apigen/Timeout.h"
#include "support/common/Text.h"

namespace apigen {

CApiClientInvoker::CApiClientInvoker(std::unique_ptr<CProcess> process,
                                     std::shared_ptr<IApiExceptionGenerator> generator,
                                     const SInvokerOptions& options)
    : StreamedXmlInvokerImpl(process->GetIoDev(), std::move(generator), options),
      m_process(std::move(process)) {}

CApiClientInvoker::~CApiClientInvoker() = default;

std::shared_ptr<CApiClientInvoker> CApiClientInvoker::CreateByProcess(
    const std::string& program, const std::vector<std::string>& arguments,
    std::shared_ptr<IApiExceptionGenerator> generator, std::chrono::seconds timeout,
    std::shared_ptr<ILogger> logger) {
    SToolOptions options;
    options.ConnectTimeout = options.Calls.CallTimeout = Milliseconds(timeout);
    options.Calls.Logger = std::move(logger);
    return CreateByProcess(program, arguments, std::move(generator), options);
}

std::shared_ptr<CApiClientInvoker> CApiClientInvoker::CreateByProcess(
    const std::string& program, const std::vector<std::string>& arguments,
    std::shared_ptr<IApiExceptionGenerator> generator, const SToolOptions& options) {
    RequireTimeout(options.ConnectTimeout);
    RequireTimeout(options.Calls.CallTimeout);
    auto process = std::make_unique<CProcess>(program, arguments, options.Environment, options.Calls.Logger);
    std::shared_ptr<CApiClientInvoker> invoker(
        new CApiClientInvoker(std::move(process), std::move(generator), options.Calls));

    // It has been asked for nothing yet, so nothing is lost and the caller need not wait for its end.
    try {
        invoker->TakeGreeting(program, options.ConnectTimeout);
    } catch (ApiException& error) {
        error.SetConnectionLost();
        invoker->m_process->Kill();
        throw;
    } catch (...) {
        invoker->m_process->Kill();
        throw;
    }
    return invoker;
}

void CApiClientInvoker::TakeGreeting(const std::string& program, std::chrono::milliseconds timeout) {
    const auto greeting = Receive(timeout);
    envelope::ThrowIfFailed(*greeting, *this, "Connecting to ", common::Quoted(program));
    if (greeting->HasString(envelope::HandleKey)) m_rootHandle = HandleUtils::FromData(greeting);
    if (!m_rootHandle) {
        throw BrokenMessageError(common::Quoted(program) +
                                 " greeted without a root object: is it a tool that serves calls?");
    }
}

void CApiClientInvoker::OnStreamLost() noexcept {
    m_process->Abandon();
}

void CApiClientInvoker::OnCallRefused() noexcept {
    m_process->Tend();
}

}  // namespace apigen
