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

/// The bounds of an event source.
struct SEventSourceOptions {
    /// What may wait for one subscriber, in bytes. A subscriber that falls further behind is disconnected.
    std::size_t MaxQueuedBytes = 4UL * 1024 * 1024;

    /// Connections beyond this number are closed at once.
    std::size_t MaxSubscribers = 256;

    /// How long a connection may take to send its opening word.
    std::chrono::milliseconds OpeningLimit{5000};

    /// How long the end of the source waits for subscribers to take what is queued.
    std::chrono::milliseconds FlushLimit{500};
};

/// A Unix-domain socket on which a service publishes its events.
///
/// Only processes of the service's own user and of root may subscribe. A subscriber gets every event that is
/// published after it connected, in one order for all, as long as it keeps up: one whose queue is full is
/// disconnected, so that a gap never goes unnoticed. A slow subscriber delays neither the service nor the
/// others. Every method may be called from any thread. The source has one thread of its own.
class CEventSource {
public:
    /// Listens on the socket `name` in `directory`.
    ///
    /// A missing directory is made, but not its parents. One that others can enter is closed to them, unless
    /// it holds anything else: then it is refused, as is one of another user. A socket that a process left
    /// behind is replaced; one on which a process listens is refused.
    /// \throws std::system_error saying what failed; `ENAMETOOLONG` for a path of more than 107 bytes
    explicit CEventSource(const std::string& directory, const std::string& name = "events.sock",
                          const SEventSourceOptions& options = {});
    CEventSource(const CEventSource&) = delete;
    CEventSource& operator=(const CEventSource&) = delete;

    /// As `Stop`.
    ~CEventSource();

    /// Sends `event` to every subscriber. Never waits for one.
    /// \throws apigen::ApiInternalError for an event that is too large to be a message; nobody gets it
    void Publish(const zamclientlib::SBaseEvent& event);

    const std::string& SocketPath() const noexcept;

    /// The answer to `IZamControl::GetEventConfig`.
    zamclientlib::SEventConfig Config() const;

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
