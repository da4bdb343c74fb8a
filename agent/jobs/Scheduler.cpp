// SPDX-License-Identifier: Apache-2.0
// What begins by itself: runs that schedules promise, and awaited retries.
#include <algorithm>
#include <utility>

#include "agent/core/Schedule.h"
#include "agent/core/Sessions.h"
#include "agent/jobs/CAgentImpl.h"
#include "support/common/Text.h"

namespace tarvo {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else
using apigen::common::Escaped;
using std::chrono::milliseconds;

namespace {

/// The host's clock is looked at anew after that time at least, whatever has become of it.
constexpr auto LongestSleep = std::chrono::seconds(60);

milliseconds RetryAfter(const SJob& job) {
    const auto& retries = job.Config.RetriesInfo;
    return milliseconds(static_cast<long>(retries ? std::min(retries->TimeoutMs, 1UL << 40) : 0));
}

[[noreturn]] void ThrowClaimed() {
    throw CStateError(EStateFault::Other, "the promise was claimed by another process");
}

}  // namespace

void CAgent::Impl::RunScheduler() {
    for (;;) {
        try {
            ReapThreads();
            DoDue();
        } catch (const std::exception& error) {
            m_log.Error("The scheduler has failed and tries again: " + Escaped(error.what()));
        }
        auto lock = LockState();
        if (m_isEnding) return;
        lock.unlock();
        const Moment now = m_clock.Now();
        const auto next = NextMoment(now);
        auto sleep = next ? std::clamp<milliseconds>(*next - now, milliseconds(0), LongestSleep)
                          : milliseconds(LongestSleep);
        {
            const std::lock_guard changes(m_changes);
            if (!m_unwritten.empty()) sleep = std::min<milliseconds>(sleep, std::chrono::seconds(1));
        }
        lock.lock();
        m_wake.wait_for(lock, sleep, [&] { return m_isWoken || m_isEnding; });
        m_isWoken = false;
        if (m_isEnding) return;
    }
}

std::vector<SJob> CAgent::Impl::ScheduledJobs() const {
    const auto lock = LockState();
    std::vector<SJob> jobs;
    if (!m_isSchedulerAllowed) return jobs;
    for (const auto& job : m_jobs) {
        if (job.IsEnabled && (job.Config.ScheduleInfo.IsEnabled || job.CatchUp)) jobs.push_back(job);
    }
    return jobs;
}

std::optional<Moment> CAgent::Impl::NextMoment(Moment now) {
    std::optional<Moment> next;
    const auto consider = [&](Moment moment) {
        // What is due and didn't happen has failed: not at once again.
        const Moment soonest = now + std::chrono::seconds(1);
        if (!next || std::max(moment, soonest) < *next) next = std::max(moment, soonest);
    };
    const auto jitter = Settings().Jitter;
    for (const auto& job : ScheduledJobs()) {
        const auto promise = PromiseOf(job.Config.ScheduleInfo, job.PromisedUntil, now, m_clock);
        if (promise.Due) consider(*promise.Due + JitterOf(job.Id, *promise.Due, jitter));
        if (promise.Next) consider(*promise.Next + JitterOf(job.Id, *promise.Next, jitter));
        if (job.CatchUp) consider(now);
    }
    const auto lock = LockState();
    for (const auto& [job, active] : m_active) {
        if (active->Session.RetryAt) consider(*active->Session.RetryAt);
    }
    return next;
}

void CAgent::Impl::DoDue() {
    {
        const std::lock_guard changes(m_changes);
        WriteEndings(false);
    }
    std::vector<ActivePtr> waiting;
    {
        const auto lock = LockState();
        for (const auto& [job, active] : m_active) {
            if (active->Session.AwaitsRetry()) waiting.push_back(active);
        }
    }
    const Moment now = m_clock.Now();
    for (const auto& active : waiting) {
        try {
            RetryDue(active, now);
        } catch (const std::exception& error) {
            m_log.Error("A retry can't be started: " + Escaped(error.what()));
        }
    }
    for (const auto& job : ScheduledJobs()) {
        try {
            DoDueOf(job, now);
        } catch (const std::exception& error) {
            m_log.Error("The schedule of " + Described(job) + " can't be kept: " + Escaped(error.what()));
        }
    }
}

void CAgent::Impl::RetryDue(const ActivePtr& active, Moment now) {
    const std::lock_guard changes(m_changes);
    const SSession previous = active->Session;
    const auto found = m_active.find(previous.Info.JobUid);
    if (found == m_active.end() || found->second != active || !previous.RetryAt) return;
    const SJob* const job = FindById(m_jobs, previous.Info.JobUid);
    if (job == nullptr || !IsRetryDue(*previous.RetryAt, RetryAfter(*job), now)) return;
    {
        const auto lock = LockState();
        if (m_isEnding) return;
    }
    SSession over = previous;
    over.RetryAt.reset();
    over.Info.RetriesInfo->IsJobAwaitingForRetry = false;
    over.Info.Usn = ++m_usn;
    Begin(*job, previous.Options, previous.Origin, &previous, false,
          [&](SJob& /*job*/) { m_store.SaveSession(over); });
}

void CAgent::Impl::DoDueOf(const SJob& seen, Moment now) {
    auto promise = PromiseOf(seen.Config.ScheduleInfo, seen.PromisedUntil, now, m_clock);
    if (promise.Due && now < *promise.Due + JitterOf(seen.Id, *promise.Due, Settings().Jitter)) {
        promise.Due.reset();
    }
    if (!promise.Due && !seen.CatchUp) return;

    const std::lock_guard changes(m_changes);
    const SJob* const known = FindById(m_jobs, seen.Id);
    if (known == nullptr || !known->IsEnabled || !m_isSchedulerAllowed ||
        known->PromisedUntil != seen.PromisedUntil || known->CatchUp != seen.CatchUp) {
        return;  // it has changed meanwhile, and we are woken for that
    }
    SJob job = *known;
    const auto running = m_active.find(job.Id);
    if (running != m_active.end()) {
        if (!promise.Due) return;  // what is to be caught up waits
        const std::string text =
            "A run that the schedule asked for meanwhile is skipped: this one had not ended";
        AmendLocked(*running->second, {}, {LogLine(ELogDetailType::Warning, text)}, [&] {
            if (!m_store.ClaimPromise(job.Id, job.PromisedUntil, *promise.Due, promise.Next)) ThrowClaimed();
        });
        job.PromisedUntil = *promise.Due;
        job.NextRun = promise.Next;
        ShowJob(job);
        m_log.Warning("A scheduled run of " + Described(job) + " is skipped: the one before has not ended");
        return;
    }
    const Moment expected = job.PromisedUntil;
    const Moment promised = promise.Due ? *promise.Due : *job.CatchUp;
    const SOrigin origin{SOrigin::EKind::Scheduler, {}, {}, promised};
    m_log.Info("The schedule starts " + Described(job));
    Begin(std::move(job), {}, origin, nullptr, false, [&](SJob& claimed) {
        if (promise.Due) {
            if (!m_store.ClaimPromise(claimed.Id, expected, *promise.Due, promise.Next)) ThrowClaimed();
            claimed.PromisedUntil = *promise.Due;
            claimed.NextRun = promise.Next;
        }
        claimed.CatchUp.reset();
    });
}

}  // namespace tarvo
