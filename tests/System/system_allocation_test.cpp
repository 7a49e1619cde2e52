// SPDX-License-Identifier: MIT
//
// A start for which there is no memory: the failure comes through, and nothing stays behind. This
// file puts its own allocation in front of the program's.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <new>

#include "System/BlockdevCfg.fmp.h"
#include "System/system.h"
#include "tests/support/outputlevel.h"

namespace {

// Of the calling thread alone.
thread_local int allocationsUntilFailure = 0;  // 1 for the next, 0 for none
thread_local long live = 0;

void* allocate(std::size_t size) noexcept {
    if (allocationsUntilFailure > 0 && --allocationsUntilFailure == 0) {
        return nullptr;
    }
    // As the real one: more than half of the address space is never to be had.
    void* const memory = size <= PTRDIFF_MAX ? std::malloc(size != 0 ? size : 1) : nullptr;
    live += memory != nullptr ? 1 : 0;
    return memory;
}

void* allocateOrThrow(std::size_t size) {
    void* const memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void release(void* memory) noexcept {
    live -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

}  // namespace

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

namespace {

using tests::OutputLevel;

/// Starts with the nth allocation failing. True when the start came through.
bool startWithFailure(void (*start)(), int nth) {
    allocationsUntilFailure = nth;
    try {
        start();
    } catch (const std::bad_alloc&) {
        allocationsUntilFailure = 0;
        return false;
    }
    allocationsUntilFailure = 0;
    return true;
}

/// Lets every single allocation of a start fail in turn; returns how many there are.
int failEveryAllocation(void (*start)()) {
    const OutputLevel quiet(0);
    for (int nth = 1; nth < 1000; ++nth) {
        const long before = live;
        const bool started = startWithFailure(start, nth);
        if (started) {
            SystemTerm();
        }
        EXPECT_EQ(nullptr, getSystem()) << nth;
        EXPECT_EQ(nullptr, BlockdeviceConfig::GetInstance()) << nth;
        EXPECT_EQ(before, live) << nth;
        if (started || testing::Test::HasFailure()) {
            return nth - 1;
        }
    }
    ADD_FAILURE() << "no end";
    return 0;
}

TEST(SystemAllocationTest, MinimalStartFailsWhole) {
    // The object, its two helpers, the table, its devices and their partitions.
    EXPECT_EQ(6, failEveryAllocation(SystemMinimalInit));
}

TEST(SystemAllocationTest, FullStartFailsWhole) {
    if (::access("/dev/sda", F_OK) == 0) {
        GTEST_SKIP() << "this machine has a /dev/sda";
    }
    // As the minimal one, and the manager and the drive that it looks for.
    EXPECT_LE(8, failEveryAllocation(SystemInit));
}

TEST(SystemAllocationTest, FailedStartLeavesTheEarlierSystem) {
    const OutputLevel quiet(0);
    SystemMinimalInit();
    sysInterface* const first = getSystem();
    EXPECT_FALSE(startWithFailure(SystemMinimalInit, 1));
    EXPECT_FALSE(startWithFailure(SystemMinimalInit, 3));
    EXPECT_EQ(first, getSystem());
    EXPECT_NE(nullptr, BlockdeviceConfig::GetInstance());
    SystemTerm();
}

TEST(SystemAllocationTest, TableFailsWhole) {
    const OutputLevel quiet(0);
    for (int nth = 1; nth <= 3; ++nth) {
        const long before = live;
        allocationsUntilFailure = nth;
        EXPECT_THROW((void)BlockdeviceConfig::CreateInstance(), std::bad_alloc) << nth;
        allocationsUntilFailure = 0;
        EXPECT_EQ(before, live) << nth;
        EXPECT_EQ(nullptr, BlockdeviceConfig::GetInstance());
    }
}

TEST(SystemAllocationTest, DownloadMemoryMayBeMissing) {
    allocationsUntilFailure = 1;
    EXPECT_THROW(download_free(download_allocate(10)), std::bad_alloc);
    allocationsUntilFailure = 0;
}

}  // namespace
