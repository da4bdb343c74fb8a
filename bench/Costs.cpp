// SPDX-License-Identifier: Apache-2.0
#include "bench/Costs.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <optional>

#include "bench/Round.h"

namespace zambench {
namespace {

long SwitchesSoFar() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

double CountSwitches(const std::function<void()>& run, int runs) {
    const long before = SwitchesSoFar();
    for (int i = 0; i < runs; ++i)
        run();
    return static_cast<double>(SwitchesSoFar() - before) / runs;
}

/// Stops once before the first run, unless tracing is not allowed.
[[noreturn]] void RunTraced(const Prepare& prepare, int runs) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(0);
    try {
        const auto run = prepare();
        ::raise(SIGSTOP);
        for (int i = 0; i < runs; ++i)
            run();
    } catch (const std::exception&) {
        ::_exit(1);
    }
    ::_exit(0);
}

/// Lets a stopped process run to its end. Returns how often it entered the kernel or came back from it.
long CountStops(pid_t pid) {
    constexpr int SystemCallStop = SIGTRAP | 0x80;
    Require(::ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD) == 0, "tracing a process");
    long stops = 0;
    int signal = 0;
    while (true) {
        int status = 0;
        Require(::ptrace(PTRACE_SYSCALL, pid, nullptr, signal) == 0 && ::waitpid(pid, &status, 0) == pid,
                "tracing a process");
        if (!WIFSTOPPED(status)) {
            Require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the runs of a traced process");
            return stops;
        }
        const bool isSystemCall = WSTOPSIG(status) == SystemCallStop;
        stops += isSystemCall ? 1 : 0;
        signal = isSystemCall || WSTOPSIG(status) == SIGSTOP ? 0 : WSTOPSIG(status);
    }
}

std::optional<double> CountSystemCalls(const Prepare& prepare, int runs) {
    const pid_t pid = ::fork();
    Require(pid >= 0, "fork");
    if (pid == 0) RunTraced(prepare, runs);
    int status = 0;
    Require(::waitpid(pid, &status, 0) == pid, "waiting for a process to be traced");
    if (!WIFSTOPPED(status)) return {};
    return static_cast<double>(CountStops(pid)) / 2 / runs;
}

}  // namespace

std::string CountCosts(const Prepare& prepare, int runs) {
    char text[80];
    int length = std::snprintf(text, sizeof text, "%.2f voluntary switches", CountSwitches(prepare(), runs));
    if (const auto calls = CountSystemCalls(prepare, runs))
        length += std::snprintf(text + length, sizeof text - static_cast<std::size_t>(length),
                                ", %.2f system calls", *calls);
    return {text, static_cast<std::size_t>(length)};
}

}  // namespace zambench
