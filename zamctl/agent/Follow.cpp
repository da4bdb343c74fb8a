// SPDX-License-Identifier: Apache-2.0
#include "agent/Follow.h"

#include <poll.h>

#include <algorithm>
#include <optional>
#include <set>
#include <system_error>

#include "Failure.h"
#include "agent/Interrupt.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto Round = 250ms;  ///< in which Ctrl-C is noticed

/// What is thrown when the agent has gone, by calls and by the stream of events; anything else goes on.
template <class Action>
std::optional<std::string> ReasonOfLoss(Action&& action) {
    try {
        action();
        return std::nullopt;
    } catch (const apigen::InterruptedError&) {
        throw;
    } catch (const apigen::ApiException& error) {
        if (!error.IsConnectionLost()) throw;
        return error.what();
    } catch (const std::system_error& error) {  // of the event socket: the agent has just ended
        return error.what();
    }
}

class CWatch {
public:
    CWatch(CAgent& agent, std::function<void(const std::string&)> onAway, std::function<bool()> onInterrupt)
        : m_agent(agent), m_onAway(std::move(onAway)), m_onInterrupt(std::move(onInterrupt)) {}

    void HeedInterrupt() {
        // No call is under way that it would end.
        if (InterruptedBy() != 0) throw CFailure(EExit::Interrupted, "interrupted");
        if (m_asked.Take() && !m_onInterrupt()) throw CFailure(EExit::Interrupted, "interrupted");
    }

    /// An event, when one comes within a round; `onUnreadable` is told of one that can't be read, behind which the
    /// stream goes on. Without a stream, just the time.
    template <class Action>
    apigen::Optional<SBaseEvent> NextEvent(Action&& onUnreadable) {
        HeedInterrupt();
        if (m_events == nullptr) {
            ::poll(nullptr, 0, Round.count());
            return {};
        }
        try {
            return m_events->ReadUntil(Clock::now() + Round);
        } catch (const apigen::InterruptedError&) {
            throw;
        } catch (const apigen::ApiException& error) {
            if (error.IsConnectionLost()) throw;
            onUnreadable(error.what());
            return {};
        }
    }

    /// Connects, and subscribes where the agent offers events.
    void Connect() {
        m_events.reset();
        const SEventConfig config = m_agent.Control().GetEventConfig();
        if (config.v1) m_events = std::make_unique<CEventsStream>(config, nullptr);
    }

    [[nodiscard]] bool HasEvents() const { return m_events != nullptr; }

    /// Does `action` again and again, until the agent has been there for it; between two tries it is connected anew.
    template <class Action>
    void Through(Action&& action) {
        auto reason = ReasonOfLoss(action);
        if (!reason) return;
        m_onAway(*reason);
        const auto deadline = Clock::now() + AwayLimit;
        while (true) {
            m_events.reset();
            m_agent.Reconnect();
            try {
                reason = ReasonOfLoss([&] {
                    Connect();
                    action();
                });
                if (!reason) break;
            } catch (const CFailure& failure) {
                if (failure.Exit() != EExit::NoAgent) throw;
                reason = failure.what();
            }
            if (Clock::now() > deadline)
                throw CFailure(EExit::NoAgent, "the agent has gone: " + *reason,
                               "what runs there goes on without being watched");
            ::poll(nullptr, 0, Round.count());
            HeedInterrupt();
        }
        m_onAway({});
    }

private:
    CAgent& m_agent;
    std::function<void(const std::string&)> m_onAway;
    std::function<bool()> m_onInterrupt;
    CAskedInterrupts m_asked;
    std::unique_ptr<CEventsStream> m_events;
};

}  // namespace

SBackupJobSessionInfo FollowSession(CAgent& agent, const apigen::Guid& sessionId, const SWatcher& watcher) {
    CWatch watch(agent, watcher.OnAway, watcher.OnInterrupt);
    apigen::Guid followed = sessionId;
    std::set<apigen::Guid> told;
    std::optional<SBackupJobSessionInfo> shown;
    SBackupJobSessionInfo info;
    std::shared_ptr<IBackupJobSession> session;

    const auto look = [&] {
        if (session == nullptr || !GetConnectionState(session).IsAlive) {
            session = agent.Look()->FindBackupJobSessionById(followed);
            if (session == nullptr)
                throw CFailure(EExit::NotFound, "the agent does not know the session any more");
        }
        info = session->GetInfo();
    };
    /// Of a failed run that is tried again, the attempt that came after it.
    const auto findRetry = [&]() -> std::shared_ptr<IBackupJobSession> {
        const auto job = agent.Look()->FindBackupJob(info.JobUid);
        if (job == nullptr) return nullptr;
        auto last = job->FindLastBackupJobSession();
        if (last == nullptr) return nullptr;
        const auto other = last->GetInfo();
        const apigen::Guid original =
            info.OriginalSessionId == apigen::Guid() ? info.Uid : info.OriginalSessionId;
        const bool isLater = other.Uid != info.Uid && other.OriginalSessionId == original;
        return isLater ? last : nullptr;
    };

    bool isFirst = true;
    while (true) {
        bool hasEnded = false;
        watch.Through([&] {
            if (std::exchange(isFirst, false)) watch.Connect();
            look();
            hasEnded = info.State == JobState::Stopped;
            if (hasEnded && info.RetriesInfo && info.RetriesInfo->IsJobAwaitingForRetry) hasEnded = false;
            if (hasEnded && info.Result == JobResult::Failed) {
                if (auto retry = findRetry()) {
                    session = std::move(retry);
                    info = session->GetInfo();
                    followed = info.Uid;
                    hasEnded = false;  // the next look tells
                }
            }
        });
        std::vector<SLogDetail> lines;
        for (const auto& line : info.JobDetails)
            if (told.insert(line.Usn).second) lines.push_back(line);
        if (!shown || shown->Usn != info.Usn || !lines.empty()) watcher.OnChange(info, lines);
        shown = info;
        if (hasEnded) return info;
        // Progress has no events of its own: an event, be it one that can't be read, wakes us before the round is over.
        watch.Through([&] { (void)watch.NextEvent([](const char* /*reason*/) {}); });
    }
}

void FollowEvents(CAgent& agent, const std::function<bool(const SBaseEvent&)>& onEvent,
                  const std::function<void(const std::string&)>& onUnreadable,
                  const std::function<void(const std::string&)>& onAway,
                  const std::function<bool()>& onInterrupt, std::chrono::steady_clock::time_point until) {
    CWatch watch(agent, onAway, onInterrupt);
    watch.Through([&] { watch.Connect(); });
    if (!watch.HasEvents()) throw CFailure(EExit::Refused, "the agent offers no events");
    while (Clock::now() < until) {
        apigen::Optional<SBaseEvent> event;
        watch.Through([&] { event = watch.NextEvent(onUnreadable); });
        if (event && !onEvent(*event)) return;
    }
}

}  // namespace zamctl
