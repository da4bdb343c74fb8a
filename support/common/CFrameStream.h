// SPDX-License-Identifier: Apache-2.0
/// \file
/// Framed messages on a channel.
#pragma once

#include <apigen/CAtomicEvent.h>
#include <apigen/Export.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "support/common/CChannel.h"
#include "support/common/CMessageAssembler.h"
#include "support/common/ProcessMark.h"
#include "support/common/Waiting.h"

namespace apigen::common {

/// What a stream leaves to the device that it belongs to.
class APIGEN_API IStreamOwner {
public:
    virtual ~IStreamOwner() = default;

    /// The peer's name for messages.
    virtual std::string Peer() const = 0;

    /// Waits until the stream's channel can be used as `events` (POLLIN, POLLOUT) say.
    /// \return what it can be used for, or 0 once the stream is interrupted; POLLHUP when the peer has ended and nothing more will come, though others
    ///         may hold its ends open; 0 when the deadline has passed
    /// \throws what is to end the operation
    virtual short Wait(short events, Clock::time_point deadline) = 0;

    /// Sentences to append to the message of a failure: the peer's last words, and what became of a peer that
    /// `isGone`.
    virtual std::string Epitaph(bool /*isGone*/) { return {}; }
};

/// Reads and writes frames. Owns no descriptor. Serves no copy of its process that was made by `fork`.
///
/// Reading: bytes go from the channel into the assembler, messages come out of it. A read that was ended early
/// can be taken up again.
///
/// Writing: what is to go out is put behind `m_output`, which goes out from its front, if possible in one piece.
/// Meanwhile the stream takes in what arrives, so two peers that both write first don't block each other. Half a
/// message is the end of the stream: every later operation is refused. A message that was not begun is taken back.
class APIGEN_API CFrameStream {
public:
    CFrameStream(CChannel channel, IStreamOwner& owner) noexcept : m_channel(channel), m_owner(owner) {}
    CFrameStream(const CFrameStream&) = delete;
    CFrameStream& operator=(const CFrameStream&) = delete;

    void SetDeadline(Clock::time_point deadline) noexcept { m_deadline = deadline; }
    Clock::time_point Deadline() const noexcept { return m_deadline; }

    /// Once it is set, an operation that would have to wait throws InterruptedError; null for none.
    void SetEvent(const io::event::IEvent* event) noexcept { m_event = event; }
    const io::event::IEvent* Event() const noexcept { return m_event; }
    /// For the owner to wait for as well.
    pollfd EventToPoll() const;
    bool IsInterrupted() const;

    std::string ReadString();
    /// The same without a copy, for a message that is looked at once: valid until the next operation.
    std::string_view ReadView();
    /// The same, but of a message that did not come in one piece: that one gets into `room`.
    std::string_view ReadMessage(std::string& room);
    std::string ReadRawText(std::size_t maxBytes, bool& ended);

    void WriteString(std::string_view text);
    /// The message waits for the next one, or for the next time that the stream asks for input. Sends nothing.
    void WriteLater(std::string_view text);
    /// Sends of what waits as much as goes at once, on a channel that does not block; while that is full, only now and
    /// then. A failure of it shows in the next operation.
    void SendQueued();

    std::array<pollfd, 2> PollSet(short events) const noexcept { return m_channel.PollSet(events); }

    /// For the side that is sent secrets: from now on, what has been read stays nowhere but with the reader.
    void WipeInput() noexcept { m_input.Wipe(); }

    /// From now on every operation throws PeerGoneError with this reason; the first reason stays.
    void GiveUp(std::string_view reason) noexcept;

private:
    class COutgoing;

    void Begin(const char* action);
    void BeginMessage(std::string_view text);
    void AwaitMessage();
    bool Receive();
    bool MayReceiveAhead() const noexcept;
    bool ReceiveAhead();

    void Send(std::string_view text);
    bool SendSome(std::string_view& text);

    [[noreturn]] void ThrowOverlong();
    [[noreturn]] void ThrowEnded();
    [[noreturn]] void ThrowClosed(const char* how);
    [[noreturn]] void ThrowTimeout();
    [[noreturn]] void ThrowInterrupted();
    [[noreturn]] void ThrowUnready();
    [[noreturn]] void ThrowGone(const std::string& why);
    std::string Cannot(std::string_view why) const;
    std::string Progress() const;

    CChannel m_channel;
    IStreamOwner& m_owner;
    const io::event::IEvent* m_event = nullptr;
    Clock::time_point m_deadline = Clock::time_point::max();
    CProcessMark m_origin;
    std::optional<std::string> m_lost;  // why the stream is not to be used any more

    const char* m_action = "";       // of the operation under way, for messages
    bool m_isContinued = false;      // it has received before
    bool m_isAnswerAwaited = false;  // nothing has come since something was sent
    const char* m_end = nullptr;     // how the input ended

    CMessageAssembler m_input;
    std::string m_output;
    std::size_t m_sent = 0;     // how much of it is gone
    std::size_t m_nextTry = 0;  // how large it has to be for the next try to send it without waiting
};

}  // namespace apigen::common
