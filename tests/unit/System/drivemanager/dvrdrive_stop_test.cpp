// SPDX-License-Identifier: MIT
//
// Stopping the drive, and its measurements while it is started.
#include <gtest/gtest.h>
#include <sys/statfs.h>

#include <cerrno>

#include "tests/unit/System/drivemanager/fakedvr.h"

using failingcalls::Call;
using namespace tests;

namespace {

/// Runs with a started drive.
void withStartedDrive(const std::function<void(Sandbox&, sysDVRDrive&)>& body,
                      const std::vector<std::string>& labels = {"DVRStorage", "DVRData"},
                      bool hasSettings = true) {
    inSandbox([&](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table(hasSettings);
        sysDVRDrive drive;
        makeDisk(box, labels);
        allowMounting(box);
        if (!hasSettings) {
            box.expect(hdparm("-S24"));
        }
        ASSERT_TRUE(drive.init());
        ASSERT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
        body(box, drive);
    });
}

}  // namespace

TEST(DvrStop, UnmountsBoth) {
    withStartedDrive([](Sandbox& box, sysDVRDrive& drive) {
        const Outcome outcome = outcomeOf([&] { return drive.stop(); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
        EXPECT_FALSE(isListed("/dev/sda1"));
        EXPECT_FALSE(isListed("/dev/sda2"));
        EXPECT_EQ(runsOf(box, "/sbin/hdparm"), 1);
        EXPECT_EQ(drive.totalMB(), 0U);
    });
}

TEST(DvrStop, IsRefusedInEveryOtherStatus) {
    withStartedDrive([](Sandbox&, sysDVRDrive& drive) {
        for (int number = 0; number < sysDVRDrive::eStStarted; ++number) {
            const auto status = static_cast<sysDVRDrive::Status>(number);
            drive.setStatus(status);
            EXPECT_FALSE(drive.stop());
            EXPECT_EQ(statusOf(drive), status);
        }
        EXPECT_TRUE(isListed("/dev/sda1"));
        EXPECT_TRUE(isListed("/dev/sda2"));
    });
}

TEST(DvrStop, NeedsAStoragePartition) {
    sysDVRDrive drive;
    drive.setStatus(sysDVRDrive::eStStarted);
    EXPECT_FALSE(drive.stop());
    EXPECT_EQ(statusOf(drive), sysDVRDrive::eStStarted);
}

TEST(DvrStop, WithoutASettingsPartitionTheDriveMaySleep) {
    withStartedDrive(
        [](Sandbox& box, sysDVRDrive& drive) {
            box.expect(hdparm("-S24").exit(1));
            EXPECT_TRUE(drive.stop());
            EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
            EXPECT_TRUE(drive.start());
            awaitStatus(drive, sysDVRDrive::eStStarted);
            failingcalls::fail(Call::eUmount, EIO);
            EXPECT_FALSE(drive.stop());
        },
        {"DVRStorage", "DVRData"}, false);
}

TEST(DvrStop, ABusyDataPartitionIsAnError) {
    withStartedDrive([](Sandbox&, sysDVRDrive& drive) {
        const int recording = ::open("/dvr/data/file", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        const OutputLevel level(2);
        const Outcome outcome = outcomeOf([&] { return drive.stop(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "DVR Data unmount failure\n");
        EXPECT_EQ(outcome.mErrors,
                  "Umount failure: Device or resource busy\n"
                  "Umount failure: Device or resource busy\n");
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        EXPECT_EQ(failingcalls::count(Call::eUmount), 2);
        EXPECT_TRUE(isListed("/dev/sda2"));
        (void)::close(recording);
        const OutputLevel silent(0);
        EXPECT_FALSE(drive.stop());
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
        EXPECT_FALSE(isListed("/dev/sda1"));
    });
}

TEST(DvrStop, TheMessageBelongsToLevelTwo) {
    withStartedDrive([](Sandbox&, sysDVRDrive& drive) {
        const OutputLevel level(1);
        failingcalls::fail(Call::eUmount, EIO);
        EXPECT_EQ(outcomeOf([&] { return drive.stop(); }).mOutput, "");
    });
}

TEST(DvrStop, StorageIsTriedAlsoAfterAFailureOnData) {
    withStartedDrive([](Sandbox&, sysDVRDrive& drive) {
        // Not nested, so that the unmount can succeed.
        ASSERT_EQ(::umount("/dvr/data"), 0);
        const OutputLevel level(2);
        const Outcome outcome = outcomeOf([&] { return drive.stop(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "File system is not mounted\nDVR Data unmount failure\n");
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        EXPECT_FALSE(isListed("/dev/sda1"));
    });
}

TEST(DvrStop, ABusyStoragePartitionIsAnError) {
    withStartedDrive([](Sandbox&, sysDVRDrive& drive) {
        failingcalls::fail(Call::eUmount, EBUSY, 2);
        const OutputLevel level(2);
        const Outcome outcome = outcomeOf([&] { return drive.stop(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "");
        EXPECT_EQ(outcome.mErrors, "Umount failure: Device or resource busy\n");
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        EXPECT_FALSE(isListed("/dev/sda2"));
        EXPECT_TRUE(isListed("/dev/sda1"));
    });
}

TEST(DvrStop, WithoutADataPartition) {
    withStartedDrive(
        [](Sandbox&, sysDVRDrive& drive) {
            EXPECT_TRUE(drive.stop());
            EXPECT_EQ(failingcalls::count(Call::eUmount), 1);
            EXPECT_FALSE(isListed("/dev/sda1"));
        },
        {"DVRStorage"});
}

TEST(DvrStop, AfterItTheDriveMayBeFormattedBeforeItNot) {
    withStartedDrive([](Sandbox& box, sysDVRDrive& drive) {
        EXPECT_FALSE(drive.initialize());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStStarted);
        EXPECT_TRUE(drive.stop());
        box.expect(dataMaker());
        box.expect(storageMaker());
        EXPECT_TRUE(drive.initialize());
        awaitStatus(drive, sysDVRDrive::eStReady);
    });
}

TEST(DvrSizes, AreThoseOfTheDataPartition) {
    withStartedDrive([](Sandbox&, sysDVRDrive& drive) {
        std::string asked;
        failingcalls::answerStatfs([&](const char* path, struct statfs* status) {
            asked = path;
            *status = {};
            status->f_bsize = 4096;
            status->f_blocks = 256 * 1000 + 255;
            status->f_bfree = 256 * 300 + 1;
            status->f_bavail = 7;
            return 0;
        });
        EXPECT_EQ(drive.blockSize(), 4096U);
        EXPECT_EQ(drive.totalMB(), 1000U);
        EXPECT_EQ(drive.freeMB(), 300U);
        EXPECT_EQ(asked, "/dvr/data");
        failingcalls::failAll(Call::eStatfs, EIO);
        EXPECT_EQ(drive.blockSize() + drive.totalMB() + drive.freeMB(), 0U);
    });
}

TEST(DvrSizes, WithoutADataPartitionAreThoseOfStorage) {
    withStartedDrive(
        [](Sandbox&, sysDVRDrive& drive) {
            std::string asked;
            failingcalls::answerStatfs([&](const char* path, struct statfs* status) {
                asked = path;
                *status = {};
                status->f_bsize = 65536;
                status->f_blocks = 0xffffffff;
                return 0;
            });
            EXPECT_EQ(drive.totalMB(), 0xfffffff0000ULL >> 12 >> 4);
            EXPECT_EQ(asked, "/dvr");
        },
        {"DVRStorage"});
}

TEST(DvrSizes, AreCutTo32Bits) {
    withStartedDrive([](Sandbox&, sysDVRDrive& drive) {
        failingcalls::answerStatfs([](const char*, struct statfs* status) {
            *status = {};
            status->f_bsize = 0x40000000;
            status->f_blocks = 0xffffffff;
            return 0;
        });
        // 2^30 times 2^32 - 1 bytes are 2^42 - 2^10 MiB.
        EXPECT_EQ(drive.totalMB(), 0xfffffc00U);
    });
}
