// SPDX-License-Identifier: Apache-2.0
// What the bytes below a stream of messages do when the other end is gone, or full.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "support/common/CChannel.h"
#include "support/common/CDescriptor.h"

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

}  // namespace
