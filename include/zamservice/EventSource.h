// SPDX-License-Identifier: Apache-2.0
/// \file
/// Where a service publishes its events; `zamclientlib::CEventsStream` is the other end.
#pragma once

#include <apigen/Export.h>
#include <zamclientlib/EventRecords.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace zamservice APIGEN_API {

/// The bounds of an event source. A time below zero is as zero; one that ends after the clock's last moment
/// means no limit.
struct SEventSourceOptions {
    /// What may wait for one subscriber, in bytes. A subscriber that falls further behind is disconnected.
    std::size_t MaxQueuedBytes = 4UL * 1024 * 1024;

    /// Connections beyond this number are closed at once.
    std::size_t MaxSubscribers = 256;

    /// How long a connection may take to send its opening word.
    std::chrono::milliseconds OpeningLimit{5000};

    /// How long the end of the source waits for subscribers to take what is queued.
    std::chrono::milliseconds FlushLimit{500};

    /// How long the beginning of the source waits for another process that is starting one in the directory.
    std::chrono::milliseconds StartLimit{5000};
};

/// A Unix-domain socket on which a service publishes its events.
///
/// Only processes of the service's own user and of root may subscribe. A subscriber gets every event that is
/// published after it connected, in one order for all, as long as it keeps up: one whose queue is full is
/// disconnected, so that a gap never goes unnoticed. A slow subscriber delays neither the service nor the
/// others. Every method may be called from any thread. The source has one thread of its own, in which every
/// signal is blocked.
///
/// While the process or the system is out of descriptors or memory, clients are turned away or left waiting;
/// the source goes on by itself.
///
/// A source belongs to the process that made it. In a forked one it has no subscribers, `Publish` throws
/// apigen::ApiInternalError, and its end or `Stop` leave socket and subscribers to the other process.
class CEventSource {
public:
    /// Listens on the socket `name` in `directory`.
    ///
    /// A relative directory is taken from the working directory of this moment. A missing one is made, but
    /// not its parents. One that others can enter is closed to them, unless it holds anything else: then it is
    /// refused, as is one of another user. A socket that a process left behind is replaced; one on which a
    /// process listens is refused. A link is refused in either place.
    /// \param name without a `/`
    /// \throws std::system_error saying what failed; `ENAMETOOLONG` for a path of more than 107 bytes
    explicit CEventSource(const std::string& directory, const std::string& name = "events.sock",
                          const SEventSourceOptions& options = {});
    CEventSource(const CEventSource&) = delete;
    CEventSource& operator=(const CEventSource&) = delete;

    /// As `Stop`.
    ~CEventSource();

    /// Sends `event` to every subscriber. Never waits for one.
    /// \throws apigen::ApiInternalError for an event that is too large to be a message, and in a forked
    /// process; nobody gets it
    void Publish(const zamclientlib::SBaseEvent& event);

    /// Absolute.
    const std::string& SocketPath() const noexcept;

    /// The answer to `IZamControl::GetEventConfig`.
    [[nodiscard]] zamclientlib::SEventConfig Config() const;

    /// How many subscribers have sent their opening word and are still there.
    std::size_t SubscriberCount() const;

    /// Ends the source: removes the socket, gives subscribers a short time to take what is queued, and
    /// disconnects them. Later events go nowhere.
    void Stop() noexcept;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace zamservice
