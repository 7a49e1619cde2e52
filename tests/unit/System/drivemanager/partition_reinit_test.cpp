// SPDX-License-Identifier: MIT
//
// A partition object that is initialised again, and how it opens its node.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <string>

#include "System/drivemanager/partition.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/fakedvr.h"

using tests::inSandbox;
using tests::Sandbox;

namespace {

constexpr int kLinuxType = 0x83;

}  // namespace

TEST(PartitionReinit, KeepsTheLabelThatNothingReplaces) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/sda1", tests::xfsHeader("DVRStorage"));
        tests::writeFile("/dev/sda2", "", 4096);
        tests::writeFile("/dev/sda3", tests::extHeader("software"));
        sysPartition partition;
        ASSERT_TRUE(partition.init("/dev/sda1", 1, kLinuxType));
        ASSERT_STREQ(partition.label(), "DVRStorage");
        for (const int type : {kLinuxType, 0}) {
            ASSERT_TRUE(partition.init("/dev/sda2", 2, type));
            EXPECT_EQ(partition.fileSystemType(), sysPartition::eFsUnknown);
            EXPECT_STREQ(partition.label(), "DVRStorage");
            EXPECT_STREQ(partition.path(), "/dev/sda2");
            EXPECT_EQ(partition.capacity(), 2U);
        }
        ASSERT_TRUE(partition.init("/dev/sda3", 3, kLinuxType));
        EXPECT_STREQ(partition.label(), "software");
        EXPECT_EQ(partition.fileSystemType(), sysPartition::eFsExt3);
    });
}

TEST(PartitionReinit, KeepsTheMountPointThatNothingReplaces) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/sda1", "");
        tests::writeFile("/dev/sda2", "");
        tests::mountAs("/dev/sda1", "/dvr");
        sysPartition partition;
        ASSERT_TRUE(partition.init("/dev/sda1", 1, 0));
        ASSERT_STREQ(partition.mountpoint(), "/dvr");
        ASSERT_TRUE(partition.init("/dev/sda2", 1, 0));
        EXPECT_STREQ(partition.mountpoint(), "/dvr");
    });
}

TEST(PartitionReinit, EveryDigitMayEndAnAlternativeName) {
    inSandbox([](Sandbox&) {
        const tests::OutputLevel quiet(0);
        for (char digit = '0'; digit <= '9'; ++digit) {
            const std::string alternative = std::string("/dev/mmcblk0-part") + digit;
            tests::writeFile(alternative, "");
            sysPartition partition;
            EXPECT_TRUE(partition.init((std::string("/dev/mmcblk0p") + digit).c_str(), 1, 0));
            EXPECT_EQ(partition.path(), alternative);
        }
        for (const char other : {'/', ':'}) {  // the characters beside the digits
            tests::writeFile("/dev/a-part:", "");
            sysPartition partition;
            EXPECT_FALSE(partition.init((std::string("/dev/ap") + other).c_str(), 1, 0));
        }
    });
}

// A device that cannot be written is still a valid partition. A directory replaces it here, because
// root can write every file.
TEST(PartitionReinit, OpensItsNodeForReadingOnly) {
    inSandbox([](Sandbox&) {
        ASSERT_EQ(::mkdir("/dev/sda1", 0755), 0);
        sysPartition partition;
        EXPECT_TRUE(partition.init("/dev/sda1", 1, kLinuxType));
        EXPECT_EQ(partition.fileSystemType(), sysPartition::eFsUnknown);
    });
}
