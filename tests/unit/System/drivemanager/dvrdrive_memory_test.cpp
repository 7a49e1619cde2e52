// SPDX-License-Identifier: MIT
//
// Workers that run out of memory: no caller can catch the exception, so they end in an error and
// release the drive.
#include <gtest/gtest.h>

#include <cerrno>
#include <new>

#include "tests/unit/System/drivemanager/fakedvr.h"
#include "tests/unit/System/drivemanager/workermemory.h"

using namespace tests;

namespace {

/// Makes one allocation after another fail in a worker, until it makes no more.
void failEach(const std::function<bool(sysDVRDrive&)>& operation, sysDVRDrive::Status success) {
    inSandbox([&](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        allowMounting(box);
        box.allow(dataMaker());
        box.allow(storageMaker());
        exemptThisThread();
        sysDVRDrive drive;
        int failures = 0;
        bool failed = true;
        while (failed) {
            ASSERT_LT(failures, 1000);
            ASSERT_TRUE(drive.init());
            failWorkerAllocation(++failures);
            EXPECT_TRUE(operation(drive));
            const bool stopped = drive.stop();  // waits for the worker
            failed = workerAllocations() >= failures;
            failWorkerAllocation(0);
            EXPECT_EQ(statusOf(drive) == sysDVRDrive::eStError, failed);
            EXPECT_EQ(stopped, !failed && success == sysDVRDrive::eStStarted);
        }
        // At least one allocation failed.
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

// On the caller's own thread, which receives the exception.
TEST(DvrMemory, APartitionToolThatCannotBeGivenItsScriptIsNotStarted) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope calls;
        OpenDrive drive;
        drive.mDevice = "/dev/sda";
        int sizes[] = {1000000, 2000000, 3000000, 4000000};
        int failures = 0;
        bool thrown = true;
        while (thrown) {
            ASSERT_LT(failures, 1000);
            failingcalls::reset();
            failingcalls::failAll(failingcalls::Call::eFork, EAGAIN);
            failWorkerAllocation(++failures);
            thrown = false;
            try {
                (void)drive.partitionCustom(sizes);
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            failWorkerAllocation(0);
            EXPECT_EQ(failingcalls::count(failingcalls::Call::eFork), thrown ? 0 : 1);
        }
        EXPECT_GT(failures, 2);
        EXPECT_TRUE(box.runs().empty());
    });
}
