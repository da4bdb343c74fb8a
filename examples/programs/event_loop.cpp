// SPDX-License-Identifier: Apache-2.0
// Prints the agent's events until standard input ends or the agent does: an event loop with poll.
#include <zamclientlib/EventVisit.h>
#include <zamclientlib/RecordText.h>
#include <zamclientlib/ZamClientLib.h>

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <iostream>
#include <system_error>

using namespace zamclientlib;

namespace {

void Print(const SBaseEvent& event) {
    const bool isKnown = Visit(event, Overloaded{[](const SEventBackupJobFinished& finished) {
                                                     std::cout << "finished: " << finished << std::endl;
                                                 },
                                                 [](const SEventBackupJobStarted& started) {
                                                     std::cout << "started: " << started << std::endl;
                                                 }});
    if (!isKnown) std::cout << event.Type << std::endl;
}

/// Everything that has come: the descriptor does not tell of what the stream has read already.
void Drain(CEventsStream& events) {
    while (const auto event = events.ReadUntil(std::chrono::steady_clock::now())) {
        Print(*event);
    }
}

void Loop(CEventsStream& events) {
    pollfd watched[] = {{events.Descriptor(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    while (true) {
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR) continue;
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (watched[0].revents != 0) Drain(events);
        char input[256];
        if (watched[1].revents != 0 && ::read(STDIN_FILENO, input, sizeof input) <= 0) return;
    }
}

}  // namespace

int main() {
    try {
        const auto control = ConnectToAgent();
        CEventsStream events(control->GetEventConfig(), nullptr);
        std::cout << "listening" << std::endl;
        Loop(events);
        return 0;
    } catch (const EventsLostError& error) {
        std::cerr << "Too slow, events are lost: " << error.what() << '\n';
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
    }
    return 1;
}
