// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/ApiException.h>
#include <apigen/CAtomicEvent.h>
#include <apigen/CInterruptibleIoDev.h>
#include <apigen/Export.h>
#include <apigen/ILogger.h>
#include <apigen/Optional.h>
#include <apigen/Owned.h>
#include <zamclientlib/EventRecords.h>

#include <chrono>
#include <cstddef>
#include <memory>

namespace zamclientlib APIGEN_API {

/// The agent has ended the stream though it lives and goes on publishing: its reader fell too far behind, and events
/// are lost. Connect anew, and look at what the events would have told.
///
/// It is told apart from an agent that died, or ended its events, by two things: the process that listens at the socket
/// lives 100 ms after the end, and the socket still stands where it was. Where the listening process can't be watched
/// (before Linux 5.3, or in a namespace that shows it to nobody here), the end is a plain apigen::PeerGoneError; where
/// a supervisor listens in the agent's place (socket activation), an agent that died looks like this.
class EventsLostError : public apigen::PeerGoneError {
public:
    using PeerGoneError::PeerGoneError;
};

/// The agent's events, one at a time.
///
/// One thread reads; any thread may call `Stop` and `IsStopped` meanwhile. Independent of the connection that
/// gave the configuration.
///
/// A stream can be moved by the thread that reads. What was moved from reads no more, but its `Stop` still ends the
/// stream: other threads may go on using the object that they know, as long as it is there and nothing is assigned to
/// it.
///
/// A stream belongs to the process that connected it. In a forked one reads throw apigen::ApiInternalError,
/// `Stop` does nothing, and the destructor closes the copies of the descriptors: the other process reads on.
class CEventsStream {
public:
    class CIterator;

    /// Connects to the event source.
    /// \param config what `IZamControl::GetEventConfig` answered
    /// \param logger may be empty
    /// \throws std::runtime_error "Optional has no value" when the agent offers no event source
    /// \throws std::system_error when the socket can't be connected; `ENAMETOOLONG` for a path of more than
    /// 107 bytes, `ENOENT` for an empty one, `EINVAL` for one with a zero byte, `ETIMEDOUT` when the source
    /// has not let another client in for 5 s
    CEventsStream(const SEventConfig& config, std::shared_ptr<apigen::ILogger> logger);
    /// For the thread that reads, as said above.
    CEventsStream(CEventsStream&& other) noexcept;
    /// \copydoc CEventsStream(CEventsStream&&)
    CEventsStream& operator=(CEventsStream&& other) noexcept;
    CEventsStream(const CEventsStream&) = delete;
    CEventsStream& operator=(const CEventsStream&) = delete;
    ~CEventsStream();

    /// Waits for the next event.
    /// \throws apigen::InterruptedError once the stream is stopped, even when events are waiting; EventsLostError when
    /// the agent closed the stream because its reader fell too far behind; another apigen::PeerGoneError when the agent
    /// is gone; apigen::BrokenMessageError; another apigen::ApiInternalError for a message that is no event. After one
    /// whose `IsConnectionLost` is false the next event can be read.
    SBaseEvent Read();

    /// Waits for the next event until `deadline`; empty when none has come by then. Fails as `Read` does.
    /// What has come of an event by the deadline is kept for the next read.
    apigen::Optional<SBaseEvent> ReadUntil(std::chrono::steady_clock::time_point deadline);

    /// Ends the stream for good: a blocked read and every later one throws.
    void Stop();

    /// Whether `Stop` has been called.
    [[nodiscard]] bool IsStopped() const;

    /// For an event loop: readable (`POLLIN`) when a read would not wait for long. Owned by the stream; -1 when it was
    /// moved from.
    ///
    /// One system call may bring many events, of which the descriptor shows nothing any more: after it was
    /// readable, call `ReadUntil` with a deadline that has passed, `steady_clock::now()` say, until it
    /// returns empty, and only then wait for the descriptor again.
    [[nodiscard]] int Descriptor() const noexcept { return m_descriptor; }

    /// `for (const SBaseEvent& event : stream)` reads until the stream is stopped. Any other end, the agent's as well,
    /// is thrown as by `Read`: a loop that just ended would hide it.
    [[nodiscard]] CIterator begin();
    /// The end of every stream: reached when it was stopped.
    [[nodiscard]] CIterator end() noexcept;

private:
    class CSource;
    struct SStop;

    SBaseEvent ReadNext(std::chrono::steady_clock::time_point deadline);

    apigen::detail::COwned<CSource> m_source;  ///< none after a move
    std::shared_ptr<const SStop> m_stop;       ///< stays after a move
    int m_descriptor = -1;
};

/// Reads the next event with each step.
class CEventsStream::CIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = SBaseEvent;
    using difference_type = std::ptrdiff_t;
    using pointer = const SBaseEvent*;
    using reference = const SBaseEvent&;

    CIterator() = default;

    /// The event that was read last; valid until the next step.
    reference operator*() const noexcept { return m_event; }
    /// \copydoc operator*
    pointer operator->() const noexcept { return &m_event; }
    /// Waits for the next event; fails as `Read` does, but ends when the stream is stopped.
    CIterator& operator++();
    /// \copydoc operator++()
    void operator++(int) { ++*this; }

    friend bool operator==(const CIterator& left, const CIterator& right) noexcept {
        return left.m_stream == right.m_stream;
    }
    friend bool operator!=(const CIterator& left, const CIterator& right) noexcept {
        return !(left == right);
    }

private:
    friend class CEventsStream;

    CEventsStream* m_stream = nullptr;  ///< none at the end
    SBaseEvent m_event;
};

}  // namespace zamclientlib
