// SPDX-License-Identifier: MIT
//
// Whether a drive without partitions has an empty table or an unreadable one.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <new>

#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/fakedrive.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using failingcalls::Call;
using tests::inSandbox;
using tests::OpenDrive;
using tests::outcomeOf;
using tests::Role;
using tests::Sandbox;
using tests::tableLine;
using tests::tableTool;

namespace {

Role writer() {
    return Role({"/sbin/sfdisk", "-q", "-L", "-uM", "/dev/sda"});
}

void makeDrive(OpenDrive& drive) {
    drive.mDevice = "/dev/sda";
    tests::writeFile("/dev/sda1", "");
}

void scan(OpenDrive& drive) {
    (void)outcomeOf([&] {
        drive.scanPartitions();
        return true;
    });
}

bool partition(OpenDrive& drive) {
    int sizes[] = {100, 0, 0, 0};
    return outcomeOf([&] { return drive.partitionCustom(sizes); }).mDone;
}

}  // namespace

TEST(TableState, NothingIsKnownBeforeTheFirstScan) {
    const OpenDrive drive;
    EXPECT_EQ(drive.tableState(), sysHardDrive::eTableUnread);
    EXPECT_EQ(drive.tableToolStatus(), -1);
    EXPECT_EQ(drive.tableToolError(), 0);
    EXPECT_EQ(drive.partitionToolStatus(), -1);
    EXPECT_EQ(drive.partitionToolError(), 0);
}

TEST(TableState, AnEmptyTableIsRead) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(tableTool());
        scan(drive);
        EXPECT_EQ(drive.numPartitions(), 0);
        EXPECT_EQ(drive.tableState(), sysHardDrive::eTableRead);
        EXPECT_EQ(drive.tableToolStatus(), 0);
        EXPECT_EQ(drive.tableToolError(), 0);
        // The state is kept when the partitions are cleared.
        EXPECT_TRUE(drive.shut());
        EXPECT_EQ(drive.tableState(), sysHardDrive::eTableRead);
    });
}

TEST(TableState, AToolThatFailsIsToldWithItsStatus) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        for (const int status : {1, 20, 255}) {
            box.expect(tableTool().print(tableLine("/dev/sda1", 5, "83")).exit(status));
            scan(drive);
            EXPECT_EQ(drive.numPartitions(), 0);
            EXPECT_EQ(drive.tableState(), sysHardDrive::eTableToolFailed);
            EXPECT_EQ(WEXITSTATUS(drive.tableToolStatus()), status);
            EXPECT_EQ(drive.tableToolError(), 0);
        }
        box.expect(tableTool().die(SIGKILL));
        scan(drive);
        EXPECT_EQ(drive.tableState(), sysHardDrive::eTableToolFailed);
        EXPECT_EQ(drive.tableToolStatus(), SIGKILL);
        // The next successful scan counts.
        box.expect(tableTool());
        scan(drive);
        EXPECT_EQ(drive.tableState(), sysHardDrive::eTableRead);
    });
}

TEST(TableState, AToolThatCannotBeExecutedIsTold) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.removeTool("/sbin/sfdisk");
        scan(drive);
        EXPECT_EQ(drive.tableState(), sysHardDrive::eTableToolMissing);
        EXPECT_EQ(WEXITSTATUS(drive.tableToolStatus()), 20);
        EXPECT_EQ(drive.tableToolError(), ENOENT);
        tests::writeFile("/sbin/sfdisk", "not executable");
        scan(drive);
        EXPECT_EQ(drive.tableState(), sysHardDrive::eTableToolMissing);
        EXPECT_EQ(drive.tableToolError(), EACCES);
        EXPECT_FALSE(partition(drive));
        EXPECT_EQ(WEXITSTATUS(drive.partitionToolStatus()), 20);
        EXPECT_EQ(drive.partitionToolError(), EACCES);
    });
}

TEST(TableState, AToolThatCannotBeStartedLeavesItUnread) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.allow(tableTool());
        for (const Call call : {Call::ePipe2, Call::eFork, Call::eFdopen}) {
            scan(drive);
            EXPECT_EQ(drive.tableState(), sysHardDrive::eTableRead);
            const failingcalls::Scope scope;
            failingcalls::fail(call, ENOMEM);
            scan(drive);
            EXPECT_EQ(drive.tableState(), sysHardDrive::eTableUnread);
            EXPECT_EQ(drive.tableToolStatus(), -1);
            EXPECT_EQ(drive.tableToolError(), ENOMEM);
        }
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eWaitpid, ECHILD);
        scan(drive);
        EXPECT_EQ(drive.tableState(), sysHardDrive::eTableToolFailed);
        EXPECT_EQ(drive.tableToolStatus(), -1);
        EXPECT_EQ(drive.tableToolError(), ECHILD);
    });
}

TEST(TableState, WritingATableIsToldApartFromReadingIt) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(writer().readInput().exit(7));
        box.expect(tableTool());
        EXPECT_FALSE(partition(drive));
        EXPECT_EQ(WEXITSTATUS(drive.partitionToolStatus()), 7);
        EXPECT_EQ(drive.partitionToolError(), 0);
        EXPECT_EQ(drive.tableState(), sysHardDrive::eTableRead);
        box.expect(writer().readInput());
        box.expect(tableTool().exit(1));
        EXPECT_TRUE(partition(drive));
        EXPECT_EQ(drive.partitionToolStatus(), 0);
        EXPECT_EQ(drive.tableState(), sysHardDrive::eTableToolFailed);
    });
}

TEST(TableState, EachDriveHasItsOwn) {
    inSandbox([](Sandbox& box) {
        OpenDrive first;
        makeDrive(first);
        {
            OpenDrive second;
            makeDrive(second);
            box.expect(tableTool().exit(3));
            scan(second);
            box.expect(tableTool());
            scan(first);
            EXPECT_EQ(second.tableState(), sysHardDrive::eTableToolFailed);
            EXPECT_EQ(first.tableState(), sysHardDrive::eTableRead);
        }
        // An object does not inherit the state of an earlier one at the same address.
        alignas(OpenDrive) unsigned char storage[sizeof(OpenDrive)];
        for (int i = 0; i < 2; ++i) {
            auto* const drive = new (storage) OpenDrive;
            EXPECT_EQ(drive->tableState(), sysHardDrive::eTableUnread);
            makeDrive(*drive);
            box.expect(tableTool().exit(3));
            scan(*drive);
            EXPECT_EQ(drive->tableState(), sysHardDrive::eTableToolFailed);
            drive->~OpenDrive();
        }
        EXPECT_EQ(first.tableState(), sysHardDrive::eTableRead);
    });
}
