// SPDX-License-Identifier: Apache-2.0
// The engine against a stand-in for restic that fails in every way.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "agent/engine/CResticEngine.h"
#include "tests/MessageOf.h"
#include "tests/agent/CTemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using namespace tarvo;
using tests::ContentOf;
using tests::CTemporaryFolder;
using tests::MessageOf;

constexpr const char* Version = "if [ \"$1\" = version ]; then echo 'restic 0.14.0 compiled'; exit 0; fi\n";
constexpr const char* Summary =
    R"(echo '{"message_type":"summary","files_new":1,"total_files_processed":1,"total_bytes_processed":5,"snapshot_id":"abcd"}')"
    "\n";

class ResticFaults : public testing::Test {
protected:
    /// An engine whose program is the script; asked for its version, it answers well unless the script does.
    std::shared_ptr<IEngine> Engine(const std::string& script, std::chrono::milliseconds silence = 20s) {
        const auto program = m_folder.Write("restic", "#!/bin/sh\n" + script, 0755);
        return MakeResticEngine({.Program = program,
                                 .CacheFolder = m_folder / "cache",
                                 .SilenceLimit = silence,
                                 .StopPatience = 300ms});
    }
    SBackupRequest Request() {
        m_folder.Write("l/tarvo/j/1/config", "");
        SBackupRequest request;
        request.Store.Folder = m_folder / "l/tarvo/j/1";
        request.Job = "j";
        request.Point = "p";
        request.ListFile = m_folder.Write("list", "x");
        request.OnWarning = [this](const SEngineWarning& warning) { m_warnings.push_back(warning.Message); };
        return request;
    }
    SBackupResult BackUp(const std::string& script, std::chrono::milliseconds silence = 20s) {
        return Engine(Version + script, silence)->BackUp(Request(), {});
    }

    CTemporaryFolder m_folder;
    std::vector<std::string> m_warnings;
};

TEST_F(ResticFaults, AProgramThatIsNotThereIsNamed) {
    const auto engine = MakeResticEngine({.Program = m_folder / "nothing", .CacheFolder = m_folder.Path()});
    EXPECT_NE(MessageOf<CEngineMissing>([&] { engine->Info(); }).find("nothing"), std::string::npos);
    EXPECT_THROW(engine->BackUp(Request(), {}), CEngineMissing);
    m_folder.Write("plain", "no program");
    EXPECT_THROW(MakeResticEngine({.Program = m_folder / "plain", .CacheFolder = ""})->Info(),
                 CEngineMissing);
}

TEST_F(ResticFaults, AnOldProgramIsRefusedWithItsVersion) {
    const auto message = MessageOf<CEngineTooOld>([&] { Engine("echo 'restic 0.12.1 compiled'")->Info(); });
    EXPECT_NE(message.find("0.12.1"), std::string::npos);
    EXPECT_NE(message.find("0.14"), std::string::npos);
}

TEST_F(ResticFaults, WhatIsNoResticIsRefusedWithWhatItSaid) {
    EXPECT_NE(MessageOf<CEngineTooOld>([&] {
                  Engine("echo 'hello \033[31m there'; exit 7")->Info();
              }).find("exited with status 7: hello \\x1b[31m there"),
              std::string::npos);
    EXPECT_THROW(Engine("exit 0")->Info(), CEngineTooOld);
    EXPECT_THROW(Engine("kill -9 $$")->Info(), CEngineTooOld);
    EXPECT_THROW(Engine("head -c 3000000 /dev/zero")->Info(), CEngineTooOld);
}

TEST_F(ResticFaults, AProgramThatHangsForItsVersionIsEnded) {
    EXPECT_THROW(Engine("sleep 1000", 200ms)->Info(), CEngineHangs);
}

TEST_F(ResticFaults, WhatAProgramCanNotDoIsKnownByItsVersion) {
    const auto old = Engine("echo 'restic 0.14.0 compiled'")->Info();
    EXPECT_FALSE(old.KeepsSparseFiles);
    EXPECT_FALSE(old.KeepsOddLinkTargets);
    const auto later = Engine("echo 'restic 0.16.4 compiled'")->Info();
    EXPECT_TRUE(later.KeepsSparseFiles);
    EXPECT_TRUE(later.KeepsOddLinkTargets);
}

TEST_F(ResticFaults, AnotherProgramInItsPlaceIsAskedAnew) {
    const auto engine = Engine("echo 'restic 0.14.0 compiled'");
    EXPECT_EQ(engine->Info().Version.Minor, 14U);
    m_folder.Write("restic.new", "#!/bin/sh\necho 'restic 0.17.3 compiled'", 0755);
    std::filesystem::rename(m_folder / "restic.new", m_folder / "restic");
    EXPECT_EQ(engine->Info().Version.Minor, 17U);
}

TEST_F(ResticFaults, AnUnknownExitStatusIsAFailureThoughTheSummaryWasGood) {
    for (const int status : {1, 2, 42, 255})
        EXPECT_THROW(BackUp(Summary + ("exit " + std::to_string(status))), CEngineFailed) << status;
    EXPECT_THROW(BackUp(std::string(Summary) + "kill -11 $$"), CEngineFailed);
}

TEST_F(ResticFaults, SuccessWithoutASnapshotIsAFailure) {
    EXPECT_THROW(BackUp("exit 0"), CEngineFailed);
    EXPECT_THROW(BackUp("exit 3"), CEngineFailed);
    EXPECT_THROW(BackUp(R"(echo '{"message_type":"summary","snapshot_id":""}')"), CEngineFailed);
    EXPECT_THROW(BackUp(R"(echo '{"message_type":"summ')"), CEngineFailed);
}

TEST_F(ResticFaults, DeathAtAnyLineOfItsOutputIsAFailureUntilTheLast) {
    const std::vector<std::string> lines{R"(echo '{"message_type":"status","percent_done":0}')",
                                         R"(echo '{"message_type":"status","bytes_done":3,"total_bytes":5}')",
                                         "echo nonsense",
                                         R"(printf '{"message_type":"summary","files_new":1,')"};
    for (std::size_t count = 0; count <= lines.size(); ++count) {
        std::string script;
        for (std::size_t i = 0; i < count; ++i)
            script += lines[i] + "\n";
        EXPECT_THROW(BackUp(script + "kill -9 $$\n"), CEngineFailed) << count;
    }
}

TEST_F(ResticFaults, ExitStatusThreeIsASuccessWithWarnings) {
    const auto result = BackUp(
        std::string(
            "printf '%s\\n' "
            "'{\"message_type\":\"error\",\"error\":{\"Op\":\"open\",\"Err\":13},\"during\":\"archival\","
            "\"item\":\"/a\\nb\"}' >&2\n") +
        Summary + "echo 'Warning: at least one source file could not be read' >&2\nexit 3");
    EXPECT_EQ(result.Snapshot, "abcd");
    ASSERT_EQ(m_warnings.size(), 1U);
    EXPECT_EQ(m_warnings[0], "/a\\nb: can't be read: Permission denied");
    BackUp(std::string(Summary) + "exit 3");
    EXPECT_EQ(m_warnings.size(), 2U);
}

TEST_F(ResticFaults, WhatElseItTellsIsAWarningButThatItTriedAgainIsNot) {
    const auto result = BackUp(
        "echo 'Save(<data/ab>) returned error, retrying after 1s: timeout' >&2\n"
        "echo 'cannot read attribute of /a' >&2\n" +
        std::string(Summary));
    EXPECT_EQ(result.Warnings, 1U);
    EXPECT_EQ(m_warnings, std::vector<std::string>{"cannot read attribute of /a"});
}

TEST_F(ResticFaults, AFloodOfNonsenseCostsNeitherMemoryNorTheResult) {
    const auto result =
        BackUp("head -c 30000000 /dev/urandom; head -c 30000000 /dev/zero >&2; echo; echo >&2\n" +
               std::string(Summary));
    EXPECT_EQ(result.Snapshot, "abcd");
}

TEST_F(ResticFaults, ManyWarningsAreCountedAndTheFirstTold) {
    const auto result = BackUp(
        "i=0; while [ $i -lt 1500 ]; do echo "
        "\"{\\\"message_type\\\":\\\"error\\\",\\\"error\\\":\\\"x\\\",\\\"item\\\":"
        "\\\"/f$i\\\"}\"; i=$((i+1)); done\n" +
        std::string(Summary) + "exit 3");
    EXPECT_EQ(result.Warnings, 1500U);
    EXPECT_EQ(m_warnings.size(), 1001U);
}

TEST_F(ResticFaults, AProgramThatSaysNothingIsEndedWithItsChildren) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THROW(BackUp("echo $$ > " + (m_folder / "pid") + "; sleep 1000 & sleep 1000", 500ms),
                 CEngineHangs);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    const auto pid = std::stoi(ContentOf(m_folder / "pid"));
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (::kill(-pid, 0) == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();  // whoever adopts the children collects them
    EXPECT_NE(::kill(-pid, 0), 0);
}

TEST_F(ResticFaults, AStopIsObeyedByAProgramThatIgnoresIt) {
    const auto engine =
        Engine(std::string(Version) + "trap '' INT\ntouch " + (m_folder / "up") + "\nsleep 1000");
    std::stop_source source;
    std::jthread stopper([&] {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (!std::filesystem::exists(m_folder / "up") && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        source.request_stop();
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THROW(engine->BackUp(Request(), source.get_token()), CEngineStopped);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 15s);
    EXPECT_THROW(engine->BackUp(Request(), source.get_token()), CEngineStopped);
}

constexpr const char* Locked =
    "echo 'unable to create lock in backend: repository is already locked by PID 7 on h' >&2; exit 1\n";

TEST_F(ResticFaults, ALivingLockIsWaitedForAndNotBeyondPatience) {
    auto request = Request();
    const std::string lock = m_folder.Write("l/tarvo/j/1/locks/0123", "");
    const std::string script = std::string(Version) + "if [ \"$1\" = unlock ]; then touch " +
                               (m_folder / "tried") + "; exit 0; fi\nif [ -e " + lock + " ]; then " + Locked +
                               "fi\n" + Summary;
    const auto program = m_folder.Write("restic", "#!/bin/sh\n" + script, 0755);
    SResticOptions options{.Program = program, .CacheFolder = m_folder / "cache"};
    options.LockPatience = 0ms;
    EXPECT_THROW(MakeResticEngine(options)->BackUp(request, {}), CStoreLocked);
    std::filesystem::remove(m_folder / "tried");
    options.LockPatience = 60s;
    std::jthread worker([&] {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (!std::filesystem::exists(m_folder / "tried") && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        std::filesystem::remove(lock);
    });
    EXPECT_EQ(MakeResticEngine(options)->BackUp(request, {}).Snapshot, "abcd");
    worker.join();

    m_folder.Write("l/tarvo/j/1/locks/0123", "");
    std::stop_source source;
    std::filesystem::remove(m_folder / "tried");
    std::jthread stopper([&] {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (!std::filesystem::exists(m_folder / "tried") && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        source.request_stop();
    });
    EXPECT_THROW(MakeResticEngine(options)->BackUp(request, source.get_token()), CEngineStopped);
}

TEST_F(ResticFaults, WhatWasSaidOfALockIsNoWarningOnceTheRetrySucceeds) {
    const std::string lock = m_folder.Write("l/tarvo/j/1/locks/0123", "");
    const auto result = BackUp("if [ \"$1\" = unlock ]; then rm " + lock + "; exit 0; fi\nif [ -e " + lock +
                               " ]; then echo '{\"message_type\":\"status\",\"percent_done\":0}'\n"
                               "echo 'lock was created at 2026-11-21 (1m ago)' >&2\n" +
                               Locked + "fi\necho 'cannot read attribute of /a' >&2\n" + Summary);
    EXPECT_EQ(result.Warnings, 1U);
    EXPECT_EQ(m_warnings, std::vector<std::string>{"cannot read attribute of /a"});
}

TEST_F(ResticFaults, WhatWasSaidBeforeAnotherFailureIsTold) {
    EXPECT_THROW(BackUp("echo 'the disk is odd' >&2; echo 'Fatal: no way' >&2; exit 1"), CEngineFailed);
    EXPECT_EQ(m_warnings, std::vector<std::string>{"the disk is odd"});
}

TEST_F(ResticFaults, AWarningHoldsTheWholeNameWhateverIsInIt) {
    const auto request = Request();
    const auto restored =
        Engine(std::string(Version) +
               "printf 'ignoring error for /s/a\\n\\nb: c: open /t/s/a\\n\\nb: c: permission denied\\n' >&2\n"
               "printf 'ignoring error for /s/d: UtimesNano: not permitted\\n' >&2\n"
               "printf 'ignoring error for /s/d: UtimesNano: not permitted\\n' >&2\n"
               "printf 'ignoring error for /s/d: chown: not permitted\\n' >&2\n"
               "printf 'Fatal: There were 4 errors\\n\\n' >&2\nexit 1\n")
            ->Restore({request.Store, "abcd", "/t/", {}, "p", request.OnWarning}, {});
    EXPECT_EQ(restored.Warnings, 2U);
    EXPECT_EQ(m_warnings,
              (std::vector<std::string>{"/s/a\\n\\nb: c: open /t/s/a\\n\\nb: c: permission denied",
                                        "/s/d: UtimesNano: not permitted", "/s/d: chown: not permitted"}));
}

TEST_F(ResticFaults, ARestoreThatFindsNoRoomSaysSoInOneShortReason) {
    const auto request = Request();
    std::string script = Version;
    for (const char* name : {"a\\nb", "c", "c", "d"})
        script += std::string("printf 'ignoring error for /s/") + name + ": write /t/s/" + name +
                  ": no space left on device\\n' >&2\n";
    script += "echo 'Fatal: There were 4 errors' >&2; exit 1\n";
    const auto message = MessageOf<CNoSpace>([&] {
        Engine(script)->Restore({request.Store, "abcd", "/t", {}, "p1 of today", request.OnWarning}, {});
    });
    EXPECT_EQ(message, "Restoring the point p1 of today from \"" + request.Store.Folder +
                           "\" failed: no space left on device: \"/s/a\\nb\" and 2 more");
    EXPECT_EQ(m_warnings.size(), 3U);
}

TEST_F(ResticFaults, MessagesNameThePointAsPeopleKnowIt) {
    const auto request = Request();
    const auto engine = Engine(std::string(Version) + "echo 'Fatal: no way' >&2; exit 1\n");
    const std::string snapshot(64, 'e');
    for (const auto& message :
         {MessageOf<CEngineFailed>([&] {
              engine->Restore({request.Store, snapshot, "/t", {}, "p1 of today", {}}, {});
          }),
          MessageOf<CEngineFailed>([&] {
              engine->List({request.Store, snapshot, "/", "p1 of today"}, [](const SEntry&) {}, {});
          })}) {
        EXPECT_NE(message.find("the point p1 of today from"), std::string::npos) << message;
        EXPECT_EQ(message.find(snapshot), std::string::npos) << message;
    }
}

TEST_F(ResticFaults, AProgramEndsWithTheAgentHoweverThatEnds) {
    const auto request = Request();
    const auto engine = Engine(std::string(Version) + "echo $$ > " + (m_folder / "pid.new") + "; mv " +
                               (m_folder / "pid.new") + " " + (m_folder / "pid") + "\nexec sleep 1000");
    const pid_t agent = ::fork();
    if (agent == 0) {
        try {
            engine->BackUp(request, {});
        } catch (...) {  // it has only to be there
        }
        ::_exit(0);
    }
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!std::filesystem::exists(m_folder / "pid") && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    ::kill(agent, SIGKILL);
    ::waitpid(agent, nullptr, 0);
    const auto program = std::stoi(ContentOf(m_folder / "pid"));
    while (::kill(program, 0) == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_NE(::kill(program, 0), 0);
}

TEST_F(ResticFaults, ADiskThatIsFullEndsTheTryingAgain) {
    const std::string again =
        "while :; do echo 'Save(<data/ab>) returned error, retrying after 1s: write: no space left on "
        "device' >&2; "
        "sleep 0.1; done";
    EXPECT_THROW(BackUp(again), CNoSpace);
}

TEST_F(ResticFaults, AStoreThatDisappearsEndsTheTryingAgain) {
    const std::string again =
        "rm " + (m_folder / "l/tarvo/j/1/config") +
        "; while :; do echo 'Save(<data/ab>) returned error, retrying after 1s: open: no such "
        "file or directory' >&2; sleep 0.1; done";
    EXPECT_THROW(BackUp(again), CNoStore);
}

TEST_F(ResticFaults, ThePasswordStandsNeitherInArgumentsNorInTheEnvironment) {
    ::setenv("RESTIC_REPOSITORY", "/elsewhere", 1);
    auto request = Request();
    request.Store.Password = "s3cret-word";
    Engine(std::string(Version) + "cat $RESTIC_PASSWORD_FILE > " + (m_folder / "password") + "; env > " +
           (m_folder / "env") + "; echo \"$@\" > " + (m_folder / "args") +
           "; cat $RESTIC_PASSWORD_FILE; echo\n" + Summary)
        ->BackUp(request, {});
    ::unsetenv("RESTIC_REPOSITORY");
    EXPECT_EQ(ContentOf(m_folder / "password"), "s3cret-word");
    const auto environment = ContentOf(m_folder / "env");
    EXPECT_EQ(environment.find("s3cret-word"), std::string::npos);
    EXPECT_EQ(environment.find("elsewhere"), std::string::npos);
    EXPECT_NE(environment.find("RESTIC_CACHE_DIR=" + (m_folder / "cache")), std::string::npos);
    EXPECT_EQ(ContentOf(m_folder / "args").find("s3cret-word"), std::string::npos);
}

TEST_F(ResticFaults, NonsenseForAListOfSnapshotsIsAFailure) {
    Request();
    for (const char* answer : {"", "nonsense", "[{", "{}x"})
        EXPECT_THROW(Engine(std::string(Version) + "printf '%s' '" + answer + "'")
                         ->Snapshots({m_folder / "l/tarvo/j/1", {}}, {}),
                     CEngineFailed)
            << answer;
}

TEST_F(ResticFaults, TheMessageHoldsTheLastWordsEscaped) {
    const auto message =
        MessageOf<CEngineFailed>([&] { BackUp("printf 'Fatal: \\033[1mno\\n''way\\n' >&2; exit 1"); });
    EXPECT_NE(message.find("exited with status 1: Fatal: \\x1b[1mno / way"), std::string::npos) << message;
}

}  // namespace
