// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>

#include <chrono>
#include <string>
#include <string_view>

namespace apigen APIGEN_API {

namespace io {
namespace event {
class IEvent;
}
}  // namespace io

/// A byte stream to another process, with the framing of messages on it: a 4-byte little-endian length,
/// then that many bytes.
///
/// One thread at a time. Waiting is bounded by the device's deadline. A read that was ended by the deadline
/// or by an event may be repeated and goes on where it stopped; a message that was sent by half, or a
/// BrokenMessageError, makes every later operation fail with PeerGoneError.
class IIoDev {
public:
    /// The largest message in bytes, either way.
    static constexpr unsigned long MaxMessageBytes = 256UL * 1024 * 1024;

    using Clock = std::chrono::steady_clock;

    virtual ~IIoDev() = default;

    /// Reads up to `maxBytes` bytes of unframed output, until it ends.
    /// \param flag set to true when the output ended, to false when the limit cut it.
    virtual std::string ReadRawText(unsigned long maxBytes, bool& flag) = 0;

    /// Reads one message.
    /// \throws PeerGoneError, BrokenMessageError, TimeoutError or InterruptedError.
    virtual std::string ReadString() = 0;

    /// Sends one message.
    /// \throws PeerGoneError, TimeoutError; ApiInternalError for a message over the limit, of which
    /// nothing is sent.
    virtual void WriteString(const std::string& text) = 0;

    /// Bounds every later operation; `Clock::time_point::max()`, the initial value, means no bound.
    virtual void SetDeadline(Clock::time_point deadline) = 0;

    /// Sends one message, at the latest before the next one or before a read waits. May return before any of it
    /// has gone out.
    virtual void WriteLater(const std::string& text) { WriteString(text); }

    /// Sends, of the messages that are still to go out, what can go without waiting. A failure of it is left for
    /// the next operation to meet.
    virtual void SendQueued() {}

    /// As `ReadString`, without a copy where the device can do so: the message stands in the device, or in `room`,
    /// until either is used again.
    virtual std::string_view ReadMessage(std::string& room) {
        room = ReadString();
        return room;
    }

    /// Once `event` is set, later operations throw InterruptedError where they would have to wait. Null, the initial
    /// value, means that nothing ends them. The event is the caller's; a device may be unable to heed it.
    virtual void SetEvent(const io::event::IEvent* /*event*/) {}

    /// What messages call the other side.
    virtual std::string Peer() const { return "the peer"; }

    /// Why nothing more will come from the other side, as far as a look tells; empty when something may.
    virtual std::string WhyEnded() { return {}; }
};

}  // namespace apigen
