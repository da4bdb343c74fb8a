// SPDX-License-Identifier: Apache-2.0
/// \file
/// Help for the memory of large messages.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace apigen {

/// Asks the kernel to back a large block that is about to be filled with huge pages: most of the time that
/// fresh memory costs goes into taking it page by page. A hint, without effect on what the memory holds.
inline void PrepareLargeBlock(void* block, std::size_t bytes) {
    constexpr std::uintptr_t PageBytes = 4096;
    constexpr std::size_t WorthIt = 4U << 20;
    if (bytes < WorthIt) return;
    const std::size_t skipped = -reinterpret_cast<std::uintptr_t>(block) % PageBytes;
    const std::size_t whole = (bytes - skipped) / PageBytes * PageBytes;
    (void)::madvise(static_cast<char*>(block) + skipped, whole, MADV_HUGEPAGE);
}

}  // namespace apigen
