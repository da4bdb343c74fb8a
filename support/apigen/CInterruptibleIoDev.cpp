// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CInterruptibleIoDev.h>

#include <utility>
#include <vector>

#include "support/common/CDescriptor.h"
#include "support/common/CFrameStream.h"

namespace apigen {

class CInterruptibleIoDev::Impl final : public common::IStreamOwner {
public:
    explicit Impl(common::CDescriptor socket) noexcept
        : m_socket(std::move(socket)), m_stream(common::CChannel::Socket(m_socket.Get()), *this) {}

    common::CFrameStream& Stream() noexcept { return m_stream; }

    void AddEvent(std::shared_ptr<io::event::IEvent> event) {
        if (!event) throw ApiInternalError("Cannot register an event with a device: there is none");
        m_events.push_back(std::move(event));
    }

private:
    std::string Peer() const override { return "the peer of the socket"; }

    void Check() override {
        for (const auto& event : m_events)
            if (event->IsSet())
                throw InterruptedError("The socket's use was interrupted: " + event->Reason());
    }

    void Watch(std::vector<pollfd>& set) override {
        for (const auto& event : m_events)
            set.push_back({event->Descriptor(), POLLIN, 0});
    }

    void Woken() override { Check(); }

    common::CDescriptor m_socket;
    std::vector<std::shared_ptr<io::event::IEvent>> m_events;
    common::CFrameStream m_stream;
};

CInterruptibleIoDev::CInterruptibleIoDev(int fd) {
    common::CDescriptor socket(fd);  // closed by whatever fails
    m_impl = std::make_unique<Impl>(std::move(socket));
}

CInterruptibleIoDev::~CInterruptibleIoDev() = default;

void CInterruptibleIoDev::AddEvent(std::shared_ptr<io::event::IEvent> event) {
    m_impl->AddEvent(std::move(event));
}

std::string CInterruptibleIoDev::ReadRawText(unsigned long maxBytes, bool& flag) {
    return m_impl->Stream().ReadRawText(maxBytes, flag);
}

std::string CInterruptibleIoDev::ReadString() {
    return m_impl->Stream().ReadString();
}

std::string_view CInterruptibleIoDev::ReadView() {
    return m_impl->Stream().ReadView();
}

void CInterruptibleIoDev::WriteString(const std::string& text) {
    m_impl->Stream().WriteString(text);
}

void CInterruptibleIoDev::SetDeadline(Clock::time_point deadline) {
    m_impl->Stream().SetDeadline(deadline);
}

}  // namespace apigen
