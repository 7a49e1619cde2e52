// SPDX-License-Identifier: MIT
#include "tests/support/failingnew.h"

#include <cstdint>
#include <cstdlib>
#include <new>

#include "tests/support/poison.h"

namespace {

struct Counts {
    int mMade;
    int mAlive;
    int mFailing;
    bool mPaused;
};
thread_local Counts counts = {0, 0, 0, false};

void* allocate(std::size_t size) {
    if (!counts.mPaused && ++counts.mMade == counts.mFailing) {
        return nullptr;
    }
    // Like the original operator: more than half of the address space is never available.
    void* const memory = size <= PTRDIFF_MAX ? std::malloc(size != 0 ? size : 1) : nullptr;
    counts.mAlive += memory != nullptr && !counts.mPaused ? 1 : 0;
    return memory;
}

void release(void* memory) {
    counts.mAlive -= memory != nullptr && !counts.mPaused ? 1 : 0;
    tests::freePoisoned(memory);
}

void* allocateOrThrow(std::size_t size) {
    void* const memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

namespace tests {

FailingNew::FailingNew(int nth) {
    counts = {0, 0, nth, false};
}

FailingNew::~FailingNew() {
    stop();
}

void FailingNew::stop() {
    counts.mFailing = 0;
}

FailingNew::Pause::Pause() {
    counts.mPaused = true;
}

FailingNew::Pause::~Pause() {
    counts.mPaused = false;
}

int FailingNew::count() const {
    return counts.mMade;
}

int FailingNew::alive() const {
    return counts.mAlive;
}

}  // namespace tests

void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}

void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size);
}

void operator delete(void* memory) noexcept {
    release(memory);
}

void operator delete[](void* memory) noexcept {
    release(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    release(memory);
}

void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept {
    release(memory);
}
