// SPDX-License-Identifier: MIT
//
// How a drive is identified, and what is logged about it.
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/fakedrive.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using failingcalls::Call;
using tests::inSandbox;
using tests::OpenDrive;
using tests::Outcome;
using tests::outcomeOf;
using tests::Sandbox;
using tests::tableLine;
using tests::tableTool;

TEST(HardDrive, StartsEmpty) {
    OpenDrive drive;
    EXPECT_EQ(drive.mDevice + drive.mModel + drive.mSerial, "");
    EXPECT_EQ(drive.mCapacity, 0U);
    EXPECT_EQ(drive.numPartitions(), 0);
    EXPECT_EQ(drive.getPartition(0), nullptr);
    EXPECT_TRUE(drive.shut());
}

TEST(HardDriveInit, LogsWhatItFound) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        tests::answerAsDrive();
        tests::writeFile("/dev/sda1", tests::xfsHeader("DVRStorage"));
        tests::writeFile("/dev/sda2", "");
        box.expect(tableTool().print("# partition table of /dev/sda\nunit: sectors\n\n" +
                                     tableLine("/dev/sda1", 39062500, "83") +
                                     tableLine("/dev/sda2", 3906, " 7") +
                                     tableLine("/dev/sda3", 0, " 0")));
        OpenDrive drive;
        const Outcome outcome = outcomeOf([&] { return drive.init("/dev/sda"); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput,
                  "HarddriveInit: /dev/sda\n"
                  "   Model: MODEL\n"
                  "   Capacity: 80 GB\n"
                  "   Partitions: 2\n"
                  "     /dev/sda1  20000 MB  type=83 DVRStorage\n"
                  "     /dev/sda2  1 MB  type=07 (null)\n");
        EXPECT_EQ(outcome.mErrors, "");
        EXPECT_EQ(drive.mDevice, "/dev/sda");
        EXPECT_EQ(drive.mModel, "MODEL");
        EXPECT_EQ(drive.mSerial, "SERIAL");
        EXPECT_EQ(drive.mCapacity, 80026361856ULL);
    });
}

TEST(HardDriveInit, AtLevelZeroLogsNothing) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const tests::OutputLevel level(0);
        tests::answerAsDrive();
        box.expect(tableTool());
        OpenDrive drive;
        EXPECT_EQ(outcomeOf([&] { return drive.init("/dev/sda"); }).mOutput, "");
    });
}

TEST(HardDriveInit, TruncatesTheCapacity) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        tests::answerAsDrive();
        box.allow(tableTool());
        for (const auto& [bytes, text] :
             {std::pair{999999999ULL, "0"}, {1000000000ULL, "1"}, {1ULL << 63, "9223372036"}}) {
            tests::answerCapacity(bytes);
            OpenDrive drive;
            const Outcome outcome = outcomeOf([&] { return drive.init("/dev/sda"); });
            EXPECT_EQ(outcome.mOutput, "HarddriveInit: /dev/sda\n   Model: MODEL\n   Capacity: " +
                                           std::string(text) + " GB\n   Partitions: 0\n");
        }
    });
}

TEST(HardDriveInit, OtherNamesAreRefusedUntouched) {
    inSandbox([](Sandbox&) {
        const failingcalls::Scope scope;
        tests::answerAsDrive();
        tests::writeFile("/sda", "");
        OpenDrive drive;
        failingcalls::before(Call::eOpen, [] { ADD_FAILURE() << "opened"; });
        for (const char* const name :
             {"sda", "/dev", "/sda", "", "/DEV/sda", " /dev/sda", "dev/sda"}) {
            EXPECT_FALSE(drive.init(name)) << name;
        }
        EXPECT_FALSE(drive.init(nullptr));
        EXPECT_EQ(failingcalls::count(Call::eIoctl), 0);
    });
}

TEST(HardDriveInit, ANodeThatCannotBeOpened) {
    inSandbox([](Sandbox&) {
        OpenDrive drive;
        Outcome outcome = outcomeOf([&] { return drive.init("/dev/sda"); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
        EXPECT_FALSE(drive.init("/dev/"));
        EXPECT_EQ(drive.mModel, "");
    });
}

TEST(HardDriveInit, ADriveThatAnswersNeitherRequest) {
    inSandbox([](Sandbox&) {
        const failingcalls::Scope scope;
        tests::answerAsDrive();
        failingcalls::fail(Call::eIoctl, ENOTTY, 1);
        tests::refuse(SG_IO);
        OpenDrive drive;
        const int next = tests::nextDescriptor();
        const Outcome outcome = outcomeOf([&] { return drive.init("/dev/sda"); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
        EXPECT_EQ(drive.mModel + drive.mSerial + drive.mDevice, "");
        EXPECT_EQ(tests::nextDescriptor(), next);
    });
}

TEST(HardDriveInit, WithoutTextsTheyHaveNames) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        tests::answerAsDrive();
        tests::answerAta("", "");
        box.expect(tableTool());
        OpenDrive drive;
        const Outcome outcome = outcomeOf([&] { return drive.init("/dev/sda"); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(drive.mModel, "Unknown Drive");
        EXPECT_EQ(drive.mSerial, "N/A");
        EXPECT_NE(outcome.mOutput.find("   Model: Unknown Drive\n"), std::string::npos);
    });
}

TEST(HardDriveInit, AScsiDriveHasNoSerial) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const tests::OutputLevel level(0);
        tests::answerAsDrive();
        tests::refuse(HDIO_GET_IDENTITY);
        failingcalls::answerIoctl(SG_IO, [](void* argument) {
            auto& request = *static_cast<sg_io_hdr_t*>(argument);
            std::memcpy(static_cast<char*>(request.dxferp) + 16, "Product         ", 16);
            return 0;
        });
        box.expect(tableTool());
        OpenDrive drive;
        EXPECT_TRUE(drive.init("/dev/sda"));
        EXPECT_EQ(drive.mModel, "Product         ");
        EXPECT_EQ(drive.mSerial, "N/A");
    });
}

TEST(HardDriveInit, WithoutACapacityKeepsTheTextsOnly) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        tests::answerAsDrive();
        tests::refuse(BLKGETSIZE64);
        OpenDrive drive;
        Outcome outcome = outcomeOf([&] { return drive.init("/dev/sda"); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "GetSize");
        EXPECT_EQ(drive.mModel, "MODEL");
        EXPECT_EQ(drive.mSerial, "SERIAL");
        EXPECT_EQ(drive.mDevice, "");

        tests::answerCapacity(0);
        outcome = outcomeOf([&] { return drive.init("/dev/sda"); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "");
        EXPECT_EQ(drive.mDevice, "");

        tests::answerCapacity(1);
        failingcalls::fail(Call::eOpen, EIO, 2);
        outcome = outcomeOf([&] { return drive.init("/dev/sda"); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mErrors, "Error opening: Input/output error\n");
        EXPECT_TRUE(box.runs().empty());
    });
}

TEST(HardDriveInit, LeavesNothingOpen) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const tests::OutputLevel level(0);
        tests::answerAsDrive();
        tests::writeFile("/dev/sda1", tests::xfsHeader("x"));
        box.expect(tableTool().print(tableLine("/dev/sda1", 2, "83")));
        OpenDrive drive;
        const int next = tests::nextDescriptor();
        EXPECT_TRUE(drive.init("/dev/sda"));
        EXPECT_EQ(tests::nextDescriptor(), next);
        EXPECT_FALSE(tests::hasChildren());
    });
}
