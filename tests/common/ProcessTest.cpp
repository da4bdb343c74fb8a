// SPDX-License-Identifier: Apache-2.0
/// \file
/// Real children that behave and misbehave. Every test ends with no child left and no descriptor lost.
#include <apigen/ApiException.h>
#include <apigen/CProcess.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tests/MessageOf.h"
#include "tests/Sanitized.h"

namespace apigen {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tests::MessageOf;
using Clock = IIoDev::Clock;
using Environment = std::unordered_map<std::string, std::string>;

const std::string OddToolPath = ODD_TOOL;

std::ptrdiff_t OpenDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return std::distance(begin(folder), end(folder));
}

std::chrono::milliseconds Duration(const std::function<void()>& action) {
    const auto start = Clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

/// Runs `check` in a forked copy of this process, where it may change what belongs to the whole process.
bool HoldsInAProcessOfItsOwn(const std::function<bool()>& check) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::alarm(60);
        bool holds = false;
        try {
            holds = check();
        } catch (...) {
        }
        ::_exit(holds ? 0 : 1);
    }
    int status = -1;
    return ::waitpid(pid, &status, 0) == pid && status == 0;
}

class CMemoryLogger : public ILogger {
public:
    void Info(const std::string& message) override { lines.push_back(message); }
    void Error(const std::string& message, std::exception&) override { lines.push_back("ERROR: " + message); }
    std::vector<std::string> lines;
};

class Process : public testing::Test {
protected:
    Process() : m_descriptors(OpenDescriptors()) {}

    ~Process() override {
        m_process.reset();
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child was left";
        EXPECT_EQ(errno, ECHILD);
        EXPECT_EQ(OpenDescriptors(), m_descriptors) << "a descriptor was lost";
    }

    std::shared_ptr<IIoDev> Start(std::vector<std::string> arguments, Environment environment = {},
                                  std::shared_ptr<ILogger> logger = nullptr) {
        m_process.emplace(OddToolPath, arguments, std::move(environment), std::move(logger));
        return m_process->GetIoDev();
    }

    static std::string Text(std::size_t size) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            text[i] = static_cast<char>(i * 7 + i / 251);
        return text;
    }

    std::ptrdiff_t m_descriptors;
    std::optional<CProcess> m_process;
};

// --- Launch ---

TEST_F(Process, AProgramThatIsNotThereIsNamedWithTheReason) {
    for (const std::string name : {"no-such-tool-at-all", "/no/such/tool", ""}) {
        try {
            CProcess process(name, {}, {}, nullptr);
            ADD_FAILURE();
        } catch (const ProcessLaunchError& error) {
            EXPECT_EQ(error.ErrorNumber(), ENOENT);
            EXPECT_EQ(error.what(), "Cannot start \"" + name + "\": No such file or directory");
        }
    }
}

TEST_F(Process, AFileThatIsNoProgramIsRefusedWithTheReason) {
    try {
        CProcess process("/etc/passwd", {}, {}, nullptr);
        ADD_FAILURE();
    } catch (const ProcessLaunchError& error) {
        EXPECT_EQ(error.ErrorNumber(), EACCES);
    }
}

TEST_F(Process, ANulInAnArgumentIsRefusedWithoutShowingIt) {
    const std::string secret("geheim\0x", 8);
    const auto message = MessageOf<ProcessLaunchError>([&] { Start({"echo", secret}); });
    EXPECT_THAT(message, AllOf(HasSubstr("NUL"), Not(HasSubstr("geheim"))));
    MessageOf<ProcessLaunchError>([&] { Start({"echo"}, {{"A=B", "c"}}); });
    MessageOf<ProcessLaunchError>([&] { Start({"echo"}, {{"", "c"}}); });
    MessageOf<ProcessLaunchError>([&] { Start({"echo"}, {{"A", secret}}); });
}

TEST_F(Process, ABareNameIsLookedUpInPathAndOneWithASlashIsNot) {
    const auto folder = std::filesystem::path(OddToolPath).parent_path();
    EXPECT_TRUE(HoldsInAProcessOfItsOwn([&] {
        ::setenv("PATH", ("/nowhere:" + folder.string()).c_str(), 1);
        CProcess process("OddTool", {"echo"}, {}, nullptr);
        process.GetIoDev()->WriteString("x");
        return process.GetIoDev()->ReadString() == "x";
    }));
    EXPECT_TRUE(HoldsInAProcessOfItsOwn([&] {
        ::setenv("PATH", folder.c_str(), 1);
        try {
            CProcess("./OddTool-that-is-elsewhere", {}, {}, nullptr);
        } catch (const ProcessLaunchError& error) {
            return error.ErrorNumber() == ENOENT;
        }
        return false;
    }));
}

TEST_F(Process, ArgumentsArriveAsTheyWereGiven) {
    const std::vector<std::string> odd{"", " ", "a b", "$HOME", "--x=\"y\"", "\xff\n", "gr\u00fcn"};
    std::vector<std::string> arguments{"arguments"};
    arguments.insert(arguments.end(), odd.begin(), odd.end());
    const auto device = Start(arguments);
    for (const std::string& argument : odd)
        EXPECT_EQ(device->ReadString(), argument);
}

TEST_F(Process, AdditionsJoinTheCallersEnvironmentAndWinOverIt) {
    ::setenv("ODD_KEPT", "kept", 1);
    ::setenv("ODD_REPLACED", "old", 1);
    const auto report = Start({"report", "ODD_KEPT", "ODD_REPLACED", "ODD_NEW", "ODD_NONE"},
                              {{"ODD_REPLACED", "new=value"}, {"ODD_NEW", ""}})
                            ->ReadString();
    EXPECT_THAT(report, HasSubstr("\nODD_KEPT=kept\nODD_REPLACED=new=value\nODD_NEW=\nODD_NONE=(none)"));
    EXPECT_STREQ(::getenv("ODD_REPLACED"), "old");
}

TEST_F(Process, TheChildSeesItsThreeStreamsOnlyAndFreshSignals) {
    const int leaked = ::open("/dev/null", O_RDONLY);  // without close-on-exec
    sigset_t all, before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const auto handler = ::signal(SIGUSR1, SIG_IGN);
    const auto report = Start({"report"})->ReadString();
    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, &before, &after);
    ::signal(SIGUSR1, handler);
    ::close(leaked);
    EXPECT_THAT(report, StartsWith("0 1 2 \n"));
    EXPECT_THAT(report, HasSubstr("SigBlk:\t0000000000000000"));
    EXPECT_THAT(report, HasSubstr("SigIgn:\t0000000000000000"));
    EXPECT_TRUE(::sigismember(&after, SIGUSR2)) << "the caller's mask was changed";
}

TEST_F(Process, ACallerWithClosedStandardStreamsKeepsThemClosed) {
    EXPECT_TRUE(HoldsInAProcessOfItsOwn([] {
        for (int fd = 0; fd < 3; ++fd)
            ::close(fd);
        CProcess process(OddToolPath, {"echo"}, {}, nullptr);
        process.GetIoDev()->WriteString("x");
        bool closed = process.GetIoDev()->ReadString() == "x";
        for (int fd = 0; fd < 3; ++fd)
            closed = closed && ::fcntl(fd, F_GETFD) == -1;
        return closed && static_cast<bool>(process.GetExitCode());
    }));
}

TEST_F(Process, ALaunchWithoutDescriptorsLeftFailsWithTheReason) {
    if (tests::IsSanitized) GTEST_SKIP() << "a sanitizer needs descriptors itself";
    EXPECT_TRUE(HoldsInAProcessOfItsOwn([] {
        int last = 0;
        for (int fd = 0; fd >= 0; fd = ::dup(0)) {
            last = fd;
        }
        ::close(last);  // too few for a launch
        ::close(last - 1);
        try {
            CProcess process(OddToolPath, {"echo"}, {}, nullptr);
        } catch (const ProcessLaunchError& error) {
            return error.ErrorNumber() == EMFILE;
        }
        return false;
    }));
}

// --- Messages ---

TEST_F(Process, MessagesOfEverySizeComeBackUnchanged) {
    const auto device = Start({"echo"});
    for (const std::size_t size :
         {0, 1, 3, 4, 5, 1000, 65535, 65536, 131068, 131072, 131073, 262144, 1'000'003}) {
        const std::string text = Text(size);
        device->WriteString(text);
        EXPECT_TRUE(device->ReadString() == text) << size;
    }
}

TEST_F(Process, MessagesMayComeByteByByte) {
    const auto device = Start({"echo-byte-by-byte"});
    for (const std::size_t size : {0, 1, 5000}) {
        device->WriteString(Text(size));
        EXPECT_TRUE(device->ReadString() == Text(size));
    }
}

TEST_F(Process, MessagesOfEverySizeCanBeLookedAtInOnePieceOrInSeveral) {
    const auto device = Start({"echo"});
    std::string room;
    for (const std::size_t size : {5000, 0, 1, 70'000, 3, 300'000, 4}) {
        const std::string text = Text(size);
        device->WriteString(text);
        ASSERT_TRUE(device->ReadMessage(room) == text) << size;
    }
}

TEST_F(Process, ManyMessagesMayComeAtOnce) {
    const auto device = Start({"burst", "50000"});
    for (int i = 0; i < 50000; ++i)
        ASSERT_EQ(device->ReadString(), std::to_string(i));
}

TEST_F(Process, TenThousandMessagesCanBeSentBeforeTheFirstAnswerIsRead) {
    const auto device = Start({"echo"});
    const std::string padding(500, '.');
    for (int i = 0; i < 10000; ++i)
        device->WriteString(std::to_string(i) + padding);
    for (int i = 0; i < 10000; ++i)
        ASSERT_EQ(device->ReadString(), std::to_string(i) + padding);
}

TEST_F(Process, BigMessagesCanCrossOnTheirWay) {
    constexpr std::size_t Size = 64 * 1024 * 1024;
    const auto device = Start({"write-then-read", std::to_string(Size)});
    device->SetDeadline(Clock::now() + 60s);
    device->WriteString(std::string(Size, 'a'));
    EXPECT_TRUE(device->ReadString() == std::string(Size, 'b'));
    EXPECT_EQ(device->ReadString(), std::to_string(Size));
}

TEST_F(Process, AFloodOnStandardErrorDoesNotBlockTheAnswer) {
    const auto device = Start({"flood-error", "5000000"});
    device->SetDeadline(Clock::now() + 60s);
    device->WriteString("x");
    EXPECT_EQ(device->ReadString(), "x");
}

TEST_F(Process, AnAnswerThatTakesItsTimeArrives) {
    const auto device = Start({"answer-late", "150"});
    device->WriteString("x");
    EXPECT_EQ(device->ReadString(), "x");
}

TEST_F(Process, AToolMayOpenItsStreamsByTheirPaths) {
    CProcess shell("/bin/sh", {"-c", "cat < /dev/stdin > /dev/stdout"}, {}, nullptr);
    const auto device = shell.GetIoDev();
    device->SetDeadline(Clock::now() + 60s);
    device->WriteString("x");
    EXPECT_EQ(device->ReadString(), "x");
}

TEST_F(Process, AMessageOverTheLimitIsRefusedAndNothingIsSent) {
    const auto device = Start({"echo"});
    const std::string tooLong(IIoDev::MaxMessageBytes + 1, 'x');
    EXPECT_THAT(MessageOf<ApiInternalError>([&] { device->WriteString(tooLong); }), HasSubstr("268435457"));
    device->WriteString("short");
    EXPECT_EQ(device->ReadString(), "short");
}

// --- Misbehaving tools ---

TEST_F(Process, AToolThatExitsAtOnceIsReportedWithItsStatusAndLastWords) {
    const auto device = Start({"exit", "3", "no licence\n"});
    const auto message = MessageOf<PeerGoneError>([&] { device->ReadString(); });
    EXPECT_THAT(message, StartsWith("Cannot read a message from \"" + OddToolPath + '"'));
    EXPECT_THAT(message, HasSubstr("It exited with status 3. Its last words: no licence"));
    MessageOf<PeerGoneError>([&] { device->ReadString(); });
}

TEST_F(Process, WritingToAToolThatHasExitedIsReportedLikewise) {
    const auto device = Start({"exit", "3", "no licence\n"});
    MessageOf<PeerGoneError>([&] { device->ReadString(); });
    const auto message = MessageOf<PeerGoneError>([&] { device->WriteString("x"); });
    EXPECT_THAT(message,
                AllOf(HasSubstr("Cannot send a message"), HasSubstr("status 3"), HasSubstr("no licence")));
}

TEST_F(Process, AUsageTextIsShown) {
    const auto device = Start({"usage"});
    const auto message = MessageOf<BrokenMessageError>([&] { device->ReadString(); });
    EXPECT_THAT(message, HasSubstr("no message: \"Usage: foo [--bar]\\n\""));
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->ReadString(); }), HasSubstr("Usage: foo"));
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->WriteString("x"); }), HasSubstr("Usage: foo"));
}

TEST_F(Process, ATextThatPassesForALengthIsShownAtItsEnd) {
    const auto device = Start({"short-text"});
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->ReadString(); }),
                AllOf(HasSubstr("(5 of "), HasSubstr("\"Hi!\\nthere\"")));
}

TEST_F(Process, AStreamThatEndsWithinALengthIsShown) {
    const auto device = Start({"two-bytes"});
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->ReadString(); }), HasSubstr("after 2 bytes"));
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->ReadString(); }), HasSubstr("\"no\""));
}

TEST_F(Process, AnOverlongAnnouncementIsRefusedAtOnce) {
    const auto device = Start({"announce-4-gib"});
    EXPECT_THAT(MessageOf<BrokenMessageError>([&] { device->ReadString(); }),
                AllOf(HasSubstr("4294967295"), HasSubstr("\\xff\\xff\\xff\\xff")));
}

TEST_F(Process, MemoryGrowsWithWhatArrivesNotWithWhatIsAnnounced) {
    EXPECT_TRUE(HoldsInAProcessOfItsOwn([] {
        const auto resident = [] {
            std::ifstream statm("/proc/self/statm");
            long total = 0, pages = 0;
            statm >> total >> pages;
            return std::pair(total * ::getpagesize(), pages * ::getpagesize());
        };
        CProcess process(OddToolPath, {"announce-limit"}, {}, nullptr);
        process.GetIoDev()->SetDeadline(Clock::now() + 100ms);
        const auto before = resident();
        try {
            process.GetIoDev()->ReadString();
        } catch (const TimeoutError&) {
            const auto after = resident();
            return after.first - before.first < 16'000'000 && after.second - before.second < 8'000'000;
        }
        return false;
    }));
}

TEST_F(Process, DyingInTheMiddleOfAMessageSaysSo) {
    const auto device = Start({"die-in-message"});
    const auto message = MessageOf<PeerGoneError>([&] { device->ReadString(); });
    EXPECT_THAT(message, HasSubstr("in the middle of a message (5 of 100 bytes had come)"));
    EXPECT_THAT(message, HasSubstr("was ended by signal 9 (Killed)"));
    EXPECT_THAT(message, HasSubstr("first line\nassertion \\x1b[31mfailed"));
}

TEST_F(Process, AToolThatNeverAnswersRunsIntoTheDeadline) {
    const auto device = Start({"silent-after-words"});
    device->SetDeadline(Clock::now() + 100ms);
    const auto duration = Duration([&] {
        EXPECT_THAT(MessageOf<TimeoutError>([&] { device->ReadString(); }),
                    HasSubstr("waiting for the lock"));
    });
    EXPECT_GE(duration, 99ms);
    EXPECT_LT(duration, 5s);
}

TEST_F(Process, AReadCanBeTakenUpAgainAfterItsDeadline) {
    const auto device = Start({"answer-late", "200"});
    device->WriteString("late");
    device->SetDeadline(Clock::now() + 1ms);
    MessageOf<TimeoutError>([&] { device->ReadString(); });
    device->SetDeadline(Clock::time_point::max());
    EXPECT_EQ(device->ReadString(), "late");
}

TEST_F(Process, DeadlinesAtTheEndsOfTimeAreFine) {
    const auto device = Start({"silent"});
    device->SetDeadline(Clock::time_point::min());
    MessageOf<TimeoutError>([&] { device->ReadString(); });
    device->SetDeadline(Clock::time_point());
    MessageOf<TimeoutError>([&] { device->ReadString(); });
}

TEST_F(Process, ATrickleDoesNotOutlastTheDeadline) {
    const auto device = Start({"trickle-for-ever"});
    device->SetDeadline(Clock::now() + 200ms);
    const auto duration = Duration([&] { MessageOf<TimeoutError>([&] { device->ReadString(); }); });
    EXPECT_LT(duration, 5s);
    m_process->Abandon();
}

TEST_F(Process, AToolThatNeverReadsRunsIntoTheDeadlineOfAWrite) {
    const auto device = Start({"ignore-end-of-input"});
    EXPECT_EQ(device->ReadString(), "ready");
    device->SetDeadline(Clock::now() + 200ms);
    const std::string big(10'000'000, 'x');
    EXPECT_THAT(MessageOf<TimeoutError>([&] { device->WriteString(big); }),
                HasSubstr("Cannot send a message"));
    device->SetDeadline(Clock::time_point::max());
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->WriteString("x"); }), HasSubstr("in time"))
        << "after half a message the stream can't be used";
    m_process->Abandon();
}

TEST_F(Process, AToolThatSendsOnWithoutReadingRunsIntoTheDeadlineOfAWrite) {
    const auto device = Start({"messages-for-ever"});
    device->SetDeadline(Clock::now() + 50ms);
    const std::string big(10'000'000, 'x');
    const auto duration = Duration([&] { MessageOf<TimeoutError>([&] { device->WriteString(big); }); });
    EXPECT_LT(duration, 5s);
    m_process->Abandon();
}

TEST_F(Process, AToolThatClosesItsInputFailsTheWriteWithoutASignal) {
    const auto device = Start({"close-input"});
    EXPECT_EQ(device->ReadString(), "closed");
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->WriteString("x"); }),
                HasSubstr("takes no more input"));
    m_process->Abandon();
}

TEST_F(Process, AToolThatDiesDuringABigWriteFailsItWithoutASignal) {
    const auto device = Start({"exit", "4"});
    const std::string big(50'000'000, 'x');
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->WriteString(big); }),
                HasSubstr("exited with status 4"));
}

TEST_F(Process, AToolThatClosesItsOutputAndLivesOnIsReportedSoon) {
    const auto device = Start({"close-output"});
    const auto duration = Duration([&] { MessageOf<PeerGoneError>([&] { device->ReadString(); }); });
    EXPECT_LT(duration, 2s);
}

TEST_F(Process, AToolThatDiesIsReportedThoughItsOffspringHoldsItsStreams) {
    const auto device = Start({"leave-offspring"});
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->ReadString(); }),
                AllOf(HasSubstr("it has ended"), HasSubstr("It exited with status 5")));
}

TEST_F(Process, WhatAToolWroteBeforeItDiedIsReadThoughItsOffspringHoldsItsStreams) {
    const auto device = Start({"leave-offspring", "last words"});
    EXPECT_EQ(device->ReadString(), "last words");
    MessageOf<PeerGoneError>([&] { device->ReadString(); });
}

TEST_F(Process, OnlyTheLastTwentyLinesOfStandardErrorAreKept) {
    const auto device = Start({"lines", "25"});
    const auto message = MessageOf<PeerGoneError>([&] { device->ReadString(); });
    EXPECT_THAT(message, HasSubstr("words: ...\nline 6\n"));
    EXPECT_THAT(message, AllOf(HasSubstr("\nline 25"), Not(HasSubstr("line 5\n"))));
}

TEST_F(Process, ExactlyTwentyLinesAreKeptWhole) {
    Start({"lines", "20"});
    EXPECT_THAT(MessageOf<ProcessFailedError>([&] { m_process->GetExitCode().GenerateException(); }),
                AllOf(HasSubstr("words: line 1\n"), HasSubstr("\nline 20")));
}

TEST_F(Process, OnlyTheLastBytesOfALongLineAreKept) {
    Start({"exit", "1", "start" + std::string(100'000, 'y') + "end"});
    const auto message = MessageOf<ProcessFailedError>([&] { m_process->GetExitCode().GenerateException(); });
    EXPECT_THAT(message, AllOf(HasSubstr("words: ...yyy"), HasSubstr("yend"), Not(HasSubstr("start"))));
    EXPECT_LT(message.size(), 5000u);
}

// --- Unframed output and exit codes ---

TEST_F(Process, TheWholeOutputIsRead) {
    const auto device = Start({"raw", "3000000"});
    bool ended = false;
    EXPECT_TRUE(device->ReadRawText(4194304, ended) == std::string(3'000'000, 'r'));
    EXPECT_TRUE(ended);
    EXPECT_TRUE(m_process->GetExitCode());
}

TEST_F(Process, OutputOfExactlyTheLimitHasEndedAndOneByteMoreIsCut) {
    bool ended = false;
    EXPECT_EQ(Start({"raw", "1000"})->ReadRawText(1000, ended).size(), 1000u);
    EXPECT_TRUE(ended);
    EXPECT_EQ(Start({"raw", "1001"})->ReadRawText(1000, ended).size(), 1000u);
    EXPECT_FALSE(ended);
    EXPECT_EQ(Start({"raw", "0"})->ReadRawText(1000, ended), "");
    EXPECT_TRUE(ended);
    EXPECT_EQ(Start({"raw", "1"})->ReadRawText(0, ended), "");
    EXPECT_FALSE(ended);
}

TEST_F(Process, EndlessOutputIsCutAndTheToolEndsWithItsStream) {
    const auto device = Start({"raw-for-ever"});
    bool ended = true;
    EXPECT_EQ(device->ReadRawText(100'000, ended).size(), 100'000u);
    EXPECT_FALSE(ended);
    // By SIGPIPE, or by what it does after a failed write: the system does not promise which.
    EXPECT_FALSE(m_process->GetExitCode());
}

TEST_F(Process, ReadingOutputHonoursTheDeadline) {
    const auto device = Start({"silent"});
    device->SetDeadline(Clock::now() + 50ms);
    bool ended = false;
    MessageOf<TimeoutError>([&] { device->ReadRawText(1000, ended); });
}

TEST_F(Process, TheExitCodeTellsSuccessFromFailure) {
    Start({"exit", "0"});
    const auto success = m_process->GetExitCode();
    EXPECT_TRUE(success);
    EXPECT_THAT(MessageOf<ProcessFailedError>([&] { success.GenerateException(); }), HasSubstr("status 0"));
    Start({"exit", "7", "bad\n"});
    const auto failure = m_process->GetExitCode();
    EXPECT_FALSE(failure);
    EXPECT_EQ(MessageOf<ProcessFailedError>([&] { failure.GenerateException(); }),
              '"' + OddToolPath + "\" exited with status 7. Its last words: bad");
    EXPECT_FALSE(m_process->GetExitCode()) << "asked twice";
}

TEST_F(Process, AskingForTheExitCodeHonoursTheDeadline) {
    const auto device = Start({"ignore-end-of-input"});
    EXPECT_EQ(device->ReadString(), "ready");
    device->SetDeadline(Clock::now() + 50ms);
    EXPECT_THAT(MessageOf<TimeoutError>([&] { m_process->GetExitCode(); }), HasSubstr("exit code"));
    m_process->Abandon();
    EXPECT_THAT(MessageOf<ProcessFailedError>([&] { m_process->GetExitCode().GenerateException(); }),
                HasSubstr("signal 15 (Terminated)"));
}

TEST_F(Process, AFloodOnStandardErrorDoesNotBlockTheExit) {
    Start({"flood-error", "5000000"});
    EXPECT_TRUE(m_process->GetExitCode());
}

TEST_F(Process, OffspringThatHoldsTheStreamsDoesNotDelayTheExitCode) {
    Start({"leave-offspring"});
    const auto duration = Duration([&] { EXPECT_FALSE(m_process->GetExitCode()); });
    EXPECT_LT(duration, 5s);
}

// --- The end ---

TEST_F(Process, AToolThatEndsWithItsInputIsNotWaitedForLonger) {
    Start({"echo"});
    EXPECT_LT(Duration([&] { m_process.reset(); }), 1500ms);
}

TEST_F(Process, AToolThatIgnoresTheEndOfItsInputIsTerminated) {
    const auto logger = std::make_shared<CMemoryLogger>();
    EXPECT_EQ(Start({"ignore-end-of-input"}, {}, logger)->ReadString(), "ready");
    const auto duration = Duration([&] { m_process.reset(); });
    EXPECT_GE(duration, 2s);
    EXPECT_LT(duration, 2900ms);
    EXPECT_THAT(logger->lines.at(1), HasSubstr("signal 15"));
}

TEST_F(Process, AToolThatIgnoresTerminationIsKilled) {
    const auto logger = std::make_shared<CMemoryLogger>();
    EXPECT_EQ(Start({"ignore-term"}, {}, logger)->ReadString(), "ready");
    const auto duration = Duration([&] { m_process.reset(); });
    EXPECT_GE(duration, 3s);
    EXPECT_LT(duration, 6s);
    EXPECT_THAT(logger->lines.at(1), HasSubstr("signal 9"));
}

TEST_F(Process, AStoppedToolIsKilled) {
    Start({"echo"});
    ::kill(m_process->Pid(), SIGSTOP);
    m_process->Abandon();
    EXPECT_LT(Duration([&] { m_process.reset(); }), 5s);
}

TEST_F(Process, AbandoningDoesNotWait) {
    const auto device = Start({"ignore-term"});
    EXPECT_EQ(device->ReadString(), "ready");
    const auto start = Clock::now();
    EXPECT_LT(Duration([&] { m_process->Abandon(); }), 500ms);
    EXPECT_THAT(MessageOf<PeerGoneError>([&] { device->ReadString(); }), HasSubstr("given up"));
    MessageOf<PeerGoneError>([&] { device->WriteString("x"); });
    m_process->Abandon();
    m_process.reset();
    EXPECT_GE(Clock::now() - start, 1s);
    EXPECT_LT(Clock::now() - start, 3s);
}

TEST_F(Process, OutputThatNobodyReadsDoesNotKeepAToolFromEnding) {
    const auto logger = std::make_shared<CMemoryLogger>();
    const auto device = Start({"burst", "500000"}, {}, logger);
    EXPECT_EQ(device->ReadString(), "0");
    m_process.reset();
    EXPECT_THAT(logger->lines.at(1), HasSubstr("exited with status 0"));
}

TEST_F(Process, TheDeviceOutlivesTheProcess) {
    auto device = Start({"echo"});
    m_process.reset();
    bool ended = false;
    MessageOf<PeerGoneError>([&] { device->WriteString("x"); });
    MessageOf<PeerGoneError>([&] { device->ReadString(); });
    MessageOf<PeerGoneError>([&] { device->ReadRawText(1, ended); });
}

TEST_F(Process, ACallerThatIgnoresSigchldIsServedWithoutAnExitStatus) {
    EXPECT_TRUE(HoldsInAProcessOfItsOwn([] {
        ::signal(SIGCHLD, SIG_IGN);
        CProcess process(OddToolPath, {"echo"}, {}, nullptr);
        process.GetIoDev()->WriteString("x");
        if (process.GetIoDev()->ReadString() != "x") return false;
        const auto exitCode = process.GetExitCode();
        try {
            exitCode.GenerateException();
        } catch (const ProcessFailedError& error) {
            return !exitCode && std::string(error.what()).find("SIGCHLD") != std::string::npos;
        }
    }));
}

TEST_F(Process, ACallerThatCollectsEveryChildIsServedWithoutAnExitStatus) {
    EXPECT_TRUE(HoldsInAProcessOfItsOwn([] {
        struct sigaction action {};
        action.sa_handler = [](int) {
            const int saved = errno;
            while (::waitpid(-1, nullptr, WNOHANG) > 0) {
            }
            errno = saved;
        };
        ::sigaction(SIGCHLD, &action, nullptr);
        for (int round = 0; round < 50; ++round) {
            CProcess process(OddToolPath, {"exit", "3"}, {}, nullptr);
            if (process.GetExitCode()) return false;
        }
        return true;
    }));
}

TEST_F(Process, AKernelThatDoesNotAnnounceTheEndOfProcessesIsFine) {
    EXPECT_TRUE(HoldsInAProcessOfItsOwn([] {
        sock_filter refusePidfd[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pidfd_open, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog program{static_cast<unsigned short>(std::size(refusePidfd)), refusePidfd};
        if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
        if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) return false;
        if (::syscall(SYS_pidfd_open, ::getpid(), 0) != -1 || errno != ENOSYS) return false;

        CProcess failing(OddToolPath, {"exit", "3"}, {}, nullptr);
        if (failing.GetExitCode()) return false;
        CProcess stubborn(OddToolPath, {"ignore-term"}, {}, nullptr);
        if (stubborn.GetIoDev()->ReadString() != "ready") return false;
        stubborn.Abandon();
        stubborn.GetExitCode();
        return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
    }));
}

TEST_F(Process, SignalsThatInterruptEveryWaitChangeNothing) {
    EXPECT_TRUE(HoldsInAProcessOfItsOwn([] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        ::sigaction(SIGALRM, &action, nullptr);  // without SA_RESTART
        const itimerval often{{0, 500}, {0, 500}};
        ::setitimer(ITIMER_REAL, &often, nullptr);
        CProcess process(OddToolPath, {"flood-error", "3000000"}, {}, nullptr);
        const std::string text(3'000'000, 'x');
        process.GetIoDev()->WriteString(text);
        if (process.GetIoDev()->ReadString() != text) return false;
        process.GetIoDev()->SetDeadline(Clock::now() + 100ms);
        try {
            process.GetIoDev()->ReadString();
        } catch (const TimeoutError&) {
            process.GetIoDev()->SetDeadline(Clock::time_point::max());
            return static_cast<bool>(process.GetExitCode());
        }
        return false;
    }));
}

TEST_F(Process, StartAndEndAreLoggedWithoutArguments) {
    const auto logger = std::make_shared<CMemoryLogger>();
    Start({"exit", "0", "geheim"}, {{"PASSWORD", "geheim"}}, logger);
    const std::string who = '"' + OddToolPath + "\" (pid " + std::to_string(m_process->Pid()) + ')';
    m_process->GetExitCode();
    m_process.reset();
    EXPECT_THAT(logger->lines, testing::ElementsAre("Started " + who, who + " exited with status 0"));
}

TEST_F(Process, ALoggerThatThrowsChangesNothing) {
    class CThrowingLogger : public ILogger {
        void Info(const std::string&) override { throw ApiInternalError("disk full"); }
        void Error(const std::string&, std::exception&) override {}
    };
    EXPECT_NO_THROW(Start({"echo"}, {}, std::make_shared<CThrowingLogger>()));
}

TEST_F(Process, ManyProcessesMayRunSideBySideInThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 5; ++round) {
                CProcess process(OddToolPath, {"echo"}, {}, nullptr);
                process.GetIoDev()->WriteString("x");
                EXPECT_EQ(process.GetIoDev()->ReadString(), "x");
            }
        });
    for (auto& thread : threads)
        thread.join();
}

}  // namespace
}  // namespace apigen
