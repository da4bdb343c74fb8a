// SPDX-License-Identifier: Apache-2.0
#include "support/common/PassDescriptors.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "support/common/Waiting.h"

namespace apigen::common {

namespace {

struct SAttachment {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(MaxPassedDescriptors * sizeof(int))> Bytes{};
};

}  // namespace

ssize_t SendWithDescriptors(int socket, std::string_view bytes, std::span<const int> descriptors) {
    if (descriptors.size() > MaxPassedDescriptors) {
        errno = EINVAL;
        return -1;
    }
    SAttachment attachment;
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = attachment.Bytes.data();
    message.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(descriptors.size_bytes());
    std::memcpy(CMSG_DATA(header), descriptors.data(), descriptors.size_bytes());
    return RetryInterrupted([&] { return ::sendmsg(socket, &message, MSG_NOSIGNAL); });
}

ssize_t ReceiveWithDescriptors(int socket, std::span<char> into, SPassedDescriptors& passed) {
    // So that nothing can fail between the arrival of descriptors and their having an owner.
    passed.All.reserve(passed.All.size() + MaxPassedDescriptors);
    SAttachment attachment;
    iovec room{into.data(), into.size()};
    msghdr message{};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = attachment.Bytes.data();
    message.msg_controllen = attachment.Bytes.size();
    const ssize_t received =
        RetryInterrupted([&] { return ::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC); });
    if (received < 0) return received;
    passed.IsTruncated = passed.IsTruncated || (message.msg_flags & MSG_CTRUNC) != 0;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(header) + i * sizeof(int), sizeof descriptor);
            passed.All.emplace_back(descriptor);
        }
    }
    return received;
}

}  // namespace apigen::common
