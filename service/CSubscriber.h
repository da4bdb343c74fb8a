// SPDX-License-Identifier: Apache-2.0
/// \file
/// One connection of an event source.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "support/common/CDescriptor.h"
#include "support/common/FrameHeader.h"
#include "support/common/Waiting.h"

namespace zamservice {

/// A subscriber and the frames that wait for it. Not safe for several threads.
///
/// The operations that return a bool return false once the connection is of no more use.
class CSubscriber {
public:
    using Clock = apigen::common::Clock;

    /// \param connection a non-blocking socket that `epoll` watches for input under `id`
    CSubscriber(apigen::common::CDescriptor connection, int epoll, std::uint64_t id,
                Clock::time_point openingDeadline) noexcept
        : m_connection(std::move(connection)), m_epoll(epoll), m_id(id), m_openingDeadline(openingDeadline) {}

    /// Whether the opening word has come.
    bool IsOpen() const noexcept { return m_opened == apigen::common::HeaderBytes; }

    /// Far away once the connection is open.
    Clock::time_point OpeningDeadline() const noexcept {
        return IsOpen() ? Clock::time_point::max() : m_openingDeadline;
    }

    bool HasQueue() const noexcept { return !m_queue.empty(); }

    /// Takes in what the peer sends: its opening word, an empty message, and nothing else ever.
    bool Receive();

    /// Sends the frame, or queues it as long as no more than `maxQueued` bytes wait.
    bool Send(const std::shared_ptr<const std::string>& frame, std::size_t maxQueued);

    /// Handles what `epoll` reported.
    bool Handle(std::uint32_t events);

    /// Ends the connection, which closing alone would not do while a forked process has a copy of it. Never
    /// to be called in such a process: there the destructor closes the copy.
    void Disconnect() noexcept;

private:
    bool Flush();
    bool UpdateWatch();

    apigen::common::CDescriptor m_connection;
    int m_epoll;
    std::uint64_t m_id;
    Clock::time_point m_openingDeadline;
    std::size_t m_opened = 0;  ///< how many bytes of the opening word have come
    bool m_hasInputEnded = false;
    std::deque<std::shared_ptr<const std::string>> m_queue;
    std::size_t m_sentOfFirst = 0;  ///< how much of the queue's first frame is gone
    std::size_t m_queued = 0;       ///< in bytes
};

}  // namespace zamservice
