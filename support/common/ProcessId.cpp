// SPDX-License-Identifier: Apache-2.0
#include "support/common/ProcessId.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <new>

namespace apigen::common {
namespace {

using Known = std::atomic<pid_t>;

/// Memory that reads 0 in every new process; null where the system has none such.
Known* MakeKnown() noexcept {
    const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void* const page = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) return nullptr;
    if (::madvise(page, size, MADV_WIPEONFORK) == 0) return new (page) Known(0);
    ::munmap(page, size);
    return nullptr;
}

}  // namespace

pid_t ProcessId() noexcept {
    static Known* const known = MakeKnown();
    if (known == nullptr) return ::getpid();
    pid_t id = known->load(std::memory_order_relaxed);
    if (id == 0) known->store(id = ::getpid(), std::memory_order_relaxed);
    return id;
}

}  // namespace apigen::common
