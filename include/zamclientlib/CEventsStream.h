// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/CAtomicEvent.h>
#include <apigen/CInterruptibleIoDev.h>
#include <apigen/Export.h>
#include <apigen/ILogger.h>
#include <apigen/Optional.h>
#include <zamclientlib/EventRecords.h>

#include <chrono>
#include <cstdint>
#include <memory>

namespace zamclientlib APIGEN_API {

/// The agent's events, one at a time.
///
/// One thread reads; any thread may call `Stop` and `IsStopped` meanwhile. Independent of the connection that
/// gave the configuration.
///
/// A stream belongs to the process that connected it. In a forked one reads throw apigen::ApiInternalError,
/// `Stop` does nothing, and the destructor closes the copies of the descriptors: the other process reads on.
class CEventsStream {
public:
    /// Connects to the event source.
    /// \param config what `IZamControl::GetEventConfig` answered
    /// \param logger may be empty
    /// \throws std::runtime_error "Optional has no value" when the agent offers no event source
    /// \throws std::system_error when the socket can't be connected; `ENAMETOOLONG` for a path of more than
    /// 107 bytes, `ENOENT` for an empty one, `EINVAL` for one with a zero byte, `ETIMEDOUT` when the source
    /// has not let another client in for 5 s
    CEventsStream(const SEventConfig& config, std::shared_ptr<apigen::ILogger> logger);
    CEventsStream(const CEventsStream&) = delete;
    CEventsStream& operator=(const CEventsStream&) = delete;
    ~CEventsStream();

    /// Waits for the next event.
    /// \throws apigen::InterruptedError once the stream is stopped, even when events are waiting;
    /// apigen::PeerGoneError when the agent closed the stream (it does that to a reader that fell too far
    /// behind); apigen::BrokenMessageError; another apigen::ApiInternalError for a message that is no event.
    SBaseEvent Read();

    /// Waits for the next event until `deadline`; empty when none has come by then. Fails as `Read` does.
    /// What has come of an event by the deadline is kept for the next read.
    apigen::Optional<SBaseEvent> ReadUntil(std::chrono::steady_clock::time_point deadline);

    /// Ends the stream for good: a blocked read and every later one throws.
    void Stop();

    bool IsStopped() const;

    /// For an event loop: readable (`POLLIN`) when a read would not wait for long. Owned by the stream.
    ///
    /// One system call may bring many events, of which the descriptor shows nothing any more: after it was
    /// readable, call `ReadUntil` with a deadline that has passed, `steady_clock::now()` say, until it
    /// returns empty, and only then wait for the descriptor again.
    int Descriptor() const noexcept { return m_descriptor; }

private:
    SBaseEvent ReadNext();
    bool IsOurs() const noexcept;

    std::shared_ptr<apigen::ILogger> m_logger;
    std::shared_ptr<apigen::CInterruptibleIoDev> m_device;
    std::shared_ptr<apigen::io::event::CAtomicEvent> m_stopped;
    int m_descriptor = -1;
    std::uint64_t m_process;
};

}  // namespace zamclientlib
