// SPDX-License-Identifier: Apache-2.0
// From nothing to the first answer, against the start of a small program up to its first byte. The end of
// either child is not counted.
#include <zamclientlib/Control.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "bench/Areas.h"
#include "bench/Children.h"
#include "bench/Samples.h"

namespace zambench {
namespace {

/// The least of several: on a busy machine a new process waits for a processor longer than it takes to
/// start, which would hide the difference that is looked for.
template <class Start>
double TimeOf(const CBench& bench, Start&& start) {
    double least = std::numeric_limits<double>::max();
    for (int tries = bench.IsOnce() ? 1 : 15; tries != 0; --tries) {
        const double before = Now(EClock::Wall);
        const auto started = start();
        least = std::min(least, Now(EClock::Wall) - before);
    }
    return least;
}

void CompareConnect(const CBench& bench, const std::string& name, EPlace place) {
    const CPinned pinned(place);
    bench.Compare(
        "connect to the first answer, " + name + ", ns", 1.8,
        [&] {
            return TimeOf(bench, [] {
                auto control = ConnectToAgent();
                Require(control->GetSessionId() == IdOf(1), "the first answer");
                return control;
            });
        },
        [&] { return TimeOf(bench, [] { return std::make_unique<CBareChild>(1, 1); }); });
}

}  // namespace

void MeasureConnect(const CBench& bench) {
    CompareConnect(bench, "free", EPlace::Free);
    CompareConnect(bench, "on one CPU", EPlace::OneCpu);
}

}  // namespace zambench
