// SPDX-License-Identifier: MIT
#include "tests/unit/System/drivemanager/workermemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/support/poison.h"

namespace {

std::atomic<int> failing{0};
std::atomic<int> counted{0};
thread_local bool exempt = false;

}  // namespace

namespace tests {

void failWorkerAllocation(int nth) {
    counted = 0;
    failing = nth;
}

int workerAllocations() {
    return counted;
}

void exemptThisThread() {
    exempt = true;
}

}  // namespace tests

void* operator new(std::size_t size) {
    void* memory = nullptr;
    if (exempt || failing == 0 || ++counted != failing) {
        memory = std::malloc(size != 0 ? size : 1);
    }
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    tests::freePoisoned(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    tests::freePoisoned(memory);
}
