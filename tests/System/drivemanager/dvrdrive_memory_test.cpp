// SPDX-License-Identifier: MIT
//
// Workers that run out of memory: nobody is there to catch it, so they end in an error and give the
// drive back. This file puts its own allocation in front of the program's.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/System/drivemanager/fakedvr.h"

using namespace tests;

namespace {

// Which allocation fails on a thread other than the test's, 0 for none.
std::atomic<int> failing{0};
std::atomic<int> counted{0};
thread_local bool isTest = false;

void* allocate(std::size_t size) {
    void* memory = nullptr;
    if (isTest || failing == 0 || ++counted != failing) {
        memory = std::malloc(size != 0 ? size : 1);
    }
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

/// Lets one allocation after another fail in a worker, until it makes no more.
void failEach(const std::function<bool(sysDVRDrive&)>& operation, sysDVRDrive::Status success) {
    inSandbox([&](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        allowMounting(box);
        box.allow(dataMaker());
        box.allow(storageMaker());
        isTest = true;
        sysDVRDrive drive;
        int failures = 0;
        bool failed = true;
        while (failed) {
            ASSERT_LT(failures, 1000);
            ASSERT_TRUE(drive.init());
            counted = 0;
            failing = ++failures;
            EXPECT_TRUE(operation(drive));
            const bool stopped = drive.stop();  // waits for the worker
            failed = counted >= failing;
            failing = 0;
            EXPECT_EQ(statusOf(drive) == sysDVRDrive::eStError, failed);
            EXPECT_EQ(stopped, !failed && success == sysDVRDrive::eStStarted);
        }
        // At least one did fail.
        EXPECT_GT(failures, 1);
    });
}

}  // namespace

TEST(DvrMemory, AFormatThatRunsOutOfItIsAnError) {
    failEach([](sysDVRDrive& drive) { return drive.initialize(); }, sysDVRDrive::eStReady);
}

TEST(DvrMemory, AStartThatRunsOutOfItIsAnError) {
    failEach([](sysDVRDrive& drive) { return drive.start(); }, sysDVRDrive::eStStarted);
}

void* operator new(std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
