// SPDX-License-Identifier: Apache-2.0
// Peers that lie about lengths, ask for what is not theirs, and lay traps.
#include <apigen/CXmlData.h>
#include <zamclientlib/ApiClient.h>
#include <zamservice/EventSource.h>
#include <zamservice/Service.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <limits>

#include "tests/events/Sockets.h"
#include "tests/reliability/Reliability.h"

extern char** environ;  // NOLINT: the C library's

namespace reliability {
namespace {

constexpr std::size_t MiB = 1024 * 1024;
constexpr std::size_t Limit = apigen::IIoDev::MaxMessageBytes;

std::string Text(std::size_t number) {
    return std::to_string(number);
}

class LyingLengths : public CReliabilityTest {
protected:
    /// How connecting and calling end with a tool that announces `announced` bytes in its answer and sends ten.
    static SOutcome CallWithLie(std::size_t announced, std::size_t sent) {
        return OutcomeOf([&] {
            const std::size_t all = 2 * HeaderBytes + Greeting.size() + sent;
            ConnectPackages({"announce=" + Text(announced), "out=" + Text(all)})->GetPackageNameFromFile("a");
        });
    }
    static SOutcome GreetWithLie(std::size_t announced, std::size_t sent) {
        return OutcomeOf([&] {
            Connect({"announce-greeting=" + Text(announced), "out=" + Text(HeaderBytes + sent)});
        });
    }
};

TEST_F(LyingLengths, OfAnswersAndGreetingsAreRefusedByType) {
    struct SLie {
        std::size_t Announced;
        std::size_t Sent;
        EOutcome Outcome;
    };
    for (const SLie& lie :
         std::initializer_list<SLie>{{0, 10, EOutcome::Broken},
                                     {TrueAnswer.size() + 1, TrueAnswer.size(), EOutcome::Gone},
                                     {TrueAnswer.size() - 1, TrueAnswer.size(), EOutcome::Broken},
                                     {Limit, 10, EOutcome::Gone},
                                     {Limit + 1, 10, EOutcome::Broken},
                                     {std::numeric_limits<std::uint32_t>::max(), 10, EOutcome::Broken}}) {
        const SOutcome outcome = CallWithLie(lie.Announced, lie.Sent);
        EXPECT_EQ(outcome.Kind, lie.Outcome) << lie.Announced << ": " << outcome;
        EXPECT_LT(outcome.Took, 5s);
    }
    for (const SLie& lie :
         std::initializer_list<SLie>{{0, 10, EOutcome::Broken},
                                     {Greeting.size() + 1, Greeting.size(), EOutcome::Gone},
                                     {Greeting.size() - 1, Greeting.size(), EOutcome::Broken},
                                     {Limit, 10, EOutcome::Gone},
                                     {Limit + 1, 10, EOutcome::Broken},
                                     {std::numeric_limits<std::uint32_t>::max(), 10, EOutcome::Broken}}) {
        const SOutcome outcome = GreetWithLie(lie.Announced, lie.Sent);
        EXPECT_EQ(outcome.Kind, lie.Outcome) << lie.Announced << ": " << outcome;
        EXPECT_LT(outcome.Took, 5s);
    }
}

TEST_F(LyingLengths, EarnNoMemory) {
    if (IsSanitized) GTEST_SKIP() << "a sanitizer has memory of its own";
    const int grown = InAProcessOfItsOwn([&] {
        const std::string status = "/proc/self/status";
        const std::size_t resident = MemoryOf(status, "VmHWM");
        const std::size_t whole = MemoryOf(status, "VmPeak");
        for (int i = 0; i < 3; ++i) {
            CallWithLie(Limit, 10);
            GreetWithLie(Limit, 10);
        }
        const std::string path = m_folder.Path("socket");
        const tests::CRawServer server(path);
        zamclientlib::CEventsStream stream(tests::ConfigFor(path), nullptr);
        tests::CSocket socket = server.Accept();
        socket.Send(std::string("\0\0\0\x10", 4) + "ten bytes.");
        stream.ReadUntil(Clock::now() + 50ms);
        socket.Close();
        if (OutcomeOf([&] { stream.Read(); }).Kind != EOutcome::Gone) return 2;
        if (MemoryOf(status, "VmHWM") > resident + 8 * MiB) return 3;
        if (MemoryOf(status, "VmPeak") > whole + 16 * MiB) return 4;
        return 0;
    });
    EXPECT_EQ(grown, 0);
}

TEST_F(LyingLengths, OfEventsAreRefusedByType) {
    const std::string document = tests::EventFrame(1).substr(4);
    struct SLie {
        std::size_t Announced;
        EOutcome Outcome;
    };
    for (const SLie& lie : std::initializer_list<SLie>{{0, EOutcome::Internal},
                                                       {document.size() + 1, EOutcome::Gone},
                                                       {document.size() - 1, EOutcome::Broken},
                                                       {Limit, EOutcome::Gone},
                                                       {Limit + 1, EOutcome::Broken},
                                                       {0xffffffff, EOutcome::Broken}}) {
        const std::string path = m_folder.Path("socket");
        const tests::CRawServer server(path);
        zamclientlib::CEventsStream stream(tests::ConfigFor(path), nullptr);
        tests::CSocket socket = server.Accept();
        socket.Receive(4);
        std::string frame = document;
        for (int shift = 24; shift >= 0; shift -= 8)
            frame.insert(frame.begin(), static_cast<char>(lie.Announced >> shift & 0xff));
        socket.Send(frame);
        socket.Close();
        const SOutcome outcome = OutcomeOf([&] { stream.Read(); });
        EXPECT_TRUE(outcome.Kind == lie.Outcome ||
                    (outcome.Kind == EOutcome::Internal && lie.Outcome == EOutcome::Broken) ||
                    (outcome.Kind == EOutcome::Broken && lie.Outcome == EOutcome::Internal))
            << lie.Announced << ": " << outcome;
        std::filesystem::remove(path);
    }
}

/// The kit's service as a child, with its streams in our hands.
class CRawTool {
public:
    explicit CRawTool(const char* program) {
        int input[2];
        int output[2];
        if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) std::abort();
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        std::string name = program;
        char* const arguments[] = {name.data(), nullptr};
        if (::posix_spawn(&m_pid, program, &actions, nullptr, arguments, environ) != 0) std::abort();
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        m_input = input[1];
        m_output = output[0];
    }
    CRawTool(const CRawTool&) = delete;
    CRawTool& operator=(const CRawTool&) = delete;
    ~CRawTool() { End(); }

    pid_t Pid() const { return m_pid; }

    void Send(const std::string& bytes) const {
        for (std::size_t done = 0; done < bytes.size();) {
            const ssize_t count = ::write(m_input, bytes.data() + done, bytes.size() - done);
            if (count <= 0) return;
            done += static_cast<std::size_t>(count);
        }
    }

    std::string Receive() const {
        std::string header = ReceiveBytes(HeaderBytes);
        std::size_t length = 0;
        for (std::size_t i = header.size(); i-- > 0;)
            length = length << 8 | static_cast<unsigned char>(header[i]);
        return ReceiveBytes(length);
    }

    bool HasTakenAll() const {
        int left = 0;
        return ::ioctl(m_input, FIONREAD, &left) == 0 && left == 0;
    }

    /// Its exit code once it has been told the end of the input; -1 when a signal ended it.
    int End() {
        if (m_pid < 0) return m_result;
        ::close(m_input);
        ::close(m_output);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_pid = -1;
        return m_result = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    std::string ReceiveBytes(std::size_t size) const {
        std::string bytes(size, '\0');
        for (std::size_t done = 0; done < size;) {
            pollfd item{m_output, POLLIN, 0};
            if (::poll(&item, 1, 20'000) != 1) return "nothing came";
            const ssize_t count = ::read(m_output, bytes.data() + done, size - done);
            if (count <= 0) return bytes.substr(0, done);
            done += static_cast<std::size_t>(count);
        }
        return bytes;
    }

    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    int m_result = -1;
};

const std::string Supported =
    "<Data><__handle>1</__handle><__method>IsSystemSupported_6523745946180482134</__method></Data>";

TEST_F(LyingLengths, OfRequestsEarnNoMemoryAtTheServiceAndEndIt) {
    if (IsSanitized) GTEST_SKIP() << "a sanitizer has memory of its own";
    for (const std::string& header :
         {std::string("\0\0\0\x10", 4), std::string("\1\0\0\x10", 4), std::string("\xff\xff\xff\xff", 4),
          std::string("\xff\xff\xff\x0f", 4)}) {
        CRawTool tool(RELIABILITY_SERVICE);
        EXPECT_EQ(tool.Receive(), Greeting);
        tool.Send(tests::Frame(Supported));
        EXPECT_EQ(tool.Receive(), TrueAnswer);
        const std::string status = "/proc/" + std::to_string(tool.Pid()) + "/status";
        const std::size_t before = MemoryOf(status, "VmHWM");
        const std::size_t wholeBefore = MemoryOf(status, "VmPeak");
        tool.Send(header + "ten bytes.");
        EXPECT_TRUE(Eventually([&] { return tool.HasTakenAll(); }));
        EXPECT_LT(MemoryOf(status, "VmHWM"), before + 8 * MiB);
        EXPECT_LT(MemoryOf(status, "VmPeak"), wholeBefore + 16 * MiB);
        EXPECT_EQ(tool.End(), 1);
    }
}

TEST_F(LyingLengths, OfOneTooManyAndOneTooFewEndTheServiceOrAreAnswered) {
    {
        CRawTool tool(RELIABILITY_SERVICE);
        tool.Receive();
        tool.Send(tests::Frame("").substr(0, 4));  // a message of nothing
        EXPECT_THAT(tool.Receive(), testing::HasSubstr("__api_internal_err"));
        tool.Send(tests::Frame(Supported.substr(0, Supported.size() - 1)));
        EXPECT_THAT(tool.Receive(), testing::HasSubstr("__api_internal_err"));
        tool.Send(tests::Frame(Supported));
        EXPECT_EQ(tool.Receive(), TrueAnswer) << "an answered request is not the end";
        EXPECT_EQ(tool.End(), 0);
    }
    CRawTool tool(RELIABILITY_SERVICE);
    tool.Receive();
    tool.Send(tests::Frame(Supported + ' ').substr(0, HeaderBytes + Supported.size()));
    EXPECT_EQ(tool.End(), 1);
}

class Limits : public CReliabilityTest {};

TEST_F(Limits, OfARequestAreKeptToTheByte) {
    if (IsSanitized || (!IsOptimised && !IsFull())) GTEST_SKIP() << "takes long unless optimised";
    const auto invoker = Invoker({}, 120s);
    const auto request = [](std::size_t size) {
        const auto data = apigen::CXmlData::CreateNew();
        data->SetString("a", "");
        const std::size_t overhead = apigen::CXmlData::Serialize(*data).size();
        data->SetString("a", std::string(size - overhead, 'x'));
        return data;
    };
    EXPECT_TRUE(invoker->Invoke(request(1000))->HasValue("__result"));
    const SOutcome past = OutcomeOf([&] { invoker->Invoke(request(Limit + 1)); });
    EXPECT_EQ(past.Kind, EOutcome::Internal) << past;
    const SOutcome most =
        OutcomeOf([&] { EXPECT_TRUE(invoker->Invoke(request(Limit))->HasValue("__result")); });
    EXPECT_EQ(most.Kind, EOutcome::Success) << most;
    EXPECT_TRUE(invoker->Invoke(request(1000))->HasValue("__result")) << "the connection stays usable";
}

TEST_F(Limits, OfAnAnswerAreKeptToTheByte) {
    if (!IsFull() || IsSanitized) GTEST_SKIP() << "runs with ZAM_RELIABILITY=full";
    const std::size_t overhead = std::string("<Data><__result></__result></Data>").size();
    const SOutcome most = OutcomeOf([&] {
        EXPECT_EQ(ConnectPackages({"answer-size=" + Text(Limit - overhead)}, 120s)
                      ->GetPackageNameFromFile("a")
                      .size(),
                  Limit - overhead);
    });
    EXPECT_EQ(most.Kind, EOutcome::Success) << most;
    const SOutcome past = OutcomeOf([&] {
        ConnectPackages({"answer-size=" + Text(Limit - overhead + 1)}, 120s)->GetPackageNameFromFile("a");
    });
    EXPECT_EQ(past.Kind, EOutcome::Broken) << past;
}

TEST_F(Limits, OfAMessageEndNoConnectionWhenTheTextOfAFailureIsLarger) {
    if (IsSanitized || (!IsOptimised && !IsFull())) GTEST_SKIP() << "takes long unless optimised";
    const auto invoker = Invoker({}, 120s, nullptr, RELIABILITY_SERVICE);
    const auto answer = [&](const std::string& method) {
        const auto request = apigen::CXmlData::CreateNew();
        request->SetString("__handle", "1");
        request->SetString("__method", method);
        return invoker->Invoke(request);
    };
    // The name of an unknown method is told with its control characters as escapes of four.
    const SOutcome outcome = OutcomeOf([&] {
        EXPECT_THAT(
            answer(std::string(Limit / 4 + 1, '\x01'))->GetChild("__api_internal_err")->GetString("msg"),
            testing::HasSubstr("over the limit of a message"));
    });
    EXPECT_EQ(outcome.Kind, EOutcome::Success) << outcome;
    EXPECT_TRUE(answer("IsSystemSupported_6523745946180482134")->HasValue("__result"));
}

class Handles : public CReliabilityTest {
protected:
    static std::shared_ptr<apigen::CApiClientInvoker> Service(const Arguments& arguments = {}) {
        return Invoker(arguments, 60s, nullptr, RELIABILITY_SERVICE);
    }

    /// Opens objects until one is refused.
    static SOutcome OpenAll(zamclientlib::ITarvoInstaller& root,
                            std::vector<std::shared_ptr<zamclientlib::IService>>& objects, std::size_t most) {
        SOutcome outcome;
        while (outcome.Kind == EOutcome::Success && objects.size() < most)
            outcome = OutcomeOf([&] { objects.push_back(root.FindService("a")); });
        return outcome;
    }
};

TEST_F(Handles, ThatAreForgedAreRefusedAndHarmNobody) {
    const auto invoker = Service();
    const auto root =
        std::make_shared<zamclientlib::ITarvoInstaller_Proxy>(invoker, invoker->GetRootHandle());
    const auto own = root->FindService("own");
    const auto dropped = root->FindService("dropped");
    const auto droppedHandle = dynamic_cast<zamclientlib::IService_Proxy&>(*dropped).GetHandle();
    auto released = apigen::CXmlData::CreateNew();
    released->SetString("__handle", std::to_string(droppedHandle.Value));
    released->SetString("__method", "__dtr");
    invoker->Invoke(released);
    for (const std::uint64_t handle : {std::uint64_t{0}, std::uint64_t{999}, droppedHandle.Value,
                                       std::numeric_limits<std::uint64_t>::max()}) {
        const auto forged = std::make_shared<zamclientlib::IService_Proxy>(invoker, apigen::Handle{handle});
        const SOutcome outcome = OutcomeOf([&] { forged->GetName(); });
        EXPECT_EQ(outcome.Kind, EOutcome::Internal) << handle << ": " << outcome;
        EXPECT_EQ(own->GetName(), "own");
    }
    // An object of another kind: its methods are its own.
    const auto other = std::make_shared<zamclientlib::IService_Proxy>(invoker, invoker->GetRootHandle());
    const SOutcome outcome = OutcomeOf([&] { other->GetName(); });
    EXPECT_EQ(outcome.Kind, EOutcome::Internal) << outcome;
    EXPECT_EQ(own->GetName(), "own");
}

TEST_F(Handles, WithoutEndAreRefusedAtTheLimitAndGivenAgainAfterReleases) {
    const auto invoker = Service({"limit=100"});
    const auto root =
        std::make_shared<zamclientlib::ITarvoInstaller_Proxy>(invoker, invoker->GetRootHandle());
    std::vector<std::shared_ptr<zamclientlib::IService>> objects;
    for (int round = 0; round < 3; ++round) {
        const SOutcome outcome = OpenAll(*root, objects, 1000);
        EXPECT_TRUE(outcome.Kind == EOutcome::Refused || outcome.Kind == EOutcome::Internal) << outcome;
        EXPECT_EQ(objects.size(), 99U) << "the root is the hundredth";
        EXPECT_EQ(objects.back()->GetName(), "a");
        EXPECT_TRUE(root->IsSystemSupported());
        objects.resize(90);
    }
}

TEST_F(Handles, WithoutEndTakeMemoryToAMeasure) {
    if (!IsFull() || IsSanitized) GTEST_SKIP() << "runs with ZAM_RELIABILITY=full";
    // By hand: a client that keeps no objects itself.
    CRawTool tool(RELIABILITY_SERVICE);
    tool.Receive();
    const std::string request = tests::Frame(
        "<Data><serviceName>a</serviceName><__handle>1</__handle>"
        "<__method>FindService_15620865180769635232</__method></Data>");
    std::size_t count = 1;
    for (;; ++count) {
        tool.Send(request);
        if (tool.Receive().find("<__handle>") == std::string::npos) break;
    }
    EXPECT_EQ(count, zamservice::CService::DefaultObjectLimit);
    const std::size_t memory = MemoryOf("/proc/" + std::to_string(tool.Pid()) + "/status", "VmHWM");
    RecordProperty("MiB", static_cast<int>(memory / MiB));
    std::printf("%zu objects take %zu MiB\n", count, memory / MiB);
    EXPECT_LT(memory, 1024 * MiB);
}

TEST_F(Handles, ThatAreNoNumbersAreRefused) {
    const auto invoker = Service();
    for (const char* const handle :
         {"", "x", "-1", "1.5", "18446744073709551616", " ", "0x1", "99999999999999999999"}) {
        auto request = apigen::CXmlData::CreateNew();
        request->SetString("__handle", handle);
        request->SetString("__method", "GetName_12671373201279964889");
        EXPECT_TRUE(invoker->Invoke(request)->HasValue("__api_internal_err")) << handle;
    }
}

// --- Event sockets ---

class EventSockets : public CReliabilityTest {};

constexpr uid_t Nobody = 65534;
constexpr int NotPossibleHere = 77;

TEST_F(EventSockets, AreClosedToOtherUsersWhateverTheirPermissionsSay) {
    const std::string directory = m_folder.Path("events");
    zamservice::CEventSource source(directory);
    const auto tryAsNobody = [&] {
        return InAProcessOfItsOwn([&] {
            if (::setresgid(Nobody, Nobody, Nobody) != 0 || ::setresuid(Nobody, Nobody, Nobody) != 0)
                return NotPossibleHere;
            try {
                zamclientlib::CEventsStream stream(source.Config(), nullptr);
                source.SubscriberCount();
                const SOutcome outcome = OutcomeOf([&] { stream.ReadUntil(Clock::now() + 10s); });
                return outcome.Kind == EOutcome::Gone ? 1 : 3;
            } catch (const std::system_error& error) {
                return error.code().value() == EACCES ? 0 : 4;
            }
        });
    };
    const int strict = tryAsNobody();
    if (strict == NotPossibleHere) GTEST_SKIP() << "needs the right to become another user";
    EXPECT_EQ(strict, 0) << "the folder keeps them out";
    // Somebody has opened the folder and the socket: the source asks who comes all the same.
    std::filesystem::permissions(directory, std::filesystem::perms::all);
    std::filesystem::permissions(source.SocketPath(), std::filesystem::perms::all);
    EXPECT_EQ(tryAsNobody(), 1);
    EXPECT_EQ(source.SubscriberCount(), 0U);
    zamclientlib::CEventsStream own(source.Config(), nullptr);
    EXPECT_TRUE(Eventually([&] { return source.SubscriberCount() == 1; }));
    source.Publish(tests::NumberedEvent(5));
    EXPECT_EQ(own.Read().Id, 5U);
}

TEST_F(EventSockets, AreNotMadeWhereALinkLeads) {
    const std::string directory = m_folder.Path("events");
    std::filesystem::create_directory(directory);
    std::filesystem::permissions(directory, std::filesystem::perms::owner_all);
    m_folder.Write("victim", "precious");
    std::filesystem::create_symlink(m_folder.Path("victim"), directory + "/events.sock");
    std::filesystem::create_symlink(m_folder.Path("unborn"), directory + "/other.sock");
    for (const char* const name : {"events.sock", "other.sock"})
        OutcomeOf([&] { zamservice::CEventSource(directory, name).Stop(); });
    EXPECT_EQ(zamtest::LinesOf(m_folder.Path("victim")).at(0), "precious");
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path("unborn")));
}

TEST_F(EventSockets, AreNotMadeInAFolderThatALinkLeadsTo) {
    const std::string elsewhere = m_folder.Path("elsewhere");
    std::filesystem::create_directory(elsewhere);
    std::filesystem::permissions(elsewhere, std::filesystem::perms::all);
    m_folder.Write("elsewhere/file", "precious");
    std::filesystem::create_symlink(elsewhere, m_folder.Path("events"));
    EXPECT_NE(OutcomeOf([&] { zamservice::CEventSource(m_folder.Path("events")).Stop(); }).Kind,
              EOutcome::Success);
    EXPECT_EQ(std::filesystem::status(elsewhere).permissions(), std::filesystem::perms::all);
}

TEST_F(EventSockets, TakeNoMemoryForOpeningWordsThatLie) {
    zamservice::CEventSource source(m_folder.Path("events"));
    const std::size_t before = MemoryOf("/proc/self/status", "VmHWM");
    for (const std::string& opening : {std::string("\0\0\0\x10", 4), std::string("\xff\xff\xff\xff", 4),
                                       std::string("\1\0\0\0", 4), std::string(1000, 'x')}) {
        const tests::CSocket socket = tests::Connected(source.SocketPath(), opening);
        EXPECT_EQ(socket.Receive(), "") << "the source hangs up";
    }
    EXPECT_EQ(source.SubscriberCount(), 0U);
    EXPECT_TRUE(IsSanitized || MemoryOf("/proc/self/status", "VmHWM") < before + 8 * MiB);
}

}  // namespace
}  // namespace reliability
