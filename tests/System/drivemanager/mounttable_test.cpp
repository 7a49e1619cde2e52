// SPDX-License-Identifier: MIT
#include "System/drivemanager/mounttable.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "System/drivemanager/partition.h"
#include "tests/System/drivemanager/partitionrun.h"
#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"

using drivemanager::findMounted;
using failingcalls::Call;
using tests::inSandbox;
using tests::Sandbox;

namespace {

std::string directoryOf(const std::string& device) {
    std::string directory = "untouched";
    return findMounted(device, directory) ? directory : "no: " + directory;
}

}  // namespace

TEST(MountTable, FindsTheDirectory) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts(
            "proc /proc proc rw 0 0\n"
            "/dev/sda1 /dvr xfs rw,prjquota 0 0\n"
            "/dev/sda2 /dvr/data xfs rw 0 0\n");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/dvr");
        EXPECT_EQ(directoryOf("/dev/sda2"), "/dvr/data");
        EXPECT_EQ(directoryOf("/dev/sda3"), "no: untouched");
    });
}

TEST(MountTable, TheNameMustMatchWhole) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /dvr xfs rw 0 0\n/dev/SDB1 /b xfs rw 0 0\n");
        for (const char* const name : {"/dev/sda", "/dev/sda11", "/dev/sdb1", "sda1", ""}) {
            EXPECT_EQ(directoryOf(name), "no: untouched") << name;
        }
    });
}

TEST(MountTable, TheFirstEntryCounts) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /first xfs rw 0 0\n/dev/sda1 /second xfs rw 0 0\n");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/first");
    });
}

TEST(MountTable, SkipsLinesWithoutTwoFields) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("\n/dev/sda1\n   \n/dev/sda1 \n\t/dev/sda1\t/tabs\txfs\n");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/tabs");
    });
}

TEST(MountTable, TwoFieldsAreEnoughAlsoWithoutALineEnd) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /short");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/short");
    });
}

TEST(MountTable, KeepsTheKernelsEscapes) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /with\\040blank xfs rw 0 0\n");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/with\\040blank");
    });
}

TEST(MountTable, ALongLineIsReadInPiecesOf255) {
    inSandbox([](Sandbox& box) {
        const std::string filling(300, 'o');
        const std::string head = "overlay /o " + filling;
        // The options of the first line hide a second piece that reads like an entry.
        const std::string piece = head.substr(0, 255);
        box.replaceMounts(piece + "/dev/sda1 /hidden\n/dev/sda1 /shown xfs rw 0 0\n");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/hidden");
        EXPECT_EQ(directoryOf(piece.substr(0, 7)), "/o");
    });
}

TEST(MountTable, ALongNameOrDirectoryIsCutAndOverflowsNothing) {
    inSandbox([](Sandbox& box) {
        const std::string longName = "/dev/" + std::string(1000, 'n');
        box.replaceMounts(longName + " /long xfs rw 0 0\n/dev/sda1 /" + std::string(1000, 'd') +
                          " xfs rw 0 0\n");
        EXPECT_EQ(directoryOf(longName), "no: untouched");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/" + std::string(255 - 11, 'd'));
    });
}

TEST(MountTable, AnEmptyTableHoldsNothing) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("");
        EXPECT_EQ(directoryOf("/dev/sda1"), "no: untouched");
        EXPECT_EQ(directoryOf(""), "no: untouched");
    });
}

TEST(MountTable, ATableThatCannotBeOpenedHoldsNothing) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /dvr xfs rw 0 0\n");
        tests::writeFile("/dev/sda1", "");
        sysPartition partition;
        ASSERT_TRUE(partition.init("/dev/sda1", 1, 0));
        ASSERT_TRUE(partition.isMounted());
        const failingcalls::Scope scope;
        for (const Call call : {Call::eOpen, Call::eFdopen}) {
            failingcalls::failAll(call, EMFILE);
            EXPECT_EQ(directoryOf("/dev/sda1"), "no: untouched");
            EXPECT_FALSE(partition.isMounted());
            EXPECT_STREQ(partition.mountpoint(), "/dvr");
        }
    });
}

TEST(IsMounted, FollowsTheTableAndForgetsNothing) {
    inSandbox([](Sandbox& box) {
        tests::writeFile("/dev/sda1", "");
        box.replaceMounts("/dev/sda1 /one xfs rw 0 0\n");
        sysPartition partition;
        ASSERT_TRUE(partition.init("/dev/sda1", 1, 0));
        EXPECT_TRUE(partition.isMounted());
        EXPECT_STREQ(partition.mountpoint(), "/one");
        tests::writeFile("/stub/mounts", "/dev/sda1 /two xfs rw 0 0\n");
        EXPECT_TRUE(partition.isMounted());
        EXPECT_STREQ(partition.mountpoint(), "/two");
        // Gone from the table, it is still remembered: only an unmount empties it.
        tests::writeFile("/stub/mounts", "other /two xfs rw 0 0\n");
        EXPECT_FALSE(partition.isMounted());
        EXPECT_STREQ(partition.mountpoint(), "/two");
    });
}

TEST(IsMounted, LeavesNoDescriptorBehind) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /dvr xfs rw 0 0\n");
        const int before = tests::nextDescriptor();
        (void)directoryOf("/dev/sda1");
        (void)directoryOf("/dev/sda2");
        EXPECT_EQ(tests::nextDescriptor(), before);
    });
}
