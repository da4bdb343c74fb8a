// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CProcess.h>

#include <chrono>
#include <optional>
#include <utility>

#include "support/common/CProcessDevice.h"
#include "support/common/ProcessMark.h"
#include "support/common/Quietly.h"
#include "support/common/Text.h"

namespace apigen {

namespace {

using namespace std::chrono_literals;
using common::Clock;
using common::CProcessDevice;
using common::DeadlineAfter;

constexpr auto ExitGrace = 2s;
constexpr auto TermGrace = 1s;
// After SIGKILL. One that we may not signal, or that hangs in the system, is left behind then.
constexpr auto KillGrace = 1s;

// Most tools end as soon as they are asked to. A caller that has just been told of a failure waits no longer.
constexpr auto AbandonPatience = 50ms;

common::SChildStart StartOf(const std::string& program, const std::vector<std::string>& arguments,
                            const std::unordered_map<std::string, std::string>& environment) {
    common::SChildStart start;
    start.Program = program;
    start.Arguments = arguments;
    start.Environment = common::EnvironmentWith(program, environment);
    // Not a session: the kernel may schedule sessions as groups, and a call then takes a quarter longer.
    start.Group = common::SChildStart::EGroup::OwnGroup;
    return start;
}

}  // namespace

class CProcess::Impl {
public:
    Impl(const std::string& program, const std::vector<std::string>& arguments,
         const std::unordered_map<std::string, std::string>& environment, std::shared_ptr<ILogger> logger)
        : m_program(program),
          m_logger(std::move(logger)),
          m_device(std::make_shared<CProcessDevice>(StartOf(program, arguments, environment))) {}

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    ~Impl() {
        const common::CNoCancellation uncancelled;
        if (!m_origin.IsHere()) return;
        if (m_abandoned) {
            FinishAbandoned();
        } else {
            End();
        }
        m_device->CloseAll("the process has been ended");
        LogEnd();
    }

    void LogStart() const { Log("Started " + m_device->Description()); }

    const std::shared_ptr<CProcessDevice>& Device() const noexcept { return m_device; }

    CProcessExitCode GetExitCode() {
        if (!m_origin.IsHere()) throw PeerGoneError(m_device->Description() + " belongs to another process");
        m_device->CloseInputAndOutput("the exit code has been asked for");
        if (m_abandoned) {
            FinishAbandoned();
        } else {
            m_device->RequireEnd();
        }
        LogEnd();
        return {m_device->Child().WaitStatus(), m_program, m_device->ErrorTail()};
    }

    void Abandon() {
        if (!GiveUp()) return;
        m_device->Child().AskToEnd();
        m_device->Child().AwaitEnd(DeadlineAfter(AbandonPatience));
    }

    void Kill() {
        GiveUp();
        m_device->Child().Kill();
    }

    void Tend() {
        if (!m_abandoned || !m_origin.IsHere() || m_device->Child().HasEnded()) return;
        if (Clock::now() >= *m_abandoned + TermGrace) m_device->Child().Kill();
    }

private:
    /// True the first time.
    bool GiveUp() {
        if (!m_origin.IsHere()) return false;
        m_device->CloseAll("the process has been given up");
        if (m_abandoned) return false;
        m_abandoned = Clock::now();
        return true;
    }

    void End() {
        m_device->CloseInput("the process is being ended");
        if (m_device->AwaitEnd(DeadlineAfter(ExitGrace))) return;
        m_device->Child().AskToEnd();
        EndBy(DeadlineAfter(TermGrace));
    }

    void FinishAbandoned() { EndBy(*m_abandoned + TermGrace); }

    void EndBy(Clock::time_point deadline) {
        if (m_device->AwaitEnd(deadline)) return;
        m_device->Child().Kill();
        m_device->AwaitEnd(DeadlineAfter(KillGrace));
    }

    void LogEnd() {
        if (std::exchange(m_endLogged, true)) return;
        auto& child = m_device->Child();
        common::Quietly([&] {
            Log(m_device->Description() + ' ' +
                (child.HasEnded() ? common::EndingText(child.WaitStatus())
                                  : "can't be ended and is left behind"));
        });
    }

    /// A logger's failure is no reason to leave the caller without a result.
    void Log(const std::string& text) const {
        if (m_logger != nullptr) common::Quietly([&] { m_logger->Info(text); });
    }

    std::string m_program;
    std::shared_ptr<ILogger> m_logger;
    std::shared_ptr<CProcessDevice> m_device;
    common::CProcessMark m_origin;
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
    const common::CNoCancellation uncancelled;
    m_impl->Abandon();
}

void CProcess::Kill() noexcept {
    const common::CNoCancellation uncancelled;
    m_impl->Kill();
}

void CProcess::Tend() noexcept {
    const common::CNoCancellation uncancelled;
    m_impl->Tend();
}

int CProcess::Pid() const noexcept {
    return m_impl->Device()->Child().Pid();
}

}  // namespace apigen
