// SPDX-License-Identifier: MIT
#include "System/drivemanager/drivemanager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/System/drivemanager/fakedvr.h"

using failingcalls::Call;
using namespace tests;

namespace {

int detections(const Sandbox& box) {
    return runsOf(box, "/sbin/sfdisk");
}

}  // namespace

TEST(DriveManager, StartsStopped) {
    inSandbox([](Sandbox& box) {
        sysDriveManager manager;
        EXPECT_FALSE(manager.hasDVRDrive());
        EXPECT_EQ(manager.getDVRDrive(), nullptr);
        manager.stop();
        EXPECT_TRUE(box.runs().empty());
    });
}

TEST(DriveManager, KeepsTheDriveThatItFinds) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        sysDriveManager manager;
        manager.start();
        EXPECT_TRUE(manager.hasDVRDrive());
        ASSERT_NE(manager.getDVRDrive(), nullptr);
        EXPECT_EQ(statusOf(*manager.getDVRDrive()), sysDVRDrive::eStReady);
        manager.stop();
        EXPECT_FALSE(manager.hasDVRDrive());
        EXPECT_EQ(manager.getDVRDrive(), nullptr);
    });
}

TEST(DriveManager, KeepsADriveThatIsNotFormatted) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDisk(box, {});
        sysDriveManager manager;
        manager.start();
        ASSERT_TRUE(manager.hasDVRDrive());
        EXPECT_EQ(statusOf(*manager.getDVRDrive()), sysDVRDrive::eStNotFormatted);
        // Detection does not format or mount.
        EXPECT_EQ(box.runs().size(), 1U);
    });
}

TEST(DriveManager, HoldsTheDriveWhileItIsIdentified) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDisk(box, {});
        sysDriveManager manager;
        manager.start();
        const sysDVRDrive* held = nullptr;
        failingcalls::before(Call::eIoctl, [&] { held = manager.getDVRDrive(); });
        manager.detectDrives();
        EXPECT_NE(held, nullptr);
        EXPECT_EQ(held, manager.getDVRDrive());
        // An unusable drive is freed again.
        held = nullptr;
        refuse(BLKGETSIZE64);
        EXPECT_FALSE(outcomeOf([&] {
                         manager.detectDrives();
                         return manager.hasDVRDrive();
                     }).mDone);
        EXPECT_NE(held, nullptr);
    });
}

TEST(DriveManager, RunsWithoutADrive) {
    inSandbox([](Sandbox&) {
        const DeviceTable table;
        sysDriveManager manager;
        const Outcome outcome = outcomeOf([&] {
            manager.start();
            return true;
        });
        EXPECT_EQ(outcome.mOutput, "No DVR Drive Detected\n");
        EXPECT_EQ(outcome.mErrors, "");
        EXPECT_FALSE(manager.hasDVRDrive());
        EXPECT_EQ(manager.getDVRDrive(), nullptr);
        manager.stop();
    });
}

TEST(DriveManager, ABusyDriveIsNoDrive) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const DeviceTable table;
        makeDvrDisk(box);
        mountAs("/dev/sda1", "/dvr");
        const int busy = ::open("/dvr", O_RDONLY | O_CLOEXEC);
        sysDriveManager manager;
        const Outcome outcome = outcomeOf([&] {
            manager.start();
            return true;
        });
        EXPECT_THAT(outcome.mOutput, testing::EndsWith("No DVR Drive Detected\n"));
        EXPECT_FALSE(manager.hasDVRDrive());
        (void)::close(busy);
    });
}

TEST(DriveManager, ASecondStartDetectsNothing) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        sysDriveManager manager;
        manager.start();
        sysDVRDrive* const drive = manager.getDVRDrive();
        manager.start();
        EXPECT_EQ(manager.getDVRDrive(), drive);
        EXPECT_EQ(detections(box), 1);
    });
}

TEST(DriveManager, ASecondStartWithoutADriveDoesNotLookAgain) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        sysDriveManager manager;
        manager.start();
        makeDvrDisk(box);
        manager.start();
        EXPECT_FALSE(manager.hasDVRDrive());
        manager.stop();
        manager.start();
        EXPECT_TRUE(manager.hasDVRDrive());
    });
}

TEST(DriveManager, AStartAfterAStopMakesANewDrive) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        sysDriveManager manager;
        manager.start();
        manager.getDVRDrive()->setStatus(sysDVRDrive::eStError);
        manager.stop();
        manager.start();
        ASSERT_TRUE(manager.hasDVRDrive());
        EXPECT_EQ(statusOf(*manager.getDVRDrive()), sysDVRDrive::eStReady);
        EXPECT_EQ(detections(box), 2);
    });
}

TEST(DriveManager, WhileStoppedADetectedDriveIsNotShown) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        sysDriveManager manager;
        manager.detectDrives();
        EXPECT_FALSE(manager.hasDVRDrive());
        EXPECT_EQ(manager.getDVRDrive(), nullptr);
        manager.stop();
        // The drive of an earlier detection is replaced and freed.
        manager.detectDrives();
        manager.start();
        EXPECT_TRUE(manager.hasDVRDrive());
        EXPECT_EQ(detections(box), 3);
    });
}

TEST(DriveManager, StopLeavesFileSystemsMounted) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        allowMounting(box);
        sysDriveManager manager;
        manager.start();
        ASSERT_TRUE(manager.getDVRDrive()->start());
        awaitStatus(*manager.getDVRDrive(), sysDVRDrive::eStStarted);
        manager.stop();
        EXPECT_TRUE(isListed("/dev/sda1"));
        EXPECT_TRUE(isListed("/dev/sda2"));
    });
}

TEST(DriveManager, StopAndDestructionWaitForAWorker) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        for (const bool destroy : {false, true}) {
            auto manager = std::make_unique<sysDriveManager>();
            manager->start();
            box.expect(dataMaker());
            box.expect(storageMaker().hold());
            ASSERT_TRUE(manager->getDVRDrive()->initialize());
            Background stop([&] {
                if (destroy) {
                    manager.reset();
                } else {
                    manager->stop();
                }
                return true;
            });
            box.awaitHeld();
            EXPECT_TRUE(eventually([&] { return stop.sleeps(); }));
            box.release();
            EXPECT_TRUE(stop.result());
        }
    });
}
