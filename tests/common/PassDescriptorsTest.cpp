// SPDX-License-Identifier: Apache-2.0
// Descriptors that are handed to another process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <vector>

#include "support/common/PassDescriptors.h"

namespace tests {
namespace {

using apigen::common::CDescriptor;
using apigen::common::ReceiveWithDescriptors;
using apigen::common::SendWithDescriptors;
using apigen::common::SPassedDescriptors;

std::ptrdiff_t OpenDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return std::distance(begin(folder), end(folder));
}

class CPassedDescriptors : public testing::Test {
protected:
    CPassedDescriptors() {
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        m_ours = CDescriptor(ends[0]);
        m_theirs = CDescriptor(ends[1]);
    }

    ssize_t Receive() { return ReceiveWithDescriptors(m_theirs.Get(), m_bytes, m_passed); }

    CDescriptor m_ours;
    CDescriptor m_theirs;
    std::array<char, 16> m_bytes{};
    SPassedDescriptors m_passed;
};

TEST_F(CPassedDescriptors, ArriveWithTheirBytesInTheirOrderAndAreClosedAcrossExec) {
    const CDescriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    const CDescriptor zero(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(SendWithDescriptors(m_ours.Get(), "word", std::array{null.Get(), zero.Get()}), 4);
    ASSERT_EQ(Receive(), 4);
    EXPECT_EQ(std::string_view(m_bytes.data(), 4), "word");
    EXPECT_FALSE(m_passed.IsTruncated);
    ASSERT_EQ(m_passed.All.size(), 2U);
    const std::array sent{null.Get(), zero.Get()};
    for (std::size_t i = 0; i < sent.size(); ++i) {
        struct stat before {};
        struct stat after {};
        ASSERT_EQ(::fstat(sent[i], &before), 0);
        ASSERT_EQ(::fstat(m_passed.All[i].Get(), &after), 0);
        EXPECT_EQ(before.st_rdev, after.st_rdev);
        EXPECT_NE(::fcntl(m_passed.All[i].Get(), F_GETFD) & FD_CLOEXEC, 0);
    }
}

TEST_F(CPassedDescriptors, ThatAreTooManyAreRefusedOrCutAndNeverLeft) {
    const std::vector<int> tooMany(apigen::common::MaxPassedDescriptors + 1, m_ours.Get());
    EXPECT_EQ(SendWithDescriptors(m_ours.Get(), "w", tooMany), -1);
    EXPECT_EQ(errno, EINVAL);

    // Somebody who keeps to no limit of ours.
    std::vector<char> attachment(CMSG_SPACE(tooMany.size() * sizeof(int)));
    char word = 'w';
    iovec part{&word, 1};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = attachment.data();
    message.msg_controllen = attachment.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(tooMany.size() * sizeof(int));
    std::copy(tooMany.begin(), tooMany.end(), reinterpret_cast<int*>(CMSG_DATA(header)));
    const auto before = OpenDescriptors();
    ASSERT_EQ(::sendmsg(m_ours.Get(), &message, 0), 1);
    ASSERT_EQ(Receive(), 1);
    EXPECT_TRUE(m_passed.IsTruncated);
    EXPECT_LE(m_passed.All.size(), apigen::common::MaxPassedDescriptors + 1);
    m_passed.All.clear();
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(CPassedDescriptors, AreNotWaitedFor) {
    EXPECT_EQ(Receive(), -1);
    EXPECT_EQ(errno, EAGAIN);
    m_ours.Close();
    EXPECT_EQ(Receive(), 0) << "the other end has closed";
}

TEST_F(CPassedDescriptors, ToNobodyFailWithoutASignal) {
    m_theirs.Close();
    EXPECT_EQ(SendWithDescriptors(m_ours.Get(), "w", std::array{m_ours.Get()}), -1);
    EXPECT_EQ(errno, EPIPE);
}

}  // namespace
}  // namespace tests
