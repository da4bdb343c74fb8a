// SPDX-License-Identifier: Apache-2.0
/// \file
/// The clients that are being served.
#pragma once

#include <zamclientlib/Control.h>

#include <systemd/sd-event.h>

#include <functional>
#include <list>
#include <memory>
#include <string>

#include "agent/core/ILog.h"
#include "agent/core/Values.h"
#include "support/common/CDescriptor.h"

namespace tarvo {

/// Unreferences what belongs to sd-event.
struct SUnref {
    void operator()(sd_event* event) const noexcept { ::sd_event_unref(event); }
    void operator()(sd_event_source* source) const noexcept { ::sd_event_source_disable_unref(source); }
};
using EventPtr = std::unique_ptr<sd_event, SUnref>;
using SourcePtr = std::unique_ptr<sd_event_source, SUnref>;

/// \throws std::system_error when `result` is a negative errno
void CheckEvent(int result, const char* what);

/// The message that greets a client with a failure.
std::string RefusalFrame(const std::string& why);

/// The connections of one daemon, a thread each, which nobody else waits for. Belongs to the thread of its loop.
class CConnections {
public:
    using MakeControl = std::function<std::shared_ptr<zamclientlib::IZamControl>(const SPeer&)>;

    static constexpr std::size_t Limit = 256;

    /// \param wakeSignal comes without an effect of its own; cuts short what a thread waits for
    CConnections(sd_event* loop, MakeControl makeControl, ILog& log, int wakeSignal);
    CConnections(const CConnections&) = delete;
    CConnections& operator=(const CConnections&) = delete;
    ~CConnections();

    /// Takes in who connected to the control socket. One too many, and one of a foreign user, is told why it is
    /// refused.
    void Add(apigen::common::CDescriptor control);

    /// Ends all connections, but a call under way.
    void EndAll();

    /// Takes leave of those that have ended, and wakes those that are to end: what the loop does by itself.
    void Collect() {
        OnNews();
        OnTick();
    }

    bool IsEmpty() const noexcept { return m_all.empty(); }
    std::size_t Size() const noexcept { return m_all.size(); }

private:
    struct SConnection;

    void Receive(SConnection& connection);
    void Begin(SConnection& connection);
    void Serve(SConnection& connection) noexcept;
    void Refuse(SConnection& connection, const std::string& why);
    void End(SConnection& connection, const char* why);
    void Drop(SConnection& connection);
    void OnNews();
    void OnTick();
    void SetTick(bool isOn);

    sd_event* m_loop;
    MakeControl m_makeControl;
    ILog& m_log;
    const int m_wakeSignal;
    std::list<std::unique_ptr<SConnection>> m_all;
    apigen::common::CDescriptor m_news;  ///< an eventfd: a thread has ended
    SourcePtr m_newsSource;
    SourcePtr m_tick;  ///< while a connection is ending or has not said its word yet
};

}  // namespace tarvo
