// SPDX-License-Identifier: Apache-2.0
// Loggers of callers: they throw whatever they like, come back into the library, or are links.
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/CSimpleLogger.h>
#include <zamclientlib/Exceptions.h>

#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "tests/reliability/Reliability.h"

namespace reliability {
namespace {

const std::string Refusal =
    "<Data><__exception_obj><type>CJobIsRunning</type><Exception><ApiException><exc_msg>busy</exc_msg>"
    "</ApiException></Exception></__exception_obj></Data>";

/// Calls back for each line.
class CCallbackLogger final : public apigen::ILogger {
public:
    void Info(const std::string& message) override {
        if (OnInfo) OnInfo(message);
    }
    void Error(const std::string& message, std::exception& /*error*/) override {
        if (OnError) OnError(message);
    }

    std::function<void(const std::string&)> OnInfo;
    std::function<void(const std::string&)> OnError;
};

class OddLoggers : public CReliabilityTest {};

TEST_F(OddLoggers, ThatThrowAnythingHideNoResultAndNoFailure) {
    for (const bool isForeign : {false, true}) {
        const auto logger = std::make_shared<CCallbackLogger>();
        logger->OnInfo = logger->OnError = [isForeign](const std::string&) {
            if (isForeign) throw 17;
            throw std::runtime_error("no room for a line");
        };
        {
            Packages packages;
            const SOutcome outcome =
                OutcomeOf([&] { packages = ConnectPackages({"answer=echo"}, 20s, logger); });
            ASSERT_EQ(outcome.Kind, EOutcome::Success) << outcome;
            EXPECT_EQ(packages->GetPackageNameFromFile("a"), "a");
        }
        {
            const Packages packages = ConnectPackages({"out=45", "then=kill"}, 20s, logger);
            EXPECT_EQ(OutcomeOf([&] { packages->GetPackageNameFromFile("a"); }).Kind, EOutcome::Gone);
            EXPECT_EQ(OutcomeOf([&] { packages->GetPackageNameFromFile("a"); }).Kind, EOutcome::Gone);
        }
        {
            // A failure that the service reports stays one whoever fails to write it down.
            const Packages packages = ConnectPackages({"answer=" + Refusal}, 20s, logger);
            const SOutcome outcome = OutcomeOf([&] { packages->GetPackageNameFromFile("a"); });
            EXPECT_EQ(outcome.Kind, EOutcome::Refused) << outcome;
            EXPECT_EQ(OutcomeOf([&] { packages->GetPackageNameFromFile("a"); }).Kind, EOutcome::Refused);
        }
        EXPECT_EQ(OutcomeOf([&] { ConnectPackages({"out=5"}, 20s, logger); }).Kind, EOutcome::Gone);
        EXPECT_EQ(OutcomeOf([&] { Invoker({}, 20s, logger, "/no/such/tool"); }).Kind, EOutcome::Launch);
        if (!ExpectNothingLeft(isForeign ? "an int" : "an exception")) return;
    }
}

TEST_F(OddLoggers, MayDropTheLastObjectWhileAFailureIsWritten) {
    const int result = InAProcessOfItsOwn(
        [&] {
            const auto logger = std::make_shared<CCallbackLogger>();
            Packages packages = ConnectPackages({"out=45", "then=kill"}, 20s, logger);
            logger->OnError = logger->OnInfo = [&](const std::string&) { packages.reset(); };
            zamclientlib::IPackageManager& object = *packages;
            const Packages keeper = packages;  // an object in a call of its own must not go
            return OutcomeOf([&] { object.GetPackageNameFromFile("a"); }).Kind == EOutcome::Gone ? 0 : 2;
        },
        20);
    EXPECT_EQ(result, 0);
}

TEST_F(OddLoggers, MayDropAnotherObjectWhileAFailureIsWritten) {
    const int result = InAProcessOfItsOwn(
        [&] {
            const auto logger = std::make_shared<CCallbackLogger>();
            const Root root =
                Connect({"answer=<Data><__handle>2</__handle></Data>", "out=140", "then=kill"}, 20s, logger);
            auto service = root->GetZAMService();
            bool isDropped = false;
            logger->OnError = [&](const std::string&) {
                isDropped = service != nullptr;
                service.reset();
            };
            for (int i = 0; i < 20; ++i)
                if (OutcomeOf([&] { root->GetToolVersion(); }).Kind == EOutcome::Gone)
                    return isDropped ? 0 : 3;
            return 2;
        },
        20);
    EXPECT_EQ(result, 0);
}

TEST_F(OddLoggers, MayCallTheServiceWhileAFailureIsWritten) {
    const int result = InAProcessOfItsOwn(
        [&] {
            const auto logger = std::make_shared<CCallbackLogger>();
            const Packages packages = ConnectPackages({"out=45", "then=kill"}, 20s, logger);
            SOutcome inside{EOutcome::Foreign};
            bool isInside = false;
            logger->OnError = [&](const std::string&) {
                if (std::exchange(isInside, true)) return;
                inside = OutcomeOf([&] { packages->GetPackageNameFromFile("inside"); });
            };
            if (OutcomeOf([&] { packages->GetPackageNameFromFile("a"); }).Kind != EOutcome::Gone) return 2;
            return inside.Kind == EOutcome::Gone ? 0 : 3;
        },
        20);
    EXPECT_EQ(result, 0);
}

TEST_F(OddLoggers, ThatBlockHoldUpTheirOwnCallersOnly) {
    const auto logger = std::make_shared<CCallbackLogger>();
    const Packages packages = ConnectPackages({"out=45", "then=kill"}, 20s, logger);
    std::atomic<bool> mayGoOn = false;
    std::atomic<bool> isWriting = false;
    logger->OnError = [&](const std::string&) {
        isWriting = true;
        Eventually([&] { return mayGoOn.load(); });
    };
    std::thread caller(
        [&] { EXPECT_EQ(OutcomeOf([&] { packages->GetPackageNameFromFile("a"); }).Kind, EOutcome::Gone); });
    EXPECT_TRUE(Eventually([&] { return isWriting.load(); }));
    const SOutcome other = OutcomeOf([&] { packages->GetPackageNameFromFile("b"); });
    EXPECT_EQ(other.Kind, EOutcome::Gone) << other;
    EXPECT_LT(other.Took, 2s);
    mayGoOn = true;
    caller.join();
}

TEST_F(OddLoggers, ThatAreFilesFollowNoLinkThatSomebodyPutThere) {
    const std::string victim = m_folder.Path("victim");
    std::filesystem::create_symlink(victim, m_folder.Path("a.log"));
    {
        zamclientlib::CSimpleLogger logger(m_folder.Path(), "a.log");
        logger.Info("a line");
    }
    EXPECT_FALSE(std::filesystem::exists(victim)) << "the log went where the link leads";

    m_folder.Write("other", "precious");
    std::filesystem::create_symlink(m_folder.Path("other"), m_folder.Path("b.log"));
    std::filesystem::create_hard_link(m_folder.Path("other"), m_folder.Path("b_1.log"));
    {
        zamclientlib::CSimpleLogger logger(m_folder.Path(), "b.log");
        logger.Info("a line");
    }
    EXPECT_EQ(zamtest::LinesOf(m_folder.Path("other")).at(0), "precious");
    EXPECT_TRUE(std::filesystem::exists(m_folder.Path("b_2.log")));
}

TEST_F(OddLoggers, ThatAreFilesHangOnNoPipeThatSomebodyPutThere) {
    ASSERT_EQ(::mkfifo(m_folder.Path("a.log").c_str(), 0666), 0);
    const int result = InAProcessOfItsOwn(
        [&] {
            zamclientlib::CSimpleLogger(m_folder.Path(), "a.log").Info("a line");
            return std::filesystem::exists(m_folder.Path("a_1.log")) ? 0 : 2;
        },
        10);
    EXPECT_EQ(result, 0);
}

TEST_F(OddLoggers, ThatAreFilesNeverShareOneWhenManyStartAtOnce) {
    constexpr int Threads = 8;
    constexpr int Rounds = 20;
    for (int round = 0; round < Rounds && !HasFailure(); ++round) {
        const std::string name = "race" + std::to_string(round);
        std::vector<std::thread> threads;
        std::atomic<int> waiting = 0;
        for (int id = 0; id < Threads; ++id) {
            threads.emplace_back([&, id] {
                ++waiting;
                while (waiting < Threads) {
                }
                zamclientlib::CSimpleLogger(m_folder.Path(), name + ".log")
                    .Info("line of " + std::to_string(id));
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        int lines = 0;
        for (int number = 0; number < Threads; ++number) {
            const std::string suffix = number == 0 ? "" : "_" + std::to_string(number);
            lines += static_cast<int>(zamtest::LinesOf(m_folder.Path(name + suffix + ".log")).size());
        }
        EXPECT_EQ(lines, 2 * Threads) << "banner and line of each, in a file of its own";
    }
}

}  // namespace
}  // namespace reliability
