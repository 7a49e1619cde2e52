// SPDX-License-Identifier: MIT
//
// Tells how much memory a C++ program takes that does nothing: the compiler links the C++ library
// to it all the same.
#include "bench/memory.h"

int main() {
    return bench::printMemory();
}
