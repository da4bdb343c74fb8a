// SPDX-License-Identifier: Apache-2.0
#include "bench/Children.h"

#include <zamclientlib/ApiClient.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <string>

#include "bench/Round.h"

extern char** environ;

namespace zambench {
namespace {

struct SPipe {
    int Read;
    int Write;
};

SPipe MakePipe() {
    std::array<int, 2> ends{};
    Require(::pipe2(ends.data(), O_CLOEXEC) == 0, "a pipe");
    return {ends[0], ends[1]};
}

[[noreturn]] void RunTraced(const std::function<void()>& run, int runs) {
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    bool isGood = true;
    try {
        for (int i = 0; i < runs; ++i)
            run();
    } catch (const std::exception&) {
        isGood = false;
    }
    ::_exit(isGood ? 0 : 1);
}

/// Lets a stopped process run until it ends. Returns how often it went into the kernel or came out of it.
long CountStops(pid_t pid) {
    constexpr int SystemCallStop = SIGTRAP | 0x80;
    int status = 0;
    Require(::waitpid(pid, &status, 0) == pid && WIFSTOPPED(status), "waiting for the traced process");
    Require(::ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) == 0,
            "ptrace");
    long stops = 0;
    for (int signal = 0; WIFSTOPPED(status);) {
        Require(::ptrace(PTRACE_SYSCALL, pid, nullptr, signal) == 0 && ::waitpid(pid, &status, 0) == pid,
                "tracing a process");
        const bool isSystemCall = WIFSTOPPED(status) && WSTOPSIG(status) == SystemCallStop;
        stops += isSystemCall ? 1 : 0;
        signal = isSystemCall ? 0 : WSTOPSIG(status);
    }
    Require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the traced process");
    return stops;
}

long SwitchesSoFar() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

}  // namespace

CBareChild::CBareChild(std::size_t request, std::size_t answer)
    : m_request(request), m_answer(answer), m_bytes(std::max(request, answer)) {
    const auto [toChild, write] = MakePipe();
    const auto [read, fromChild] = MakePipe();
    m_write = write;
    m_read = read;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, toChild, STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, fromChild, STDOUT_FILENO);
    std::array<std::string, 3> texts{BARE_CHILD, std::to_string(request), std::to_string(answer)};
    std::array<char*, 4> arguments{texts[0].data(), texts[1].data(), texts[2].data(), nullptr};
    const int error = ::posix_spawn(&m_pid, BARE_CHILD, &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(toChild);
    ::close(fromChild);
    Require(error == 0, "posix_spawn of the bare child");
    Read(1);
}

CBareChild::~CBareChild() {
    ::close(m_write);
    ::close(m_read);
    ::waitpid(m_pid, nullptr, 0);
}

void CBareChild::Exchange() {
    Require(::write(m_write, m_bytes.data(), m_request) == static_cast<ssize_t>(m_request),
            "write to the bare child");
    Read(m_answer);
}

void CBareChild::Read(std::size_t size) {
    for (std::size_t done = 0; done < size;) {
        const ssize_t count = ::read(m_read, m_bytes.data() + done, size - done);
        Require(count > 0, "read from the bare child");
        done += static_cast<std::size_t>(count);
    }
}

CPinned::CPinned(EPlace place) : m_place(place) {
    ::sched_getaffinity(0, sizeof m_before, &m_before);
    if (m_place != EPlace::Free) MoveTo(0);
}

CPinned::~CPinned() {
    ::sched_setaffinity(0, sizeof m_before, &m_before);
}

void CPinned::ChildrenStarted() {
    if (m_place == EPlace::TwoCpus) MoveTo(1);
}

void CPinned::MoveTo(std::size_t which) const {
    for (std::size_t cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &m_before) || which-- != 0) continue;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        Require(::sched_setaffinity(0, sizeof one, &one) == 0, "moving to a processor");
        return;
    }
    // Fewer processors than wanted: where we are is as good as any.
}

double CountSwitches(const std::function<void()>& run, int runs) {
    const long before = SwitchesSoFar();
    for (int i = 0; i < runs; ++i)
        run();
    return static_cast<double>(SwitchesSoFar() - before) / runs;
}

double CountSystemCalls(const std::function<void()>& run, int runs) {
    const pid_t pid = ::fork();
    Require(pid >= 0, "fork");
    if (pid == 0) RunTraced(run, runs);
    return static_cast<double>(CountStops(pid)) / 2 / runs;
}

std::shared_ptr<zamclientlib::IZamControl> ConnectToAgent() {
    return zamclientlib::GetZamControl(std::chrono::seconds(120), false, nullptr);
}

std::shared_ptr<zamclientlib::IZamProduct> ProductOfSize(std::size_t size) {
    zamclientlib::SZamControlOwnerInfo owner;
    owner.Id.Data1 = static_cast<std::uint32_t>(size);
    return ConnectToAgent()->RequestControl(owner, false);
}

}  // namespace zambench
