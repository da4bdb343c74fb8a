// SPDX-License-Identifier: Apache-2.0
// For programs that are sent secrets: memory is overwritten when it is freed, so that nothing of a password is left in
// a core image once the program has done with it. Not for a library, which must leave its program's memory alone.
#include <malloc.h>
#include <string.h>

#include <cstdlib>
#include <new>

namespace {

void Free(void* memory) noexcept {
    if (memory == nullptr) return;
    ::explicit_bzero(memory, ::malloc_usable_size(memory));
    std::free(memory);
}

}  // namespace

// The standard library allocates what these free by malloc and aligned_alloc.
void operator delete(void* memory) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    Free(memory);
}
