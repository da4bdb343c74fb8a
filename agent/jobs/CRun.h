// SPDX-License-Identifier: Apache-2.0
/// \file
/// What one session does, in its own thread: from waiting for its turn to its end.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "agent/core/Progress.h"
#include "agent/core/Retention.h"
#include "agent/core/Sessions.h"
#include "agent/host/Loads.h"
#include "agent/jobs/CAgentImpl.h"

namespace tarvo {

/// Belongs to its session's thread.
class CRun {
    using Type = zamclientlib::ELogDetailType;
    using Status = zamclientlib::JobSessionTaskStatus;

public:
    /// \param isChecked the job's findings were looked at already
    CRun(CAgent::Impl& agent, ActivePtr active, bool isChecked);

    /// Never throws; whatever happens, the session has ended after it.
    void Run() noexcept;

private:
    Status Outcome();
    void Work();
    void Check();
    void RunPreJobScript();
    void RunPostJobScript();
    bool RunOneScript(const std::string& path, const char* name, std::chrono::milliseconds limit,
                      const std::stop_token& stop, const std::string& outcome);
    void FindRepository();
    void ChooseChain();
    void BeginChain(const std::vector<SChain>& chains, ENewChain reason, Type weight);
    void AmendChain(const std::function<void(SChain&)>& change);
    void MarkChain(EChainState state, const std::string& damage);
    void BackUp();
    void KeepPoint(const SBackupResult& result, std::uint64_t bytesRead, Moment began);
    void Prune();
    void Forget(const SChain& chain, const std::vector<SRetentionChoice>& choices, bool isWhole);
    void VerifyNextPart();

    SEngineStore Store() const { return m_agent.StoreOf(m_chain, m_password); }
    bool IsStopped() const { return m_active->Stop.stop_requested(); }
    void RequireGoingOn() const;
    void EnterState(zamclientlib::JobState state);

    /// A line of the session's log; told at the next occasion.
    void Say(Type type, std::string text);
    void Tell(const std::function<void(zamclientlib::SBackupJobSessionInfo&)>& change = {});
    void TellNowAndThen();
    SBusyTimes Busy() const;

    CAgent::Impl& m_agent;
    const ActivePtr m_active;
    const bool m_isChecked;
    SSession m_session;  ///< as it was when the work began, for what doesn't change
    SJob m_job;
    Secrets m_secrets;
    zamclientlib::SBackupRepositoryInfo m_repository;
    SChain m_chain;
    std::optional<std::string> m_password;  ///< of the chain
    bool m_isFirst = false;                 ///< the point is the first of its chain
    bool m_hasSlot = false;
    bool m_hasWarning = false;
    std::vector<zamclientlib::SLogDetail> m_lines;  ///< not told yet
    std::size_t m_lineCount = 0;
    std::size_t m_linesLeftOut = 0;
    SEngineProgress m_progress;
    std::optional<CDiskWatch> m_sourceDisks;
    std::optional<CDiskWatch> m_targetDisk;
    std::chrono::milliseconds m_cpuTime{};              ///< of the engine
    std::chrono::steady_clock::time_point m_workBegan;  ///< that of the engine
    std::chrono::steady_clock::time_point m_lastProgress;
    std::chrono::steady_clock::time_point m_lastTold;
    bool m_isPointKept = false;
    SEnding::Also m_unkept;  ///< what was not written yet: the last progress, or the point
    Status m_outcome{};
};

}  // namespace tarvo
