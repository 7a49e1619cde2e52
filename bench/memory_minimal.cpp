// SPDX-License-Identifier: MIT
//
// Tells how much memory a program takes that holds up the system without a drive.
#include "System/system.h"
#include "bench/memory.h"

int main() {
    SystemMinimalInit();
    return bench::printMemory();
}
