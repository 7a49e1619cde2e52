// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "tests/unit/System/drivemanager/fakedvr.h"

using failingcalls::Call;
using namespace tests;

namespace {

void inDvrBox(const std::function<void(Sandbox&, sysDVRDrive&)>& body) {
    inSandbox([&](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        sysDVRDrive drive;
        body(box, drive);
    });
}

}  // namespace

TEST(DvrFormat, FormatsDataThenStorageAndShowsHowFarItIs) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDisk(box, {"", ""});
        ASSERT_TRUE(drive.init());
        ASSERT_EQ(statusOf(drive), sysDVRDrive::eStNotFormatted);
        int atStart = -1;
        failingcalls::before(Call::ePthreadCreate, [&] { atStart = progressOf(drive); });
        box.expect(dataMaker().hold());
        box.expect(storageMaker().hold());
        EXPECT_TRUE(drive.initialize());
        EXPECT_EQ(atStart, 5);
        box.awaitHeld();
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStFormatting);
        EXPECT_EQ(progressOf(drive), 60);
        box.release();
        box.awaitHeld();
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStFormatting);
        EXPECT_EQ(progressOf(drive), 90);
        box.release();
        awaitStatus(drive, sysDVRDrive::eStReady);
        EXPECT_EQ(progressOf(drive), 100);
        // Values that init() read are not read again.
        EXPECT_EQ(drive.getPartition(0)->label(), nullptr);
        EXPECT_EQ(drive.getPartition(0)->fileSystemType(), sysPartition::eFsUnknown);
        EXPECT_EQ(runsOf(box, "/sbin/hdparm"), 0);
    });
}

TEST(DvrFormat, FromReadyBothPartitionsAreKnownFromTheStart) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        box.expect(dataMaker().hold());
        box.expect(storageMaker());
        EXPECT_TRUE(drive.initialize());
        box.awaitHeld();
        EXPECT_EQ(progressOf(drive), 90);
        box.release();
        awaitStatus(drive, sysDVRDrive::eStReady);
    });
}

TEST(DvrFormat, WithTheStoragePartitionKnownAlone) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDisk(box, {"DVRStorage", ""});
        ASSERT_TRUE(drive.init());
        int atStart = -1;
        failingcalls::before(Call::ePthreadCreate, [&] { atStart = progressOf(drive); });
        box.expect(dataMaker());
        box.expect(storageMaker());
        EXPECT_TRUE(drive.initialize());
        EXPECT_EQ(atStart, 30);
        awaitStatus(drive, sysDVRDrive::eStReady);
    });
}

TEST(DvrFormat, AFailureOnDataIsForgivenWhenStorageSucceeds) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        box.expect(dataMaker().exit(1));
        box.expect(storageMaker().hold());
        EXPECT_TRUE(drive.initialize());
        box.awaitHeld();
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        EXPECT_EQ(progressOf(drive), 100);
        box.release();
        awaitStatus(drive, sysDVRDrive::eStReady);
    });
}

TEST(DvrFormat, AFailureOnStorageIsAnError) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        box.expect(dataMaker());
        box.expect(storageMaker().exit(1));
        EXPECT_TRUE(drive.initialize());
        awaitStatus(drive, sysDVRDrive::eStError);
        // A format is allowed after an error.
        box.expect(dataMaker());
        box.expect(storageMaker());
        EXPECT_TRUE(drive.initialize());
        awaitStatus(drive, sysDVRDrive::eStReady);
    });
}

TEST(DvrFormat, ADriveWithOnePartitionIsFormattedAsStorage) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDisk(box, {""});
        ASSERT_TRUE(drive.init());
        box.expect(storageMaker().hold());
        EXPECT_TRUE(drive.initialize());
        box.awaitHeld();
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        box.release();
        awaitStatus(drive, sysDVRDrive::eStReady);
        allowMounting(box);
        EXPECT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
        EXPECT_EQ(runsOf(box, "/bin/mount"), 1);
        EXPECT_EQ(drive.totalMB(), 4U);
    });
}

TEST(DvrFormat, ADriveWithoutPartitionsIsAnError) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDisk(box, {});
        ASSERT_TRUE(drive.init());
        EXPECT_TRUE(drive.initialize());
        awaitStatus(drive, sysDVRDrive::eStError);
        EXPECT_EQ(runsOf(box, "/sbin/mkfs.xfs"), 0);
    });
}

TEST(DvrFormat, UnmountsFirst) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        mountAs("/dev/sda1", "/dvr");
        mountAs("/dev/sda2", "/dvr/data");
        box.expect(dataMaker());
        box.expect(storageMaker());
        EXPECT_TRUE(drive.initialize());
        awaitStatus(drive, sysDVRDrive::eStReady);
        EXPECT_FALSE(isListed("/dev/sda1"));
        EXPECT_FALSE(isListed("/dev/sda2"));
    });
}

TEST(DvrFormat, UnmountsFromEveryDirectoryFirst) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        for (const char* const directory : {"/one", "/two", "/three"}) {
            mountAs("/dev/sda1", directory);
            mountAs("/dev/sda2", directory);
        }
        box.expect(dataMaker().hold());
        box.expect(storageMaker().hold());
        EXPECT_TRUE(drive.initialize());
        box.awaitHeld();
        EXPECT_FALSE(isListed("/dev/sda2"));
        box.release();
        box.awaitHeld();
        EXPECT_FALSE(isListed("/dev/sda1"));
        box.release();
        awaitStatus(drive, sysDVRDrive::eStReady);
    });
}

TEST(DvrFormat, APartitionThatIsBusyElsewhereIsNotFormatted) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        for (const char* const directory : {"/one", "/two"}) {
            mountAs("/dev/sda1", directory);
        }
        const int busy = ::open("/one", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        box.expect(dataMaker());
        const Capture capture;
        EXPECT_TRUE(drive.initialize());
        EXPECT_FALSE(drive.stop());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        EXPECT_EQ(runsOf(box, "/sbin/mkfs.xfs"), 1);
        EXPECT_EQ(capture.errors(), "Umount failure: Device or resource busy\n");
        (void)::close(busy);
    });
}

TEST(DvrFormat, NothingIsFormattedWhenTheMountTableCannotBeRead) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        failingcalls::failAll(Call::eOpen, EMFILE);
        EXPECT_TRUE(drive.initialize());
        EXPECT_FALSE(drive.stop());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        failingcalls::reset();
        EXPECT_EQ(runsOf(box, "/sbin/mkfs.xfs"), 0);
    });
}

TEST(DvrFormat, ABusyDataPartitionIsLeftAlone) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDisk(box, {"", ""});
        ASSERT_TRUE(drive.init());
        mountAs("/dev/sda2", "/elsewhere");
        const int busy = ::open("/elsewhere", O_RDONLY | O_CLOEXEC);
        box.expect(storageMaker().hold());
        EXPECT_TRUE(drive.initialize());
        box.awaitHeld();
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        box.release();
        awaitStatus(drive, sysDVRDrive::eStReady);
        EXPECT_TRUE(isListed("/dev/sda2"));
        // The partition did not become the data partition.
        drive.setStatus(sysDVRDrive::eStFormatting);
        EXPECT_EQ(progressOf(drive), 30);
        (void)::close(busy);
    });
}

TEST(DvrFormat, ABusyStoragePartitionIsAnError) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDisk(box, {"", ""});
        ASSERT_TRUE(drive.init());
        mountAs("/dev/sda1", "/dvr");
        const int busy = ::open("/dvr", O_RDONLY | O_CLOEXEC);
        box.expect(dataMaker());
        EXPECT_TRUE(drive.initialize());
        awaitStatus(drive, sysDVRDrive::eStError);
        (void)drive.stop();  // waits for the worker
        drive.setStatus(sysDVRDrive::eStFormatting);
        EXPECT_EQ(progressOf(drive), 60);
        EXPECT_EQ(runsOf(box, "/sbin/mkfs.xfs"), 1);
        (void)::close(busy);
    });
}

TEST(DvrFormat, EachFailingUnmount) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDisk(box, {"", ""});
        ASSERT_TRUE(drive.init());
        mountAs("/dev/sda1", "/one");
        mountAs("/dev/sda2", "/two");
        failingcalls::fail(Call::eUmount, EPERM, 2);
        box.expect(dataMaker());
        EXPECT_TRUE(drive.initialize());
        awaitStatus(drive, sysDVRDrive::eStError);
        EXPECT_FALSE(drive.stop());
        mountAs("/dev/sda2", "/two");
        failingcalls::fail(Call::eUmount, EPERM, 1);
        box.expect(storageMaker());
        EXPECT_TRUE(drive.initialize());
        awaitStatus(drive, sysDVRDrive::eStReady);
    });
}

TEST(DvrFormat, IsRefusedWhereThereIsNothingToFormat) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        for (const auto status : {sysDVRDrive::eStNone, sysDVRDrive::eStFormatting,
                                  sysDVRDrive::eStStarting, sysDVRDrive::eStStarted}) {
            drive.setStatus(status);
            EXPECT_FALSE(drive.initialize());
            EXPECT_EQ(statusOf(drive), status);
        }
        EXPECT_EQ(runsOf(box, "/sbin/mkfs.xfs"), 0);
        EXPECT_EQ(failingcalls::count(Call::ePthreadCreate), 0);
    });
}

TEST(DvrFormat, WithoutAThreadTheStatusStaysUntilInitOrShut) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        failingcalls::fail(Call::ePthreadCreate, EAGAIN);
        EXPECT_FALSE(drive.initialize());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStFormatting);
        EXPECT_FALSE(drive.initialize());
        EXPECT_FALSE(drive.start());
        EXPECT_FALSE(drive.stop());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStFormatting);
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
        failingcalls::fail(Call::ePthreadCreate, EAGAIN);
        EXPECT_FALSE(drive.initialize());
        EXPECT_TRUE(drive.shut());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNone);
    });
}

TEST(DvrFormat, WithoutASettingsPartitionTheDriveMaySleepAfterSuccess) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table(false);
        makeDvrDisk(box);
        sysDVRDrive drive;
        box.expect(hdparm("-S24"));
        ASSERT_TRUE(drive.init());
        box.expect(dataMaker());
        box.expect(storageMaker());
        box.expect(hdparm("-S24").hold());
        EXPECT_TRUE(drive.initialize());
        box.awaitHeld();
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStFormatting);
        box.release();
        awaitStatus(drive, sysDVRDrive::eStReady);
        box.expect(dataMaker());
        box.expect(storageMaker().exit(1));
        EXPECT_TRUE(drive.initialize());
        awaitStatus(drive, sysDVRDrive::eStError);
    });
}

TEST(DvrFormat, DeletionWaitsForTheWorker) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        auto drive = std::make_unique<sysDVRDrive>();
        ASSERT_TRUE(drive->init());
        box.expect(dataMaker().hold());
        box.expect(storageMaker());
        EXPECT_TRUE(drive->initialize());
        Background deletion([&] {
            drive.reset();
            return true;
        });
        box.awaitHeld();
        EXPECT_TRUE(eventually([&] { return deletion.sleeps(); }));
        EXPECT_EQ(runsOf(box, "/sbin/mkfs.xfs"), 1);
        box.release();
        EXPECT_TRUE(deletion.result());
        EXPECT_EQ(runsOf(box, "/sbin/mkfs.xfs"), 2);
    });
}

TEST(DvrFormat, AStartWaitsForItsEnd) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDisk(box, {"", ""});
        ASSERT_TRUE(drive.init());
        allowMounting(box);
        box.expect(dataMaker());
        box.expect(storageMaker().hold());
        EXPECT_TRUE(drive.initialize());
        box.awaitHeld();
        Background start([&] { return drive.start(); });
        EXPECT_TRUE(eventually([&] { return start.sleeps(); }));
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStFormatting);
        EXPECT_EQ(runsOf(box, "/bin/mount"), 0);
        box.release();
        EXPECT_TRUE(start.result());
        awaitStatus(drive, sysDVRDrive::eStStarted);
    });
}

TEST(DvrFormat, AStartAfterAFailedOneIsRefused) {
    inDvrBox([](Sandbox& box, sysDVRDrive& drive) {
        makeDvrDisk(box);
        ASSERT_TRUE(drive.init());
        box.expect(dataMaker());
        box.expect(storageMaker().exit(1));
        EXPECT_TRUE(drive.initialize());
        EXPECT_FALSE(drive.start());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
    });
}
