// SPDX-License-Identifier: Apache-2.0
#include "support/common/CDescriptorDevice.h"

#include <apigen/ApiException.h>

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <system_error>

namespace apigen::common {

namespace {

void MakeNonBlocking(const CDescriptor& descriptor) {
    const int flags = ::fcntl(descriptor.Get(), F_GETFL);
    if (flags < 0 || ::fcntl(descriptor.Get(), F_SETFL, flags | O_NONBLOCK) != 0)
        throw std::system_error(errno, std::generic_category(), "Cannot make a device of a descriptor");
}

}  // namespace

std::unique_ptr<CDescriptorDevice> CDescriptorDevice::OfPair(CDescriptor read, CDescriptor write) {
    MakeNonBlocking(read);
    MakeNonBlocking(write);
    const auto channel = CChannel::Pipes(read.Get(), write.Get());
    return std::unique_ptr<CDescriptorDevice>(
        new CDescriptorDevice(std::move(read), std::move(write), channel));
}

std::unique_ptr<CDescriptorDevice> CDescriptorDevice::OfStandardStreams(CDescriptor read, CDescriptor write) {
    const auto channel = CChannel::AsTheyAre(read.Get(), write.Get());
    return std::unique_ptr<CDescriptorDevice>(
        new CDescriptorDevice(std::move(read), std::move(write), channel));
}

void CDescriptorDevice::AddEvent(std::shared_ptr<io::event::IEvent> event) {
    if (!event) throw ApiInternalError("Cannot register an event with a device: there is none");
    m_events.push_back(std::move(event));
}

std::string CDescriptorDevice::ReadRawText(unsigned long maxBytes, bool& flag) {
    return Checked().ReadRawText(maxBytes, flag);
}

std::string CDescriptorDevice::ReadString() {
    return Checked().ReadString();
}

std::string_view CDescriptorDevice::ReadView() {
    return Checked().ReadView();
}

void CDescriptorDevice::WriteString(const std::string& text) {
    Checked().WriteString(text);
}

void CDescriptorDevice::WriteLater(const std::string& text) {
    Checked().WriteLater(text);
}

void CDescriptorDevice::SendQueued() {
    Checked().SendQueued();
}

/// The stream, unless an event has ended its use.
CFrameStream& CDescriptorDevice::Checked() {
    for (const auto& event : m_events)
        if (event->IsSet()) throw InterruptedError("The socket's use was interrupted: " + event->Reason());
    return m_stream;
}

std::string CDescriptorDevice::WhyEnded() {
    auto set = m_stream.PollSet(POLLIN);
    set[0].events |= POLLRDHUP;
    ::poll(set.data(), set.size(), 0);
    return (set[0].revents & (POLLHUP | POLLRDHUP | POLLERR)) != 0 ? Peer() + " has closed the stream"
                                                                   : std::string();
}

short CDescriptorDevice::Wait(short events, Clock::time_point deadline) {
    const auto ends = m_stream.PollSet(events);
    auto& set = m_pollSet;
    set.assign(ends.begin(), ends.end());
    set.push_back(m_stream.EventToPoll());
    for (const auto& event : m_events)
        set.push_back({event->Descriptor(), POLLIN, 0});
    for (;;) {
        PollPatiently(set.data(), set.size(), PollTimeout(deadline));
        Checked();
        const short ready = CChannel::Ready(set.data());
        if (ready != 0 || IsPast(deadline) || m_stream.IsInterrupted()) return ready;
    }
}

}  // namespace apigen::common
