// SPDX-License-Identifier: Apache-2.0
/// \file
/// Calls of what belongs to others in places where its failure must change nothing.
#pragma once

#include <cxxabi.h>
#include <pthread.h>

#include <utility>

namespace apigen::common {

/// Runs `action` and drops whatever it throws; only the cancellation of the thread goes on its way, since the C
/// library ends the process when that is held up.
template <class F>
void Quietly(F&& action) {
    try {
        std::forward<F>(action)();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {  // as intended
    }
}

/// While it lives, the thread is not cancelled: for destructors, out of which no cancellation may unwind.
class CNoCancellation {
public:
    CNoCancellation() noexcept { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
    CNoCancellation(const CNoCancellation&) = delete;
    CNoCancellation& operator=(const CNoCancellation&) = delete;
    ~CNoCancellation() { ::pthread_setcancelstate(m_before, nullptr); }

private:
    int m_before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace apigen::common
