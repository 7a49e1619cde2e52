// SPDX-License-Identifier: MIT
//
// The list of partitions: read with the tool, written with it.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

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
using tests::Role;
using tests::Sandbox;
using tests::tableLine;
using tests::tableTool;
using tests::ToolRun;

namespace {

const std::string kTwo = "unit: sectors\n\n" + tableLine("/dev/sda1", 100, "83") +
                         tableLine("/dev/sda2", 200, "82") + tableLine("/dev/sda3", 0, " 0");

/// A drive with its nodes, as after init().
void makeDrive(OpenDrive& drive) {
    drive.mDevice = "/dev/sda";
    for (const char* const name : {"/dev/sda1", "/dev/sda2", "/dev/sda3"}) {
        tests::writeFile(name, "");
    }
}

Outcome scan(OpenDrive& drive) {
    return outcomeOf([&] {
        drive.scanPartitions();
        return true;
    });
}

}  // namespace

TEST(ScanPartitions, RunsTheToolAsItMust) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(tableTool());
        drive.scanPartitions();
        const ToolRun run = box.runs().at(0);
        EXPECT_EQ(run.mEnvironment, tests::ownEnvironment());
        EXPECT_EQ(run.mNice, tests::nicerBy(0));
        ASSERT_EQ(run.mDescriptors.size(), 3U);
        EXPECT_EQ(run.mDescriptors.at(0), tests::descriptorText(0));
        EXPECT_EQ(run.mDescriptors.at(1).substr(0, 5), "pipe:");
        EXPECT_EQ(run.mDescriptors.at(1).back(), 'w');
        EXPECT_EQ(run.mDescriptors.at(2), tests::descriptorText(2));
    });
}

TEST(ScanPartitions, ListsThemInOrder) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(tableTool().print(kTwo));
        EXPECT_EQ(scan(drive).mOutput, "");
        ASSERT_EQ(drive.numPartitions(), 2);
        EXPECT_STREQ(drive.getPartition(0)->path(), "/dev/sda1");
        EXPECT_EQ(drive.getPartition(0)->capacity(), 51200U);
        EXPECT_EQ(drive.getPartition(0)->type(), 0x83);
        EXPECT_STREQ(drive.getPartition(1)->path(), "/dev/sda2");
        EXPECT_EQ(drive.getPartition(1)->capacity(), 102400U);
        EXPECT_EQ(drive.getPartition(1)->type(), 0x82);
    });
}

TEST(ScanPartitions, BoundsOfTheIndex) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(tableTool().print(kTwo));
        (void)scan(drive);
        EXPECT_NE(drive.getPartition(1), nullptr);
        for (const int index : {2, 3, 2147483647, -1, -2147483647 - 1}) {
            EXPECT_EQ(drive.getPartition(index), nullptr) << index;
        }
    });
}

TEST(ScanPartitions, ANodeThatIsMissingIsLeftOut) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(
            tableTool().print(tableLine("/dev/sda9", 5, "83") + tableLine("/dev/sda2", 5, "83")));
        const Outcome outcome = scan(drive);
        EXPECT_NE(outcome.mOutput.find(" iDev=/dev/sda9\n"), std::string::npos);
        ASSERT_EQ(drive.numPartitions(), 1);
        EXPECT_STREQ(drive.getPartition(0)->path(), "/dev/sda2");
    });
}

TEST(ScanPartitions, ALineBeyond255CharactersComesInPieces) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(tableTool().print(std::string(255, '#') + tableLine("/dev/sda1", 5, "83") +
                                     std::string(250, '#') + tableLine("/dev/sda2", 5, "83") +
                                     std::string(100000, '#') + "\n" + "/dev/sda3 : start= 1, " +
                                     "size= 5, Id=83"));
        (void)scan(drive);
        ASSERT_EQ(drive.numPartitions(), 2);
        EXPECT_STREQ(drive.getPartition(0)->path(), "/dev/sda1");
        EXPECT_STREQ(drive.getPartition(1)->path(), "/dev/sda3");
    });
}

TEST(ScanPartitions, AFailingToolLeavesNone) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        for (Role role : {tableTool().print(kTwo).exit(1), tableTool().print(kTwo).die(SIGKILL)}) {
            box.expect(tableTool().print(kTwo));
            (void)scan(drive);
            ASSERT_EQ(drive.numPartitions(), 2);
            box.expect(role);
            const Outcome outcome = scan(drive);
            EXPECT_EQ(outcome.mOutput, "waitpid failed\n");
            EXPECT_EQ(drive.numPartitions(), 0);
        }
    });
}

TEST(ScanPartitions, AMissingToolReportsFromTheChild) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.removeTool("/sbin/sfdisk");
        const failingcalls::Scope scope;
        siginfo_t end = {};
        failingcalls::before(Call::eWaitpid, [&] { end = tests::endOfChild(); });
        const Outcome outcome = scan(drive);
        EXPECT_EQ(outcome.mOutput, "waitpid failed\n");
        EXPECT_EQ(outcome.mErrors, "Error spawning sfdisk: No such file or directory\n");
        EXPECT_EQ(end.si_status, 20);
    });
}

TEST(ScanPartitions, EachFailingCallLeavesNone) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.allow(tableTool().print(kTwo + std::string(200000, '#')));
        const std::pair<Call, const char*> calls[] = {
            {Call::ePipe2, ""},
            {Call::eFork, ""},
            {Call::eFdopen, "failed to open pipe to child\n"},
            {Call::eWaitpid, "waitpid failed\n"}};
        for (const auto& [call, text] : calls) {
            (void)scan(drive);
            ASSERT_EQ(drive.numPartitions(), 2);
            const int next = tests::nextDescriptor();
            const failingcalls::Scope scope;
            failingcalls::fail(call, ENOMEM);
            EXPECT_EQ(scan(drive).mOutput, text);
            EXPECT_EQ(drive.numPartitions(), 0);
            EXPECT_EQ(tests::nextDescriptor(), next);
            EXPECT_EQ(tests::hasChildren(), call == Call::eWaitpid);
        }
    });
}

TEST(HardDriveList, AddsWhatCanBeTakenAndForgetsAll) {
    inSandbox([](Sandbox&) {
        const tests::OutputLevel level(0);
        OpenDrive drive;
        makeDrive(drive);
        drive.addPartition("/dev/sda1", 7, 0x83);
        drive.addPartition("/dev/none", 7, 0x83);
        drive.mPartitions.push_back(nullptr);
        EXPECT_EQ(drive.numPartitions(), 2);
        EXPECT_EQ(drive.getPartition(0)->capacity(), 7U);
        EXPECT_EQ(drive.getPartition(1), nullptr);
        drive.delPartitions();
        EXPECT_EQ(drive.numPartitions(), 0);
        EXPECT_EQ(drive.getPartition(0), nullptr);
        drive.addPartition("/dev/sda1", 7, 0x83);
        EXPECT_TRUE(drive.shut());
        EXPECT_EQ(drive.numPartitions(), 0);
    });
}
