// SPDX-License-Identifier: Apache-2.0
#include "support/common/ProcessMark.h"

#include <sys/mman.h>
#include <unistd.h>

namespace apigen::common {

namespace {

using detail::Mark;

/// A page that reads as zero in every copy of this process, however it was made; null where the kernel can't.
Mark* PageWipedOnFork() noexcept {
    static Mark* const page = []() noexcept -> Mark* {
        const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        void* const memory =
            ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) return nullptr;
        if (::madvise(memory, size, MADV_WIPEONFORK) == 0) return static_cast<Mark*>(memory);
        ::munmap(memory, size);
        return nullptr;
    }();
    return page;
}

}  // namespace

constinit std::atomic<Mark*> detail::markPage = nullptr;

std::uint64_t detail::FindProcessMark() noexcept {
    // Copied by fork, so that a copy takes a number that none of its ancestors has had.
    static Mark last = 0;
    Mark* const page = PageWipedOnFork();
    if (page == nullptr) return static_cast<std::uint64_t>(::getpid());
    markPage.store(page, std::memory_order_release);
    std::uint64_t mark = page->load(std::memory_order_relaxed);
    if (mark != 0) return mark;
    const std::uint64_t fresh = ++last;
    return page->compare_exchange_strong(mark, fresh) ? fresh : mark;
}

}  // namespace apigen::common
