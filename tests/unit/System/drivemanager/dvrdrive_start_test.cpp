// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "tests/unit/System/drivemanager/fakedvr.h"

using failingcalls::Call;
using testing::HasSubstr;
using testing::MatchesRegex;
using namespace tests;

namespace {

const char kContext[] = "System/drivemanager/dvrdrive:[0-9]+ \\(level 1\\):\n";
const char kNoDirectory[] =
    "Error: Dvr Data mount point does not exist and could not be created.\n";

/// Runs with a drive that init() found ready.
void withReadyDrive(const std::function<void(Sandbox&, sysDVRDrive&)>& body,
                    const std::vector<std::string>& labels = {"DVRStorage", "DVRData"}) {
    inSandbox([&](Sandbox& box) {
        const failingcalls::Scope scope;
        const DeviceTable table;
        sysDVRDrive drive;
        makeDisk(box, labels);
        {
            const OutputLevel level(0);
            ASSERT_TRUE(drive.init());
        }
        body(box, drive);
    });
}

}  // namespace

TEST(DvrStart, SpinsUpAndMountsStorageThenData) {
    withReadyDrive([](Sandbox& box, sysDVRDrive& drive) {
        const OutputLevel level(0);
        box.expect(hdparm("-S0").hold());
        box.expect(storageMounter().hold().mount("/dev/sda1", "/dvr"));
        box.expect(mountsData().hold());
        EXPECT_TRUE(drive.start());
        for (int i = 0; i < 3; ++i) {
            box.awaitHeld();
            EXPECT_EQ(statusOf(drive), sysDVRDrive::eStStarting);
            EXPECT_EQ(progressOf(drive), 0);
            EXPECT_EQ(drive.totalMB(), 0U);
            box.release();
        }
        awaitStatus(drive, sysDVRDrive::eStStarted);
        EXPECT_EQ(progressOf(drive), 100);
        EXPECT_TRUE(isListed("/dev/sda1"));
        EXPECT_TRUE(isListed("/dev/sda2"));
    });
}

TEST(DvrStart, LogsTheMountsOnly) {
    withReadyDrive([](Sandbox& box, sysDVRDrive& drive) {
        allowMounting(box);
        const Capture capture;
        EXPECT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
        EXPECT_EQ(capture.output(),
                  "Trying to mount fs /dev/sda1 on /dvr\n"
                  "Trying to mount fs /dev/sda2 on /dvr/data\n");
    });
}

TEST(DvrStart, MakesTheDataDirectoryInsideWithItsMode) {
    for (const auto& [mask, mode] : {std::pair{0U, 01411U}, {022U, 01411U}, {077U, 01400U}}) {
        withReadyDrive([&, umask = mask, expected = mode](Sandbox& box, sysDVRDrive& drive) {
            const OutputLevel level(0);
            box.allow(hdparm("-S0"));
            box.expect(mountsStorage());
            box.expect(dataMounter().hold());
            (void)::umask(umask);
            EXPECT_TRUE(drive.start());
            box.awaitHeld();
            struct stat status = {};
            struct stat parent = {};
            ASSERT_EQ(::stat("/dvr/data", &status), 0);
            ASSERT_EQ(::stat("/dvr", &parent), 0);
            EXPECT_EQ(status.st_mode, S_IFDIR | expected);
            EXPECT_EQ(status.st_dev, parent.st_dev);
            ASSERT_EQ(::umount("/dvr"), 0);
            EXPECT_NE(::access("/dvr/data", F_OK), 0);
            box.release();
            awaitStatus(drive, sysDVRDrive::eStStarted);
        });
    }
}

TEST(DvrStart, ADirectoryThatExistsIsNoFailure) {
    withReadyDrive([](Sandbox& box, sysDVRDrive& drive) {
        const OutputLevel level(0);
        box.allow(hdparm("-S0"));
        box.expect(storageMounter());
        box.expect(mountsData());
        ASSERT_EQ(::mkdir("/dvr/data", 0700), 0);
        EXPECT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
        EXPECT_EQ(failingcalls::count(Call::eMkdir), 2);
    });
}

TEST(DvrStart, ADirectoryThatCannotBeMadeIsAnError) {
    withReadyDrive([](Sandbox& box, sysDVRDrive& drive) {
        allowMounting(box);
        failingcalls::fail(Call::eMkdir, ENOSPC);
        std::string log;
        {
            const Capture capture;
            EXPECT_TRUE(drive.start());
            awaitStatus(drive, sysDVRDrive::eStError);
            log = capture.output();
        }
        EXPECT_EQ(log, std::string("Trying to mount fs /dev/sda1 on /dvr\n") + kNoDirectory);
        EXPECT_EQ(runsOf(box, "/bin/mount"), 1);
        EXPECT_TRUE(isListed("/dev/sda1"));
    });
}

TEST(DvrStart, AFailingStorageMountIsAnErrorButDataIsMounted) {
    withReadyDrive([](Sandbox& box, sysDVRDrive& drive) {
        box.expect(hdparm("-S0"));
        box.expect(storageMounter().exit(32));
        box.expect(mountsData());
        std::string log;
        {
            const Capture capture;
            EXPECT_TRUE(drive.start());
            awaitStatus(drive, sysDVRDrive::eStError);
            log = capture.output();
        }
        EXPECT_EQ(log,
                  "Trying to mount fs /dev/sda1 on /dvr\nMount failed with code 8192\n"
                  "FSMount (dvr) Failed\nTrying to mount fs /dev/sda2 on /dvr/data\n");
        EXPECT_TRUE(isListed("/dev/sda2"));
        EXPECT_EQ(drive.totalMB(), 4U);
    });
}

TEST(DvrStart, AFailingDataMountIsAnErrorAndStorageStaysMounted) {
    withReadyDrive([](Sandbox& box, sysDVRDrive& drive) {
        box.expect(hdparm("-S0"));
        box.expect(mountsStorage());
        box.expect(dataMounter().exit(1));
        std::string log;
        {
            const Capture capture;
            EXPECT_TRUE(drive.start());
            awaitStatus(drive, sysDVRDrive::eStError);
            log = capture.output();
        }
        EXPECT_EQ(log,
                  "Trying to mount fs /dev/sda1 on /dvr\nTrying to mount fs /dev/sda2 on "
                  "/dvr/data\nMount failed with code 256\nFSMount (data) Failed\n");
        EXPECT_TRUE(isListed("/dev/sda1"));
        EXPECT_FALSE(drive.stop());
    });
}

TEST(DvrStart, WithoutADataPartitionStorageIsEnough) {
    withReadyDrive(
        [](Sandbox& box, sysDVRDrive& drive) {
            const OutputLevel level(0);
            box.allow(hdparm("-S0"));
            box.expect(mountsStorage());
            EXPECT_TRUE(drive.start());
            awaitStatus(drive, sysDVRDrive::eStStarted);
            EXPECT_NE(::access("/dvr/data", F_OK), 0);
            EXPECT_EQ(drive.totalMB(), 4U);
            EXPECT_TRUE(drive.stop());
            box.expect(storageMounter().exit(1));
            EXPECT_TRUE(drive.start());
            awaitStatus(drive, sysDVRDrive::eStError);
        },
        {"DVRStorage"});
}

TEST(DvrStart, DoesNotMindADriveThatDoesNotSpinUp) {
    withReadyDrive([](Sandbox& box, sysDVRDrive& drive) {
        const OutputLevel level(0);
        box.expect(hdparm("-S0").exit(1));
        box.expect(mountsStorage());
        box.expect(mountsData());
        EXPECT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
        EXPECT_TRUE(drive.stop());
        ASSERT_EQ(::unlink("/dev/sda"), 0);
        box.expect(mountsStorage());
        box.expect(mountsData());
        EXPECT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
    });
}

TEST(DvrStart, WithoutAThreadTheReasonIsTold) {
    withReadyDrive([](Sandbox& box, sysDVRDrive& drive) {
        failingcalls::fail(Call::ePthreadCreate, EAGAIN);
        Outcome outcome = outcomeOf([&] { return drive.start(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "");
        EXPECT_EQ(outcome.mErrors,
                  "sysDVRDrive pthread_create: Resource temporarily unavailable\n");
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStStarting);
        EXPECT_EQ(progressOf(drive), 0);
        outcome = outcomeOf([&] { return drive.start(); });
        EXPECT_THAT(outcome.mOutput,
                    MatchesRegex(std::string(kContext) + "Fail1 status\\(5\\)\\(0x[0-9a-f]+\\)\n" +
                                 kContext + "mStartupState 1 \n"));
        EXPECT_TRUE(box.runs().size() == 1);
        const OutputLevel level(0);
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
    });
}

TEST(DvrStart, ReportsWhyItIsRefused) {
    withReadyDrive(
        [](Sandbox&, sysDVRDrive& drive) {
            const Outcome outcome = outcomeOf([&] { return drive.start(); });
            EXPECT_FALSE(outcome.mDone);
            EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNotFormatted);
            EXPECT_THAT(outcome.mOutput, MatchesRegex(std::string(kContext) +
                                                      "Fail1 status\\(2\\)\\(\\(nil\\)\\)\n" +
                                                      kContext + "mStartupState 0 \n"));
            EXPECT_EQ(outcome.mErrors, "");
            // Ready alone is not sufficient.
            drive.setStatus(sysDVRDrive::eStReady);
            EXPECT_FALSE(outcomeOf([&] { return drive.start(); }).mDone);
        },
        {"", "DVRData"});
}

TEST(DvrStart, TheReportTellsHowFarTheLastOneCame) {
    withReadyDrive([](Sandbox& box, sysDVRDrive& drive) {
        allowMounting(box);
        {
            const OutputLevel level(0);
            EXPECT_TRUE(drive.start());
            awaitStatus(drive, sysDVRDrive::eStStarted);
        }
        const Outcome outcome = outcomeOf([&] { return drive.start(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_THAT(outcome.mOutput,
                    MatchesRegex(std::string(kContext) + "Fail1 status\\(6\\)\\(0x[0-9a-f]+\\)\n" +
                                 kContext + "mStartupState 4 \n"));
        // The start-up state is never reset.
        const OutputLevel level(1);
        EXPECT_TRUE(drive.shut());
        EXPECT_THAT(outcomeOf([&] { return drive.start(); }).mOutput,
                    HasSubstr("mStartupState 4 \n"));
    });
}

TEST(DvrStart, DeletionWaitsForTheWorker) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        auto drive = std::make_unique<sysDVRDrive>();
        ASSERT_TRUE(drive->init());
        box.expect(hdparm("-S0"));
        box.expect(mountsStorage().hold());
        box.expect(mountsData());
        EXPECT_TRUE(drive->start());
        Background deletion([base = std::unique_ptr<sysHardDrive>(std::move(drive)).release()] {
            delete base;
            return true;
        });
        box.awaitHeld();
        EXPECT_TRUE(eventually([&] { return deletion.sleeps(); }));
        box.release();
        EXPECT_TRUE(deletion.result());
        EXPECT_TRUE(isListed("/dev/sda1"));
        EXPECT_TRUE(isListed("/dev/sda2"));
    });
}
