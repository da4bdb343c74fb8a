// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CProcess.h>

#include <signal.h>

#include <chrono>
#include <optional>
#include <utility>

#include "support/common/CProcessDevice.h"
#include "support/common/Text.h"

namespace apigen {

namespace {

using namespace std::chrono_literals;
using common::Clock;
using common::CProcessDevice;
using EOutput = CProcessDevice::EOutput;

constexpr auto ExitGrace = 2s;
constexpr auto TermGrace = 1s;

}  // namespace

class CProcess::Impl {
public:
    Impl(const std::string& program, const std::vector<std::string>& arguments,
         const std::unordered_map<std::string, std::string>& environment, std::shared_ptr<ILogger> logger)
        : m_program(program),
          m_logger(std::move(logger)),
          m_device(std::make_shared<CProcessDevice>(program, arguments, environment)) {}

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    ~Impl() {
        if (m_abandoned) {
            FinishAbandoned();
        } else {
            End();
        }
        m_device->CloseAll("the process has been ended");
        LogEnd();
    }

    void LogStart() const {
        if (m_logger) m_logger->Info("Started " + m_device->Description());
    }

    const std::shared_ptr<CProcessDevice>& Device() const noexcept { return m_device; }

    CProcessExitCode GetExitCode() {
        m_device->CloseInputAndOutput("the exit code has been asked for");
        if (m_abandoned) {
            FinishAbandoned();
        } else if (!m_device->AwaitEnd(m_device->Deadline(), EOutput::Discard)) {
            throw TimeoutError("Cannot get the exit code of " + m_device->Description() +
                               ": it did not end in time" + m_device->LastWords());
        }
        LogEnd();
        return {m_device->Child().WaitStatus(), m_program, m_device->ErrorTail()};
    }

    void GiveUp(int signal) noexcept {
        m_device->CloseAll("the process has been given up");
        m_device->Child().Signal(signal);
        if (!m_abandoned) m_abandoned = Clock::now();
    }

private:
    void End() noexcept {
        m_device->CloseInput("the process is being ended");
        if (m_device->AwaitEnd(Clock::now() + ExitGrace, EOutput::Discard)) return;
        m_device->Child().Signal(SIGTERM);
        EndBy(Clock::now() + TermGrace);
    }

    void FinishAbandoned() noexcept { EndBy(*m_abandoned + TermGrace); }

    void EndBy(Clock::time_point deadline) noexcept {
        if (m_device->AwaitEnd(deadline, EOutput::Discard)) return;
        m_device->Child().Signal(SIGKILL);
        m_device->AwaitEnd(Clock::time_point::max(), EOutput::Discard);
    }

    void LogEnd() noexcept {
        if (!m_logger || std::exchange(m_endLogged, true)) return;
        try {
            m_logger->Info(m_device->Description() + ' ' +
                           common::EndingText(m_device->Child().WaitStatus()));
        } catch (...) {  // a logger's failure is no reason to leave the caller without a result
        }
    }

    std::string m_program;
    std::shared_ptr<ILogger> m_logger;
    std::shared_ptr<CProcessDevice> m_device;
    std::optional<Clock::time_point> m_abandoned;
    bool m_endLogged = false;
};

CProcess::CProcess(const std::string& program, const std::vector<std::string>& arguments,
                   std::unordered_map<std::string, std::string> environment, std::shared_ptr<ILogger> logger)
    : m_impl(std::make_unique<Impl>(program, arguments, environment, std::move(logger))) {
    m_impl->LogStart();
}

CProcess::~CProcess() = default;

std::shared_ptr<IIoDev> CProcess::GetIoDev() const {
    return m_impl->Device();
}

CProcessExitCode CProcess::GetExitCode() {
    return m_impl->GetExitCode();
}

void CProcess::Abandon() noexcept {
    m_impl->GiveUp(SIGTERM);
}

void CProcess::Kill() noexcept {
    m_impl->GiveUp(SIGKILL);
}

int CProcess::Pid() const noexcept {
    return m_impl->Device()->Child().Pid();
}

}  // namespace apigen
