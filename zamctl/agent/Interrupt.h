// SPDX-License-Identifier: Apache-2.0
/// \file
/// Ctrl-C, and the other signals that ask a command to end.
#pragma once

#include <apigen/CCancellation.h>

#include <memory>

namespace zamctl {

/// From now on SIGINT, SIGTERM and SIGHUP end the calls of this process early, so that control is given back; a second
/// one ends the process. SIGPIPE is ignored: a write fails instead.
void CatchInterrupts();

/// What ends calls early. The same for the whole process.
[[nodiscard]] std::shared_ptr<apigen::CCancellation> Interruption();

/// The last signal that has come; 0 for none.
[[nodiscard]] int InterruptedBy();

/// While one lives the first SIGINT ends no call: it is there to be taken, and asked about. A second one that comes
/// before it is taken acts as if there were none.
class CAskedInterrupts {
public:
    CAskedInterrupts();
    CAskedInterrupts(const CAskedInterrupts&) = delete;
    CAskedInterrupts& operator=(const CAskedInterrupts&) = delete;
    ~CAskedInterrupts();

    /// Whether SIGINT has come since the last time.
    [[nodiscard]] bool Take();
};

}  // namespace zamctl
