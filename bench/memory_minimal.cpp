// SPDX-License-Identifier: MIT
//
// Prints the memory of a program that runs the system without a drive.
#include "System/system.h"
#include "bench/memory.h"

int main() {
    SystemMinimalInit();
    return bench::printMemory();
}
