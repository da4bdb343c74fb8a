// SPDX-License-Identifier: Apache-2.0
// What the bytes below a stream of messages do when the other end is gone, or full.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "support/common/CChannel.h"
#include "support/common/CDescriptor.h"
#include "support/common/CDescriptorDevice.h"

namespace {

using apigen::common::CChannel;
using apigen::common::CDescriptor;
using apigen::common::WriteWithSignalHeld;

/// A pipe with non-blocking ends. SIGPIPE has its default meaning meanwhile: it ends the test program.
class ChannelTest : public testing::Test {
protected:
    ChannelTest() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) ADD_FAILURE() << "pipe2";
        m_read = CDescriptor(ends[0]);
        m_write = CDescriptor(ends[1]);
        m_before = ::signal(SIGPIPE, SIG_DFL);
    }
    ~ChannelTest() override { ::signal(SIGPIPE, m_before); }

    static bool IsBrokenPipePending() {
        sigset_t pending;
        ::sigpending(&pending);
        return ::sigismember(&pending, SIGPIPE) == 1;
    }

    static bool IsBrokenPipeBlocked() {
        sigset_t mask;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return ::sigismember(&mask, SIGPIPE) == 1;
    }

    static void BlockBrokenPipe(int how) {
        sigset_t set;
        ::sigemptyset(&set);
        ::sigaddset(&set, SIGPIPE);
        ::pthread_sigmask(how, &set, nullptr);
    }

    CDescriptor m_read;
    CDescriptor m_write;
    iovec m_word{const_cast<char*>("word"), 4};

private:
    void (*m_before)(int) = SIG_DFL;
};

TEST_F(ChannelTest, APipeCarriesWhatIsWritten) {
    const auto channel = CChannel::Pipes(m_read.Get(), m_write.Get());
    char text[16];
    EXPECT_EQ(channel.Write(&m_word, 1), 4);
    EXPECT_EQ(channel.Read(text, sizeof text), 4);
    EXPECT_EQ(std::string(text, 4), "word");
}

TEST_F(ChannelTest, AnEmptyOrAFullPipeIsNotWaitedFor) {
    const auto channel = CChannel::Pipes(m_read.Get(), m_write.Get());
    std::string block(1 << 20, 'x');
    const iovec big{block.data(), block.size()};
    EXPECT_EQ(channel.Read(block.data(), 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GT(channel.Write(&big, 1), 0);
    EXPECT_EQ(channel.Write(&m_word, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(ChannelTest, APipeWithoutAReaderGivesAnErrorAndNoSignal) {
    const auto channel = CChannel::Pipes(m_read.Get(), m_write.Get());
    m_read.Close();
    EXPECT_EQ(channel.Write(&m_word, 1), -1);
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(ChannelTest, ASystemWithoutTheFlagGivesAnErrorAndNoSignalEither) {
    m_read.Close();
    EXPECT_EQ(WriteWithSignalHeld(m_write.Get(), &m_word, 1), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_FALSE(IsBrokenPipePending());
    EXPECT_FALSE(IsBrokenPipeBlocked());
}

TEST_F(ChannelTest, ASignalThatTheCallerHoldsBackStaysItsOwn) {
    m_read.Close();
    BlockBrokenPipe(SIG_BLOCK);
    EXPECT_EQ(WriteWithSignalHeld(m_write.Get(), &m_word, 1), -1);
    EXPECT_FALSE(IsBrokenPipePending());

    ::raise(SIGPIPE);
    EXPECT_EQ(WriteWithSignalHeld(m_write.Get(), &m_word, 1), -1);
    EXPECT_TRUE(IsBrokenPipePending());
    EXPECT_TRUE(IsBrokenPipeBlocked());

    ::signal(SIGPIPE, SIG_IGN);  // drops what is pending
    BlockBrokenPipe(SIG_UNBLOCK);
}

// Each of ten thousand releases asked a full pipe anew whether it had room: two system calls each, for nothing.
TEST_F(ChannelTest, MessagesThatFoundThePipeFullGoOutWithTheNextFewOnceItHasRoom) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const CDescriptor silent(ends[1]);
    const auto device =
        apigen::common::CDescriptorDevice::OfPair(CDescriptor(ends[0]), CDescriptor(std::move(m_write)));
    const std::string text(60, 'x');
    std::size_t queued = 0;
    const auto queue = [&] {
        device->WriteLater(text);
        device->SendQueued();
        queued += 4 + text.size();
    };
    std::size_t received = 0;
    const auto receive = [&] {
        std::string bytes(1'000'000, '\0');
        const ssize_t count = ::read(m_read.Get(), bytes.data(), bytes.size());
        if (count > 0) received += static_cast<std::size_t>(count);
        return count > 0;
    };

    while (queued < 100'000)
        queue();
    ASSERT_TRUE(receive());
    ASSERT_LT(received, queued) << "the pipe was meant to be full";
    for (int i = 0; i < 20 && received < queued; ++i) {
        queue();
        receive();
    }
    EXPECT_EQ(received, queued);
}

}  // namespace
