// SPDX-License-Identifier: Apache-2.0
// What a call costs, against a child that moves the same bytes and does nothing else; and what an object in a
// list costs, against such a call.
#include <zamclientlib/Control.h>

#include "bench/Areas.h"
#include "bench/Children.h"
#include "bench/Costs.h"
#include "bench/Samples.h"
#include "bench/Table.h"

namespace zambench {
namespace {

// GetSessionId as it travels, with the four bytes of a frame's length.
constexpr std::size_t Request =
    4 + sizeof "<Data><__handle>1</__handle><__method>GetSessionId_16415403617493696513</__method></Data>" -
    1;
constexpr std::size_t Answer =
    4 + sizeof "<Data><__result>{00000001-4a1e-9c07-8f21-0304050607fe}</__result></Data>" - 1;

constexpr int CallRounds = 51;
constexpr double FreeGoal = 1.15;
constexpr double OneCpuGoal = 1.35;
constexpr double ObjectGoal = 0.25;

/// A client of the idle agent, and the floor's, in the same place.
class CCallers {
public:
    explicit CCallers(EPlace place) : m_pinned(place), m_control(ConnectToAgent()), m_bare(Request, Answer) {
        m_pinned.ChildrenStarted();
    }

    void Call() { Require(m_control->GetSessionId() == IdOf(1), "the answer of a small call"); }
    void Exchange() { m_bare.Exchange(); }

private:
    CPinned m_pinned;
    std::shared_ptr<zamclientlib::IZamControl> m_control;
    CBareChild m_bare;
};

void CompareCall(const CBench& bench, const std::string& name, EPlace place, double goal) {
    // The system may put our child beside its client and the floor's on another processor, and leave them there.
    // With new children in each round, such a choice favours either side as often as the other.
    bench.CompareRounds("small call, " + name + ", ns", goal, CallRounds, [&](bool isOursFirst) {
        CCallers callers(place);
        const CBursts bursts(bench.IsOnce(), EClock::Wall, {[&] { callers.Call(); }},
                             {[&] { callers.Exchange(); }});
        return bursts.MeasureRound(isOursFirst);
    });
    const auto costsOf = [&](void (CCallers::*exchange)()) {
        const auto prepare = [place, exchange]() -> std::function<void()> {
            return [callers = std::make_shared<CCallers>(place), exchange] { (*callers.*exchange)(); };
        };
        return CountCosts(prepare, bench.IsOnce() ? 10 : 2000);
    };
    PrintNote("  a call makes", costsOf(&CCallers::Call));
    PrintNote("  the floor makes", costsOf(&CCallers::Exchange));
}

}  // namespace

void MeasureCalls(const CBench& bench) {
    CompareCall(bench, "free", EPlace::Free, FreeGoal);
    CompareCall(bench, "on one CPU", EPlace::OneCpu, OneCpuGoal);
    CompareCall(bench, "on two CPUs", EPlace::TwoCpus, 0);
}

void MeasureObjects(const CBench& bench) {
    const auto compare = [&](std::size_t size, const std::string& place, double goal, int rounds) {
        const auto product = ProductOfSize(size);
        const auto job = product->FindBackupJob({});
        const auto call = [&] { product->GetSessionId(); };
        const auto takeAndRelease = [&] {
            Require(job->GetBackupJobSessions().size() == size, "a list of objects");
            call();  // takes the answers of the releases
        };
        bench.CompareRuns("object of " + std::to_string(size) + ", " + place + ", ns; to a call", goal,
                          EClock::Wall, {takeAndRelease, static_cast<double>(size)}, {call}, rounds);
    };
    compare(10'000, "free", ObjectGoal, CBench::Rounds);

    const CPinned pinned(EPlace::OneCpu);
    compare(10'000, "on one CPU", ObjectGoal, CBench::Rounds);
    compare(1, "on one CPU", 0, CBench::Rounds);
    compare(100, "on one CPU", 0, CBench::Rounds);
    if (!bench.IsOnce()) compare(1'000'000, "on one CPU", 0, 3);
}

}  // namespace zambench
