// SPDX-License-Identifier: MIT
//
// The recording drive's reports of a failed operation, of its two partitions' space, and of the
// directory for recordings.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "tests/unit/System/drivemanager/fakedvr.h"

using failingcalls::Call;
using namespace tests;

namespace {

/// Returns "step path errno status" of the drive's last failure, "none" without one.
std::string lastFailure(const sysDVRDrive& drive) {
    sysPartition::Failure failure;
    if (!drive.lastFailure(&failure)) {
        return "none";
    }
    return std::to_string(failure.mStep) + " " + failure.mPath + " " +
           std::to_string(failure.mErrno) + " " + std::to_string(failure.mToolStatus);
}

std::string text(sysPartition::FailureStep step, const std::string& path, int error,
                 int status = 0) {
    return std::to_string(step) + " " + path + " " + std::to_string(error) + " " +
           std::to_string(status);
}

/// Runs in a sandbox with a table of devices, without log output.
void withDrive(const std::function<void(Sandbox&, sysDVRDrive&)>& body) {
    inSandbox([&](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        sysDVRDrive drive;
        body(box, drive);
    });
}

void formatAndWait(sysDVRDrive& drive) {
    ASSERT_TRUE(drive.initialize());
    (void)drive.stop();  // refused, after the worker has exited
}

}  // namespace

TEST(DvrFailure, NoneAtFirstAndAfterSuccess) {
    withDrive([](Sandbox& box, sysDVRDrive& drive) {
        EXPECT_EQ(lastFailure(drive), "none");
        makeDvrDisk(box);
        allowMounting(box);
        ASSERT_TRUE(drive.init());
        ASSERT_TRUE(drive.start());
        EXPECT_TRUE(drive.stop());
        EXPECT_EQ(lastFailure(drive), "none");
    });
}

TEST(DvrFailure, OfADriveThatIsNotThere) {
    withDrive([](Sandbox&, sysDVRDrive& drive) {
        EXPECT_FALSE(drive.init());
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailOpen, "/dev/sda", ENOENT));
    });
}

TEST(DvrFailure, OfADriveThatDoesNotAnswer) {
    withDrive([](Sandbox&, sysDVRDrive& drive) {
        writeFile("/dev/sda", "");
        refuse(HDIO_GET_IDENTITY);
        refuse(SG_IO);
        EXPECT_FALSE(drive.init());
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailIdentify, "/dev/sda", ENOTTY));
        answerAta("MODEL", "SERIAL");
        refuse(BLKGETSIZE64);
        EXPECT_FALSE(outcomeOf([&] { return drive.init(); }).mDone);
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailCapacity, "/dev/sda", ENOTTY));
    });
}

TEST(DvrFailure, OfABusyPartitionEndsWithTheNextOperation) {
    withDrive([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        mountAs("/dev/sda2", "/busy");
        const int busy = ::open("/busy", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        EXPECT_FALSE(outcomeOf([&] { return drive.init(); }).mDone);
        const std::string reason = text(sysPartition::eFailUnmount, "/dev/sda2", EBUSY);
        EXPECT_EQ(lastFailure(drive), reason);
        // Refused operations keep the reason.
        EXPECT_FALSE(drive.start());
        EXPECT_FALSE(drive.stop());
        EXPECT_EQ(lastFailure(drive), reason);
        (void)::close(busy);
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(lastFailure(drive), "none");
    });
}

TEST(DvrFailure, OfAFormat) {
    withDrive([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        box.expect(dataMaker().exit(3));
        box.expect(storageMaker().exit(4));
        formatAndWait(drive);
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailFormat, "/dev/sda2", 0, 3 << 8));

        box.expect(dataMaker());
        box.expect(storageMaker().die(9));
        formatAndWait(drive);
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailFormat, "/dev/sda1", 0, 9));

        // The data partition's failure is not hidden by the status.
        box.expect(dataMaker().exit(3));
        box.expect(storageMaker());
        formatAndWait(drive);
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailFormat, "/dev/sda2", 0, 3 << 8));
    });
}

TEST(DvrFailure, OfPartitionsThatAreMissing) {
    withDrive([](Sandbox& box, sysDVRDrive& drive) {
        makeDisk(box, {});
        ASSERT_TRUE(drive.init());
        formatAndWait(drive);
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailMissing, "/dev/sda", 0));
    });
}

TEST(DvrFailure, OfAStart) {
    withDrive([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        box.allow(hdparm("-S0"));
        ASSERT_TRUE(drive.init());
        box.expect(storageMounter().exit(32));
        box.expect(mountsData());
        ASSERT_TRUE(drive.start());
        EXPECT_FALSE(outcomeOf([&] { return drive.stop(); }).mDone);
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailMount, "/dev/sda1", 0, 32 << 8));

        ASSERT_TRUE(drive.init());
        box.expect(mountsStorage());
        failingcalls::fail(Call::eMkdir, EROFS);
        ASSERT_TRUE(drive.start());
        EXPECT_FALSE(drive.stop());
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailDirectory, "/dvr/data", EROFS));
    });
}

TEST(DvrFailure, OfAStop) {
    withDrive([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        allowMounting(box);
        ASSERT_TRUE(drive.init());
        ASSERT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
        const int busy = ::open("/dvr/data", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        // Both are busy, the second because the first is mounted in it. The first is the cause.
        EXPECT_FALSE(outcomeOf([&] { return drive.stop(); }).mDone);
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailUnmount, "/dev/sda2", EBUSY));
        (void)::close(busy);
    });
}

TEST(DvrFailure, OfAMissingThread) {
    withDrive([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        failingcalls::fail(Call::ePthreadCreate, EAGAIN);
        EXPECT_FALSE(outcomeOf([&] { return drive.start(); }).mDone);
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailThread, "", EAGAIN));
        ASSERT_TRUE(drive.init());
        failingcalls::fail(Call::ePthreadCreate, EAGAIN);
        EXPECT_FALSE(drive.initialize());
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailThread, "", EAGAIN));
    });
}

TEST(DvrFailure, EachDriveHasItsOwn) {
    withDrive([](Sandbox&, sysDVRDrive& drive) {
        auto first = std::make_unique<sysDVRDrive>();
        sysDVRDrive last;
        EXPECT_FALSE(first->init());
        EXPECT_EQ(lastFailure(last), "none");
        EXPECT_FALSE(drive.init());
        first.reset();
        EXPECT_EQ(lastFailure(drive), text(sysPartition::eFailOpen, "/dev/sda", ENOENT));
        EXPECT_EQ(lastFailure(last), "none");
    });
}

TEST(DvrSpace, OfEachPartitionWhileStarted) {
    withDrive([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        allowMounting(box);
        ASSERT_TRUE(drive.init());
        unsigned long long size = 1;
        unsigned long long free = 1;
        EXPECT_FALSE(drive.partitionSpace(sysDVRDrive::ePartData, &size, &free));
        EXPECT_EQ(size, 0U);
        EXPECT_EQ(free, 0U);
        ASSERT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
        failingcalls::answerStatfs([](const char* path, struct statfs* status) {
            *status = {};
            status->f_bsize = 4096;
            status->f_blocks = std::string(path) == "/dvr" ? 3000000 : 2000;
            status->f_bfree = std::string(path) == "/dvr" ? 1000000 : 500;
            return 0;
        });
        EXPECT_TRUE(drive.partitionSpace(sysDVRDrive::ePartStorage, &size, &free));
        EXPECT_EQ(size, 4096ULL * 3000000);
        EXPECT_EQ(free, 4096ULL * 1000000);
        EXPECT_TRUE(drive.partitionSpace(sysDVRDrive::ePartData, &size, nullptr));
        EXPECT_EQ(size, 4096ULL * 2000);
        EXPECT_TRUE(drive.partitionSpace(sysDVRDrive::ePartData, nullptr, &free));
        EXPECT_EQ(free, 4096ULL * 500);
        EXPECT_TRUE(drive.stop());
        EXPECT_FALSE(drive.partitionSpace(sysDVRDrive::ePartStorage, &size, &free));
    });
}

TEST(DvrSpace, RecordingsGoWhereFreeSpaceIsMeasured) {
    withDrive([](Sandbox& box, sysDVRDrive& drive) {
        EXPECT_STREQ(drive.recordingDirectory(), "/dvr");
        makeDisk(box, {"DVRStorage", ""});
        ASSERT_TRUE(drive.init());
        EXPECT_STREQ(drive.recordingDirectory(), "/dvr");
        writeFile("/dev/sda2", xfsHeader("DVRData"));
        ASSERT_TRUE(drive.init());
        EXPECT_STREQ(drive.recordingDirectory(), "/dvr/data");
        ASSERT_TRUE(drive.shut());
        EXPECT_STREQ(drive.recordingDirectory(), "/dvr");
    });
}
