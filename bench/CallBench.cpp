// SPDX-License-Identifier: Apache-2.0
// What a call costs, against a child that moves the same bytes and does nothing else; and what an object in a
// list costs, against such a call.
#include <zamclientlib/Control.h>

#include <cstdio>

#include "bench/Areas.h"
#include "bench/Children.h"
#include "bench/Samples.h"

namespace zambench {
namespace {

// GetSessionId as it travels, with the four bytes of a frame's length.
constexpr std::size_t Request =
    4 + sizeof "<Data><__handle>1</__handle><__method>GetSessionId_16415403617493696513</__method></Data>" -
    1;
constexpr std::size_t Answer =
    4 + sizeof "<Data><__result>{00000001-4a1e-9c07-8f21-0304050607fe}</__result></Data>" - 1;

template <class Run>
std::string SwitchesPerRun(Run&& run) {
    constexpr int Runs = 2000;
    const long before = SwitchesSoFar();
    for (int i = 0; i < Runs; ++i)
        run();
    char text[16];
    std::snprintf(text, sizeof text, "%.2f", static_cast<double>(SwitchesSoFar() - before) / Runs);
    return text;
}

void CompareCall(const CBench& bench, const std::string& name, EPlace place, double goal) {
    CPinned pinned(place);
    const auto control = ConnectToAgent();
    CBareChild bare(EChannel::Sockets, Request, Answer);
    CBareChild barePipes(EChannel::Pipes, Request, Answer);
    pinned.ChildrenStarted();
    const auto call = [&] { Keep(control->GetSessionId()); };
    const auto ours = [&] { return bench.PerRun(EClock::Wall, call); };
    const auto floor = [&](CBareChild& child) {
        return [&] { return bench.PerRun(EClock::Wall, [&] { child.Exchange(); }); };
    };
    Require(control->GetSessionId() == IdOf(1), "the answer of a small call");

    bench.Compare("small call, " + name + ", ns", goal, ours, floor(bare));
    bench.Compare("small call, " + name + ", to bare pipes", 0, ours, floor(barePipes));
    bench.Note("  context switches a call",
               "ours " + SwitchesPerRun(call) + ", floor " + SwitchesPerRun([&] { bare.Exchange(); }));
}

}  // namespace

void MeasureCalls(const CBench& bench) {
    CompareCall(bench, "free", EPlace::Free, 1.15);
    CompareCall(bench, "on one CPU", EPlace::OneCpu, 1.4);
    CompareCall(bench, "on two CPUs", EPlace::TwoCpus, 0);
}

void MeasureProxies(const CBench& bench) {
    constexpr std::size_t Size = 10'000;
    const auto product = ProductOfSize(Size);
    const auto job = product->FindBackupJob({});
    bench.Compare(
        "object of a list of 10,000, ns; to a call", 0.25,
        [&] {
            return bench.PerRun(EClock::Wall, [&] {
                Require(job->GetBackupJobSessions().size() == Size, "a list of objects");
                // Takes the answers of the releases.
                product->GetSessionId();
            }) / Size;
        },
        [&] { return bench.PerRun(EClock::Wall, [&] { product->GetSessionId(); }); });
}

}  // namespace zambench
