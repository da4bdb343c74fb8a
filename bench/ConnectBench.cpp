// SPDX-License-Identifier: Apache-2.0
// From nothing to the first answer, against the start of a small program up to its first byte. The end of
// either child is not counted.
#include <zamclientlib/Control.h>

#include "bench/Areas.h"
#include "bench/Children.h"
#include "bench/Samples.h"

namespace zambench {

void MeasureConnect(const CBench& bench) {
    bench.Compare(
        "connect to the first answer, ns", 1.8,
        [] {
            const double start = Now(EClock::Wall);
            const auto control = ConnectToAgent();
            Require(control->GetSessionId() == IdOf(1), "the first answer");
            return Now(EClock::Wall) - start;
        },
        [] {
            const double start = Now(EClock::Wall);
            const CBareChild child(EChannel::Sockets, 1, 1);
            return Now(EClock::Wall) - start;
        });
}

}  // namespace zambench
