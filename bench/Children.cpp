// SPDX-License-Identifier: Apache-2.0
#include "bench/Children.h"

#include <zamclientlib/ApiClient.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
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

std::shared_ptr<zamclientlib::IZamControl> ConnectToAgent() {
    return zamclientlib::GetZamControl(std::chrono::seconds(120), false, nullptr);
}

std::shared_ptr<zamclientlib::IZamProduct> ProductOfSize(std::size_t size) {
    zamclientlib::SZamControlOwnerInfo owner;
    owner.Id.Data1 = static_cast<std::uint32_t>(size);
    return ConnectToAgent()->RequestControl(owner, false);
}

}  // namespace zambench
