// SPDX-License-Identifier: Apache-2.0
// A call in a thread of its own, which Ctrl-C ends early, and another that has a time of its own.
#include <apigen/CCancellation.h>
#include <apigen/CallControl.h>
#include <zamclientlib/RecordText.h>
#include <zamclientlib/ZamClientLib.h>

#include <signal.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <thread>

using namespace zamclientlib;

namespace {

// Made before the handler is set, and never destroyed: a signal may come late.
const auto& cancellation = *new std::shared_ptr(std::make_shared<apigen::CCancellation>());

void OnInterrupt(int /*signal*/) {
    cancellation->Cancel();
}

void Work(const std::shared_ptr<IZamControl>& control) {
    const apigen::CCancellableCalls cancellable(cancellation);  // the calls of this thread, from here on
    try {
        const apigen::CCallTimeout hasTime(
            std::chrono::minutes(10));  // more than the connection's calls have
        std::cout << control->GetProductInfo().Name << std::endl;
    } catch (const apigen::InterruptedError& error) {
        std::cout << "cancelled, " << (error.IsConnectionLost() ? "and connect anew" : "and nothing is lost")
                  << std::endl;
    } catch (const apigen::ApiException& error) {
        std::cout << error.what() << std::endl;
    }
}

}  // namespace

int main() {
    ::signal(SIGINT, OnInterrupt);
    try {
        SConnectOptions options;
        options.CallTimeout = std::chrono::seconds(30);
        const auto control = ConnectToAgent(options);
        std::cout << "connected" << std::endl;
        std::thread worker(Work, control);
        worker.join();

        if (const auto state = GetConnectionState(control); !state) {
            std::cout << "over: " << state.Reason << std::endl;
            return 1;
        }
        const apigen::CCallTimeout isShort(std::chrono::milliseconds(500));
        std::cout << control->GetCurrentOwner() << std::endl;
        return 0;
    } catch (const apigen::ApiException& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
