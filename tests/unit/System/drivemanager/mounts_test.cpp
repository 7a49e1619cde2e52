// SPDX-License-Identifier: MIT
#include "System/drivemanager/mounts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "System/drivemanager/partition.h"
#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using drivemanager::findMounted;
using drivemanager::listMounts;
using failingcalls::Call;
using tests::inSandbox;
using tests::Sandbox;

namespace {

std::string directoryOf(const std::string& device) {
    std::string directory = "untouched";
    return findMounted(device, directory) ? directory : "no: " + directory;
}

using Directories = std::vector<std::string>;

Directories mountsOf(const std::string& device) {
    Directories directories;
    EXPECT_TRUE(listMounts(device, directories));
    return directories;
}

}  // namespace

TEST(FindMounted, FindsTheDirectory) {
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

TEST(FindMounted, TheNameMustMatchWhole) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /dvr xfs rw 0 0\n/dev/SDB1 /b xfs rw 0 0\n");
        for (const char* const name : {"/dev/sda", "/dev/sda11", "/dev/sdb1", "sda1", ""}) {
            EXPECT_EQ(directoryOf(name), "no: untouched") << name;
        }
    });
}

TEST(FindMounted, TheFirstEntryCounts) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /first xfs rw 0 0\n/dev/sda1 /second xfs rw 0 0\n");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/first");
    });
}

TEST(FindMounted, SkipsLinesWithoutTwoFields) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("\n/dev/sda1\n   \n/dev/sda1 \n\t/dev/sda1\t/tabs\txfs\n");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/tabs");
    });
}

TEST(FindMounted, TwoFieldsAreEnoughAlsoWithoutALineEnd) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /short");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/short");
    });
}

TEST(FindMounted, KeepsTheKernelsEscapes) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("/dev/sda1 /with\\040blank xfs rw 0 0\n");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/with\\040blank");
    });
}

TEST(FindMounted, ALongLineIsReadInPiecesOf255) {
    inSandbox([](Sandbox& box) {
        const std::string filling(300, 'o');
        const std::string head = "overlay /o " + filling;
        // The options of the first line contain a second piece that looks like an entry.
        const std::string piece = head.substr(0, 255);
        box.replaceMounts(piece + "/dev/sda1 /hidden\n/dev/sda1 /shown xfs rw 0 0\n");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/hidden");
        EXPECT_EQ(directoryOf(piece.substr(0, 7)), "/o");
    });
}

TEST(FindMounted, ALongNameOrDirectoryIsCutAndOverflowsNothing) {
    inSandbox([](Sandbox& box) {
        const std::string longName = "/dev/" + std::string(1000, 'n');
        box.replaceMounts(longName + " /long xfs rw 0 0\n/dev/sda1 /" + std::string(1000, 'd') +
                          " xfs rw 0 0\n");
        EXPECT_EQ(directoryOf(longName), "no: untouched");
        EXPECT_EQ(directoryOf("/dev/sda1"), "/" + std::string(255 - 11, 'd'));
    });
}

TEST(FindMounted, AnEmptyTableHoldsNothing) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts("");
        EXPECT_EQ(directoryOf("/dev/sda1"), "no: untouched");
        EXPECT_EQ(directoryOf(""), "no: untouched");
    });
}

TEST(FindMounted, ATableThatCannotBeOpenedHoldsNothing) {
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

TEST(ListMounts, GivesEveryDirectoryInOrder) {
    inSandbox([](Sandbox& box) {
        box.replaceMounts(
            "/dev/sda1 /first xfs rw 0 0\n/dev/sda2 /other xfs rw 0 0\n"
            "/dev/sda1 /with\\040blank xfs rw 0 0\n/dev/sda1\n");
        EXPECT_EQ(mountsOf("/dev/sda1"), (Directories{"/first", "/with blank"}));
        EXPECT_EQ(mountsOf("/dev/sda2"), Directories{"/other"});
        EXPECT_EQ(mountsOf("/dev/sda"), Directories());
    });
}

TEST(ListMounts, KnowsADeviceByEveryNameOfItsNode) {
    inSandbox([](Sandbox& box) {
        // Nodes without a driver: only their numbers matter.
        for (const auto& [name, minor] : {std::pair("/dev/sda1", 1),
                                          {"/dev/disk", 1},
                                          {"/dev/with blank", 1},
                                          {"/dev/sda2", 2}}) {
            ASSERT_EQ(::mknod(name, S_IFBLK | 0600, ::makedev(7, static_cast<unsigned>(minor))), 0);
        }
        ASSERT_EQ(::mknod("/dev/character", S_IFCHR | 0600, ::makedev(7, 1)), 0);
        ASSERT_EQ(::symlink("sda1", "/dev/link"), 0);
        box.replaceMounts(
            "/dev/disk /a xfs rw 0 0\n/dev/sda2 /b xfs rw 0 0\n/dev/link /c xfs rw 0 0\n"
            "/dev/character /d xfs rw 0 0\n/dev/with\\040blank /e xfs rw 0 0\n"
            "dev/disk /f xfs rw 0 0\n/dev/missing /g xfs rw 0 0\n");
        EXPECT_EQ(mountsOf("/dev/sda1"), (Directories{"/a", "/c", "/e"}));
        EXPECT_EQ(mountsOf("/dev/link"), (Directories{"/a", "/c", "/e"}));
        EXPECT_EQ(mountsOf("/dev/sda2"), Directories{"/b"});
        EXPECT_EQ(mountsOf("/dev/character"), Directories{"/d"});
    });
}

TEST(ListMounts, ALongLineHidesNoEntry) {
    inSandbox([](Sandbox& box) {
        const std::string filling(20000, 'o');
        box.replaceMounts("overlay / overlay " + filling + "/dev/sda1 0 0\n/dev/sda1 /" +
                          std::string(4095, 'd') + " xfs rw 0 0\n");
        EXPECT_EQ(mountsOf("/dev/sda1"), Directories{"/" + std::string(4095, 'd')});
    });
}

TEST(ListMounts, ATableThatCannotBeReadIsNoEmptyOne) {
    const failingcalls::Scope scope;
    failingcalls::fail(Call::eOpen, EMFILE);
    KestrovaVector<std::string> directories = {"kept"};
    EXPECT_FALSE(sysPartition::listMounts("/dev/sda1", &directories));
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(directories, Directories{"kept"});
}

TEST(UnmountAll, DoesNothingWhenItIsMountedNowhere) {
    inSandbox([](Sandbox&) {
        const failingcalls::Scope scope;
        sysPartition partition;
        tests::makePartition(partition);
        const tests::Outcome outcome = tests::outcomeOf([&] { return partition.unmountAll(); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
        EXPECT_EQ(failingcalls::count(Call::eUmount), 0);
    });
}

TEST(UnmountAll, GivesUpWhenItIsMountedAgainAndAgain) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        sysPartition partition;
        tests::makePartition(partition);
        box.replaceMounts("/dev/sda1 /one xfs rw 0 0\n/dev/sda1 /two xfs rw 0 0\n");
        std::string unmounted;
        failingcalls::answerUmount([&](const char* directory) {
            unmounted = directory;
            return 0;
        });
        EXPECT_FALSE(partition.unmountAll());
        EXPECT_EQ(unmounted, "/two");
        sysPartition::Failure failure;
        ASSERT_TRUE(sysPartition::lastFailure(&failure));
        EXPECT_EQ(failure.mStep, sysPartition::eFailUnmount);
        EXPECT_EQ(failure.mErrno, EBUSY);
    });
}

TEST(UnmountAll, RemembersTheDirectoryThatIsBusy) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        sysPartition partition;
        tests::makePartition(partition);
        box.replaceMounts("/dev/sda1 /one xfs rw 0 0\n");
        failingcalls::fail(Call::eUmount, EBUSY);
        EXPECT_FALSE(tests::outcomeOf([&] { return partition.unmountAll(); }).mDone);
        EXPECT_STREQ(partition.mountpoint(), "/one");
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
        // Even when it is gone from the table, only an unmount clears the mount point.
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
