// SPDX-License-Identifier: Apache-2.0
/// \file
/// Framed messages on a channel.
#pragma once

#include <apigen/Export.h>

#include <poll.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/common/CByteQueue.h"
#include "support/common/CChannel.h"
#include "support/common/Waiting.h"

namespace apigen::common {

/// What a stream has to know of the device that it belongs to.
class APIGEN_API IStreamOwner {
public:
    virtual ~IStreamOwner() = default;

    /// The peer's name for messages.
    virtual std::string Peer() const = 0;

    /// Asked before every system call; throws to end the operation.
    virtual void Check() {}

    /// Appends what else is to be watched while the stream waits.
    virtual void Watch(std::vector<pollfd>& /*set*/) {}

    /// The stream has waited; what `Watch` named may be ready.
    virtual void Woken() {}

    /// Whether the peer is no more, though others may hold its ends open. Asked after a wait in vain.
    virtual bool HasPeerEnded() { return false; }

    /// What became of a peer that is gone, and its last words; a sentence to append, or empty.
    virtual std::string Fate() { return {}; }

    /// The last words alone.
    virtual std::string LastWords() { return {}; }
};

/// Reads and writes frames. Owns no descriptor.
///
/// A small message is written and read in one piece each; one read may bring many. Writing takes in what
/// arrives meanwhile, so two peers that both write first don't block each other. An operation that was
/// ended by its deadline or by the owner in the middle of a message can be taken up again when it was a
/// read; after half a written message the stream refuses to be used.
class APIGEN_API CFrameStream {
public:
    CFrameStream(CChannel channel, IStreamOwner& owner) noexcept : m_channel(channel), m_owner(owner) {}
    CFrameStream(const CFrameStream&) = delete;
    CFrameStream& operator=(const CFrameStream&) = delete;

    void SetDeadline(Clock::time_point deadline) noexcept { m_deadline = deadline; }
    Clock::time_point Deadline() const noexcept { return m_deadline; }

    std::string ReadString();
    /// The same without a copy, for a message that is looked at once: valid until the next operation.
    std::string_view ReadView();
    std::string ReadRawText(std::size_t maxBytes, bool& ended);
    void WriteString(std::string_view text);

    /// From now on every operation throws PeerGoneError with this reason; the first reason stays.
    void GiveUp(std::string_view reason) noexcept;

private:
    void BeginOperation(const char* action);
    bool BeginMessage();
    std::string ReadRest();
    void RefuseOverlong(unsigned long length);
    void SendAll(std::string_view text);

    /// Both return 0 at the end of the input.
    std::size_t Receive(char* into, std::size_t room);
    std::size_t ReceiveIntoQueue();
    void ReceiveAhead();

    /// Waits until the stream can go on, or, while it writes, until something can be read; true in that case.
    bool Wait(bool forWriting);
    bool IsReadable() const;

    std::string Cannot(std::string_view why) const;
    std::string Progress() const;
    [[noreturn]] void ThrowTimeout(const std::string& progress);
    [[noreturn]] void ThrowGone(const std::string& why);

    CChannel m_channel;
    IStreamOwner& m_owner;
    Clock::time_point m_deadline = Clock::time_point::max();

    const char* m_action = "";
    bool m_continued = false;  // the operation has made its first receive
    bool m_inputEnded = false;
    bool m_givenUp = false;
    std::string m_reason;

    CByteQueue m_input;
    std::size_t m_viewed = 0;  // how many bytes of it are done with when the next operation begins
    std::string m_longView;    // a message that was handed out as a view and is in no queue
    std::vector<pollfd> m_pollSet;

    // The message that is being read: its announced length, and what has come of it.
    bool m_inMessage = false;
    std::size_t m_length = 0;
    std::string m_message;
};

}  // namespace apigen::common
