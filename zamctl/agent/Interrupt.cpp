// SPDX-License-Identifier: Apache-2.0
#include "agent/Interrupt.h"

#include <atomic>
#include <csignal>

namespace zamctl {
namespace {

// For the handler, which may use nothing but lock-free atomics and what is made for it.
std::atomic<apigen::CCancellation*> s_cancellation{nullptr};
std::atomic<int> s_signal{0};
std::atomic<int> s_asking{0};       // how many CAskedInterrupts there are
std::atomic<bool> s_isTaken{true};  // whether the last SIGINT was taken
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void OnSignal(int signal) {
    if (signal == SIGINT && s_asking > 0 && s_isTaken.exchange(false)) return;
    if (s_signal.exchange(signal) != 0) {
        // The second one: whatever is still going on has had its chance.
        std::signal(signal, SIG_DFL);
        std::raise(signal);
        return;
    }
    if (auto* const cancellation = s_cancellation.load()) cancellation->Cancel();
}

}  // namespace

std::shared_ptr<apigen::CCancellation> Interruption() {
    static const auto cancellation = std::make_shared<apigen::CCancellation>();
    return cancellation;
}

void CatchInterrupts() {
    s_cancellation = Interruption().get();
    struct sigaction action {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction present {};
        // Whoever started us ignoring one, as nohup does, means it.
        if (::sigaction(signal, nullptr, &present) == 0 && present.sa_handler != SIG_IGN)
            ::sigaction(signal, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
}

int InterruptedBy() {
    return s_signal;
}

CAskedInterrupts::CAskedInterrupts() {
    ++s_asking;
}

CAskedInterrupts::~CAskedInterrupts() {
    --s_asking;
    s_isTaken = true;
}

bool CAskedInterrupts::Take() {
    return !s_isTaken.exchange(true);
}

}  // namespace zamctl
