// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_POISON_H
#define KESTROVA_TESTS_SUPPORT_POISON_H

#include <malloc.h>

#include <cstdlib>
#include <cstring>

namespace tests {

/// Frees memory of malloc() after overwriting it, so that a later read does not find the old
/// contents. The C library's M_PERTURB does not overwrite small blocks.
inline void freePoisoned(void* memory) {
    if (memory != nullptr) {
        std::memset(memory, 0xdb, ::malloc_usable_size(memory));
        // Prevents the compiler from removing the memset() as a dead store.
        asm volatile("" : : "r"(memory) : "memory");
        std::free(memory);
    }
}

}  // namespace tests

#endif
