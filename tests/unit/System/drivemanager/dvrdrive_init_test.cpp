// SPDX-License-Identifier: MIT
//
// How the recording drive is found, and the resulting status.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "tests/unit/System/drivemanager/fakedvr.h"

using failingcalls::Call;
using testing::MatchesRegex;
using namespace tests;

namespace {

const char kFailed[] =
    "(.*\n)*System/drivemanager/dvrdrive:[0-9]+ \\(level 1\\):\nsysDVRDrive::init\\(\\) failed\n";

}  // namespace

TEST(DvrStatus, StartsWithNothing) {
    sysDVRDrive drive;
    EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNone);
    EXPECT_EQ(progressOf(drive), 100);
    EXPECT_EQ(drive.blockSize() + drive.freeMB() + drive.totalMB(), 0U);
    EXPECT_STREQ(drive.model(), "");
}

TEST(DvrStatus, EachHasItsProgress) {
    sysDVRDrive drive;
    const std::pair<sysDVRDrive::Status, int> expected[] = {
        {sysDVRDrive::eStNone, 100},         {sysDVRDrive::eStError, 100},
        {sysDVRDrive::eStNotFormatted, 100}, {sysDVRDrive::eStFormatting, 5},
        {sysDVRDrive::eStReady, 100},        {sysDVRDrive::eStStarting, 0},
        {sysDVRDrive::eStStarted, 100}};
    int number = 0;
    for (const auto& [status, progress] : expected) {
        EXPECT_EQ(status, number++);
        drive.setStatus(status);
        EXPECT_EQ(statusOf(drive), status);
        EXPECT_EQ(progressOf(drive), progress) << status;
    }
}

TEST(DvrStatus, BothPointersMayBeNull) {
    sysDVRDrive drive;
    drive.getStatus(nullptr, nullptr);
    drive.setStatus(sysDVRDrive::eStReady);
    EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
}

TEST(DvrStatus, BeyondTheLastTheProgressIsLeftAlone) {
    sysDVRDrive drive;
    drive.setStatus(static_cast<sysDVRDrive::Status>(7));
    auto status = sysDVRDrive::eStNone;
    int progress = 42;
    drive.getStatus(&status, &progress);
    EXPECT_EQ(static_cast<int>(status), 7);
    EXPECT_EQ(progress, 42);
}

TEST(DvrInit, FindsBothPartitions) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const DeviceTable table;
        makeDvrDisk(box);
        sysDVRDrive drive;
        const Outcome outcome = outcomeOf([&] { return drive.init(); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
        EXPECT_STREQ(drive.model(), "MODEL");
        EXPECT_EQ(drive.numPartitions(), 2);
        EXPECT_EQ(drive.freeMB(), 0U);
        // The table lists a settings partition, so the drive keeps its timer.
        EXPECT_EQ(runsOf(box, "/sbin/hdparm"), 0);
        EXPECT_EQ(outcome.mOutput.find("Setting"), std::string::npos);
        // Both pointers are set, as the progress of a format shows.
        drive.setStatus(sysDVRDrive::eStFormatting);
        EXPECT_EQ(progressOf(drive), 90);
    });
}

TEST(DvrInit, LabelsMustMatchExactlyAndBelongToXfs) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDisk(box, {"dvrstorage", "DVRStorage2", "DVRStorag", "DVRDat"});
        tests::writeFile("/dev/sda4", extHeader("DVRStorage"));
        sysDVRDrive drive;
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNotFormatted);
        drive.setStatus(sysDVRDrive::eStFormatting);
        EXPECT_EQ(progressOf(drive), 5);
    });
}

TEST(DvrInit, WhichPartitionsWereFoundShowsInTheProgress) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDisk(box, {"DVRStorage", ""});
        sysDVRDrive drive;
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
        drive.setStatus(sysDVRDrive::eStFormatting);
        EXPECT_EQ(progressOf(drive), 30);
        writeFile("/dev/sda1", "");
        writeFile("/dev/sda2", xfsHeader("DVRData"));
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNotFormatted);
        drive.setStatus(sysDVRDrive::eStFormatting);
        EXPECT_EQ(progressOf(drive), 60);
    });
}

TEST(DvrInit, ALaterPartitionReplacesAnEarlierOne) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDisk(box, {"DVRData", "DVRStorage", "DVRStorage", "DVRData"});
        sysDVRDrive drive;
        ASSERT_TRUE(drive.init());
        box.expect(hdparm("-S0"));
        box.expect(Role({"/bin/mount", "-t", "xfs", "/dev/sda3", "/dvr", "-o", "prjquota"}));
        box.expect(dataMounter("/dev/sda4"));
        EXPECT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
    });
}

TEST(DvrInit, AMissingDriveIsAnError) {
    inSandbox([](Sandbox&) {
        const failingcalls::Scope scope;
        const DeviceTable table;
        sysDVRDrive drive;
        const Outcome outcome = outcomeOf([&] { return drive.init(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
        // The lock has been released.
        EXPECT_FALSE(drive.stop());
    });
}

TEST(DvrInit, ADriveWithoutAReadableTableIsNotFormatted) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        answerAsDrive();
        box.expect(tableTool().exit(1));
        sysDVRDrive drive;
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNotFormatted);
    });
}

TEST(DvrInit, UnmountsWhatIsMountedDataFirst) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        mountAs("/dev/sda1", "/dvr");
        mountAs("/dev/sda2", "/dvr/data");
        sysDVRDrive drive;
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
        EXPECT_FALSE(isListed("/dev/sda1"));
        EXPECT_FALSE(isListed("/dev/sda2"));
    });
}

TEST(DvrInit, ABusyPartitionIsAnErrorAndNoLongerOneWhenItIsFree) {
    for (const char* const held : {"/dvr/data", "/dvr"}) {
        inSandbox([&](Sandbox& box) {
            const failingcalls::Scope scope;
            const DeviceTable table;
            makeDvrDisk(box);
            mountAs("/dev/sda1", "/dvr");
            mountAs("/dev/sda2", "/dvr/data");
            const int busy = ::open(held, O_RDONLY | O_CLOEXEC);
            sysDVRDrive drive;
            const Outcome outcome = outcomeOf([&] { return drive.init(); });
            EXPECT_FALSE(outcome.mDone);
            EXPECT_THAT(outcome.mOutput, MatchesRegex(kFailed));
            EXPECT_EQ(outcome.mErrors, "Umount failure: Device or resource busy\n");
            EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
            EXPECT_EQ(isListed("/dev/sda2"), std::string(held) == "/dvr/data");
            EXPECT_TRUE(isListed("/dev/sda1"));
            (void)::close(busy);
            const OutputLevel level(0);
            EXPECT_TRUE(drive.init());
            EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
        });
    }
}

TEST(DvrInit, ASecondOneForgetsWhatIsGone) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        sysDVRDrive drive;
        EXPECT_TRUE(drive.init());
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(drive.numPartitions(), 2);
        writeFile("/dev/sda1", "");
        writeFile("/dev/sda2", "");
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNotFormatted);
        EXPECT_EQ(drive.freeMB(), 0U);
        ASSERT_EQ(::unlink("/dev/sda"), 0);
        EXPECT_FALSE(drive.init());
        EXPECT_EQ(drive.totalMB(), 0U);
        drive.setStatus(sysDVRDrive::eStFormatting);
        EXPECT_EQ(progressOf(drive), 5);
    });
}

TEST(DvrInit, WithoutASettingsPartitionTheDriveMaySleep) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const DeviceTable table(false);
        makeDvrDisk(box);
        sysDVRDrive drive;
        box.expect(hdparm("-S24"));
        const Outcome outcome = outcomeOf([&] { return drive.init(); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_NE(outcome.mOutput.find("Setting delayed spin down\n"), std::string::npos);
        // Neither its result nor its status matters.
        box.expect(hdparm("-S24").exit(1));
        writeFile("/dev/sda1", "");
        const OutputLevel level(0);
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNotFormatted);
    });
}

TEST(DvrInit, WithoutATableTheDriveMaySleepToo) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        makeDvrDisk(box);
        sysDVRDrive drive;
        box.expect(hdparm("-S24"));
        const Outcome outcome = outcomeOf([&] { return drive.init(); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_NE(outcome.mOutput.find("Assertion `smpBlockdeviceConfig!=NULL' failed"),
                  std::string::npos);
    });
}

TEST(DvrInit, TheBasesOwnStaysVisible) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        makeDvrDisk(box);
        sysDVRDrive drive;
        EXPECT_TRUE(drive.init("/dev/sda"));
        EXPECT_EQ(drive.numPartitions(), 2);
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNone);
    });
}

TEST(DvrShut, ForgetsThePartitionsAndUnmountsNothing) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        allowMounting(box);
        const std::unique_ptr<sysDVRDrive> drive = std::make_unique<sysDVRDrive>();
        ASSERT_TRUE(drive->init());
        ASSERT_TRUE(drive->start());
        sysHardDrive* const base = drive.get();
        EXPECT_TRUE(base->shut());
        EXPECT_EQ(statusOf(*drive), sysDVRDrive::eStNone);
        EXPECT_EQ(drive->numPartitions(), 0);
        EXPECT_EQ(drive->totalMB(), 0U);
        EXPECT_TRUE(isListed("/dev/sda1"));
        EXPECT_TRUE(isListed("/dev/sda2"));
        EXPECT_FALSE(drive->stop());
        EXPECT_FALSE(drive->initialize());
        EXPECT_TRUE(drive->shut());
    });
}

TEST(DvrInit, UnmountsAPartitionFromEveryDirectory) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        for (const char* const directory : {"/one", "/two", "/one", "/three"}) {
            mountAs("/dev/sda1", directory);
            mountAs("/dev/sda2", directory);
        }
        sysDVRDrive drive;
        EXPECT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
        EXPECT_FALSE(isListed("/dev/sda1"));
        EXPECT_FALSE(isListed("/dev/sda2"));
    });
}

TEST(DvrInit, FailsWhenOneOfTwoMountsIsBusy) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        for (const char* const busyOne : {"/one", "/two"}) {
            mountAs("/dev/sda1", "/one");
            mountAs("/dev/sda1", "/two");
            const int busy = ::open(busyOne, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            sysDVRDrive drive;
            const Outcome outcome = outcomeOf([&] { return drive.init(); });
            EXPECT_FALSE(outcome.mDone);
            EXPECT_EQ(outcome.mErrors, "Umount failure: Device or resource busy\n");
            EXPECT_EQ(statusOf(drive), sysDVRDrive::eStError);
            (void)::close(busy);
            EXPECT_TRUE(drive.init());
            EXPECT_FALSE(isListed("/dev/sda1"));
        }
    });
}

TEST(DvrStatus, ValuesWithoutANameAreStoredAndLeaveTheProgress) {
    sysDVRDrive drive;
    for (const int number : {7, 8, 255, 100000, -1}) {
        drive.setStatus(static_cast<sysDVRDrive::Status>(number));
        EXPECT_EQ(static_cast<int>(statusOf(drive)), number);
        EXPECT_EQ(progressOf(drive), -1);
        EXPECT_FALSE(drive.initialize());
    }
}
