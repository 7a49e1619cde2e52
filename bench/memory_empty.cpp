// SPDX-License-Identifier: MIT
//
// Prints the memory of a C++ program that does nothing. The compiler still links the C++ library.
#include "bench/memory.h"

int main() {
    return bench::printMemory();
}
