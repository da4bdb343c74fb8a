// SPDX-License-Identifier: Apache-2.0
// What a call and a connection cost, against children that move the same bytes and do nothing else.
#include <zamclientlib/ApiClient.h>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace {

using namespace std::chrono_literals;

// GetToolVersion as it travels, with the four bytes of a frame's length.
const std::string Request =
    "<Data><__handle>1</__handle><__method>GetToolVersion_9650153311793924748</__method></Data>";
const std::string Answer =
    "<Data><__result><major>2</major><minor>0</minor><revision>0</revision><build>0</build></__result></"
    "Data>";
constexpr std::size_t FrameHeader = 4;

enum class EChannel {
    Sockets,
    Pipes
};

void Require(bool isGood, const char* what) {
    if (!isGood) throw std::runtime_error(what);
}

/// A child on bare descriptors.
class CBareChild {
public:
    explicit CBareChild(EChannel channel) {
        const auto [toChild, write] = Make(channel);
        const auto [read, fromChild] = Make(channel);
        m_write = write;
        m_read = read;
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, toChild, STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, fromChild, STDOUT_FILENO);
        const std::array<std::string, 3> texts{BARE_CHILD, std::to_string(Request.size() + FrameHeader),
                                               std::to_string(Answer.size() + FrameHeader)};
        std::array<char*, 4> arguments{const_cast<char*>(texts[0].c_str()),
                                       const_cast<char*>(texts[1].c_str()),
                                       const_cast<char*>(texts[2].c_str()), nullptr};
        const int error = ::posix_spawn(&m_pid, BARE_CHILD, &actions, nullptr, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(toChild);
        ::close(fromChild);
        Require(error == 0, "posix_spawn of the bare child");
        Read(1);
    }
    CBareChild(const CBareChild&) = delete;
    CBareChild& operator=(const CBareChild&) = delete;
    ~CBareChild() {
        ::close(m_write);
        ::close(m_read);
        ::waitpid(m_pid, nullptr, 0);
    }

    void Exchange() {
        const std::size_t size = Request.size() + FrameHeader;
        Require(::write(m_write, m_bytes.data(), size) == static_cast<ssize_t>(size),
                "write to the bare child");
        Read(Answer.size() + FrameHeader);
    }

private:
    struct SEnds {
        int read;
        int write;
    };

    static SEnds Make(EChannel channel) {
        std::array<int, 2> ends{};
        const int failed = channel == EChannel::Pipes
                               ? ::pipe2(ends.data(), O_CLOEXEC)
                               : ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data());
        Require(failed == 0, "a channel to the bare child");
        return {ends[0], ends[1]};
    }

    void Read(std::size_t size) {
        for (std::size_t done = 0; done < size;) {
            const ssize_t count = ::read(m_read, m_bytes.data(), size - done);
            Require(count > 0, "read from the bare child");
            done += static_cast<std::size_t>(count);
        }
    }

    int m_write = -1;
    int m_read = -1;
    pid_t m_pid = -1;
    std::vector<char> m_bytes = std::vector<char>(4096);
};

/// Keeps this process, and the children that it starts meanwhile, on one processor.
class CPinned {
public:
    explicit CPinned(bool isWanted) : m_isWanted(isWanted) {
        if (!m_isWanted) return;
        ::sched_getaffinity(0, sizeof m_before, &m_before);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(::sched_getcpu(), &one);
        ::sched_setaffinity(0, sizeof one, &one);
    }
    CPinned(const CPinned&) = delete;
    CPinned& operator=(const CPinned&) = delete;
    ~CPinned() {
        if (m_isWanted) ::sched_setaffinity(0, sizeof m_before, &m_before);
    }

private:
    bool m_isWanted;
    cpu_set_t m_before{};
};

long SwitchesSoFar() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

/// Counts the client's own voluntary context switches for each call.
void CountSwitches(benchmark::State& state, long before) {
    state.counters["switches"] =
        benchmark::Counter(static_cast<double>(SwitchesSoFar() - before), benchmark::Counter::kAvgIterations);
}

void Call(benchmark::State& state, bool isPinned) {
    const CPinned pinned(isPinned);
    const auto root = zamclientlib::GetTarvoInstaller(BENCH_TOOL, 60s, false, nullptr);
    Require(root->GetToolVersion().major == 2, "the tool's version");
    const long before = SwitchesSoFar();
    for (auto _ : state)
        benchmark::DoNotOptimize(root->GetToolVersion());
    CountSwitches(state, before);
}

void BareExchange(benchmark::State& state, EChannel channel, bool isPinned) {
    const CPinned pinned(isPinned);
    CBareChild child(channel);
    child.Exchange();
    const long before = SwitchesSoFar();
    for (auto _ : state)
        child.Exchange();
    CountSwitches(state, before);
}

void ConnectAndClose(benchmark::State& state) {
    for (auto _ : state)
        zamclientlib::GetTarvoInstaller(BENCH_TOOL, 60s, false, nullptr);
}

void SpawnAndClose(benchmark::State& state) {
    for (auto _ : state)
        CBareChild child(EChannel::Sockets);
}

BENCHMARK_CAPTURE(Call, free, false)->Name("call/client")->UseRealTime();
BENCHMARK_CAPTURE(BareExchange, sockets, EChannel::Sockets, false)->Name("call/bare_sockets")->UseRealTime();
BENCHMARK_CAPTURE(BareExchange, pipes, EChannel::Pipes, false)->Name("call/bare_pipes")->UseRealTime();
BENCHMARK_CAPTURE(Call, pinned, true)->Name("call_on_one_cpu/client")->UseRealTime();
BENCHMARK_CAPTURE(BareExchange, pinned_sockets, EChannel::Sockets, true)
    ->Name("call_on_one_cpu/bare_sockets")
    ->UseRealTime();
BENCHMARK_CAPTURE(BareExchange, pinned_pipes, EChannel::Pipes, true)
    ->Name("call_on_one_cpu/bare_pipes")
    ->UseRealTime();
BENCHMARK(ConnectAndClose)->Name("connect_and_close/client")->UseRealTime();
BENCHMARK(SpawnAndClose)->Name("connect_and_close/bare_spawn")->UseRealTime();

}  // namespace
