// SPDX-License-Identifier: Apache-2.0
#include <apigen/CInterruptibleIoDev.h>

#include <utility>

#include "support/common/CDescriptorDevice.h"

namespace apigen {

using common::CDescriptor;
using common::CDescriptorDevice;

class CInterruptibleIoDev::Impl {
public:
    explicit Impl(std::unique_ptr<CDescriptorDevice> device) noexcept : Device(std::move(device)) {}

    const std::unique_ptr<CDescriptorDevice> Device;
};

CInterruptibleIoDev::CInterruptibleIoDev(int fd) {
    CDescriptor socket(fd);  // closed by whatever fails
    m_impl = std::make_unique<Impl>(std::make_unique<CDescriptorDevice>(std::move(socket)));
}

CInterruptibleIoDev::CInterruptibleIoDev(int readFd, int writeFd) {
    CDescriptor read(readFd);
    CDescriptor write(writeFd);
    m_impl = std::make_unique<Impl>(CDescriptorDevice::OfPair(std::move(read), std::move(write)));
}

CInterruptibleIoDev::~CInterruptibleIoDev() = default;

void CInterruptibleIoDev::AddEvent(std::shared_ptr<io::event::IEvent> event) {
    m_impl->Device->AddEvent(std::move(event));
}

std::string CInterruptibleIoDev::ReadRawText(unsigned long maxBytes, bool& flag) {
    return m_impl->Device->ReadRawText(maxBytes, flag);
}

std::string CInterruptibleIoDev::ReadString() {
    return m_impl->Device->ReadString();
}

std::string_view CInterruptibleIoDev::ReadView() {
    return m_impl->Device->ReadView();
}

void CInterruptibleIoDev::WriteString(const std::string& text) {
    m_impl->Device->WriteString(text);
}

void CInterruptibleIoDev::WriteLater(const std::string& text) {
    m_impl->Device->WriteLater(text);
}

void CInterruptibleIoDev::SendQueued() {
    m_impl->Device->SendQueued();
}

void CInterruptibleIoDev::SetEvent(const io::event::IEvent* event) {
    m_impl->Device->SetEvent(event);
}

std::string CInterruptibleIoDev::Peer() const {
    return m_impl->Device->Peer();
}

std::string CInterruptibleIoDev::WhyEnded() {
    return m_impl->Device->WhyEnded();
}

void CInterruptibleIoDev::SetDeadline(Clock::time_point deadline) {
    m_impl->Device->SetDeadline(deadline);
}

}  // namespace apigen
