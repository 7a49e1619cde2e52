// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_POISON_H
#define KESTROVA_TESTS_SUPPORT_POISON_H

#include <malloc.h>

#include <cstdlib>
#include <cstring>

namespace tests {

/// Frees memory of malloc() after overwriting it, so that whoever still reads it does not find what
/// it held. The C library's own M_PERTURB leaves small pieces alone.
inline void freePoisoned(void* memory) {
    if (memory != nullptr) {
        std::memset(memory, 0xdb, ::malloc_usable_size(memory));
        // The compiler must not take the memset for a dead store.
        asm volatile("" : : "r"(memory) : "memory");
        std::free(memory);
    }
}

}  // namespace tests

#endif
