// SPDX-License-Identifier: MIT
//
// Real file systems on real block devices, made with the machine's own tools.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cstdlib>

#include "System/drivemanager/partition.h"
#include "tests/support/capture.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"

using tests::inSandbox;
using tests::Role;
using tests::Sandbox;

namespace {

constexpr int kLinux = 0x83;

struct Disk {
    const char* mMaker;
    sysPartition::FSType mType;
    sysPartition::FSType mMountedAs;
    long long mSize;
};
// ext2 is recognised as ext3, but can only be mounted without a type, because it has no journal.
const Disk kExt2 = {"/usr/sbin/mkfs.ext2 -q -F -L", sysPartition::eFsExt3, sysPartition::eFsUnknown,
                    32 << 20};
const Disk kExt3 = {"/usr/sbin/mkfs.ext3 -q -F -L", sysPartition::eFsExt3, sysPartition::eFsExt3,
                    32 << 20};
const Disk kXfs = {"/usr/sbin/mkfs.xfs -q -L", sysPartition::eFsXfs, sysPartition::eFsXfs,
                   300 << 20};

/// Makes "/dev/sda1" a block device with this file system. Returns false if there can be none.
bool makeDevice(Sandbox& box, const Disk& disk) {
    tests::writeFile("/tmp/image", "", disk.mSize);
    const std::string command = std::string(disk.mMaker) + " DVRData /tmp/image";
    EXPECT_EQ(std::system(command.c_str()), 0);
    box.useReal("/bin/mount");
    return box.attachLoop("/tmp/image", "/dev/sda1");
}

/// Mounts, writes, measures and unmounts it.
void useDevice(const Disk& disk, const char* options) {
    sysPartition partition;
    ASSERT_TRUE(partition.init("/dev/sda1", 1, kLinux));
    ASSERT_EQ(partition.fileSystemType(), disk.mType);
    EXPECT_STREQ(partition.label(), "DVRData");

    const tests::Capture capture;
    ASSERT_TRUE(partition.mount("/dvr", disk.mMountedAs, options)) << capture.errors();
    EXPECT_TRUE(partition.isMounted());
    EXPECT_STREQ(partition.mountpoint(), "/dvr");
    struct statfs status = {};
    ASSERT_EQ(::statfs("/dvr", &status), 0);
    const auto blockSize = static_cast<unsigned long long>(status.f_bsize);
    EXPECT_EQ(partition.fsCapacity(), blockSize * status.f_blocks);
    EXPECT_EQ(partition.fsFree(), blockSize * status.f_bfree);

    const int file = ::open("/dvr/recording", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    EXPECT_FALSE(partition.unmount());
    EXPECT_EQ(capture.errors(), "Umount failure: Device or resource busy\n");
    EXPECT_TRUE(partition.isMounted());
    (void)::close(file);

    ASSERT_EQ(::mkdir("/other", 0755), 0);
    EXPECT_TRUE(partition.mount("/other", disk.mMountedAs, options));
    EXPECT_EQ(::access("/other/recording", F_OK), 0);
    EXPECT_TRUE(partition.unmount());
    EXPECT_FALSE(partition.isMounted());
}

void useFreshDevice(const Disk& disk, const char* options) {
    inSandbox([&](Sandbox& box) {
        if (!makeDevice(box, disk)) {
            GTEST_SKIP() << "no loop device";
        }
        useDevice(disk, options);
    });
}

}  // namespace

TEST(PartitionOnLoop, Ext2) {
    useFreshDevice(kExt2, nullptr);
}

TEST(PartitionOnLoop, Ext3) {
    useFreshDevice(kExt3, "noatime");
}

TEST(PartitionOnLoop, Xfs) {
    useFreshDevice(kXfs, "");
}

TEST(PartitionOnLoop, FormattedCheckedAndMountedWithTheRealTools) {
    inSandbox([](Sandbox& box) {
        tests::writeFile("/tmp/image", "", 64 << 20);
        for (const char* const tool : {"/bin/mount", "/sbin/mkfs.ext3", "/sbin/fsck.ext3"}) {
            box.useReal(tool);
        }
        if (!box.attachLoop("/tmp/image", "/dev/sda1")) {
            GTEST_SKIP() << "no loop device";
        }
        const tests::OutputLevel level(0);
        sysPartition blank;
        ASSERT_TRUE(blank.init("/dev/sda1", 64 << 20, kLinux));
        EXPECT_EQ(blank.fileSystemType(), sysPartition::eFsUnknown);
        const tests::Capture capture;
        ASSERT_TRUE(blank.ext3_format("software")) << capture.errors();
        EXPECT_EQ(blank.ext3_format_progress(), 100000);
        EXPECT_EQ(blank.fileSystemType(), sysPartition::eFsUnknown);

        sysPartition partition;
        ASSERT_TRUE(partition.init("/dev/sda1", 64 << 20, kLinux));
        EXPECT_EQ(partition.fileSystemType(), sysPartition::eFsExt3);
        EXPECT_STREQ(partition.label(), "software");
        EXPECT_TRUE(partition.ext3_fscheck()) << capture.output();
        EXPECT_EQ(partition.ext3_fscheck_progress(), 100000);
        ASSERT_TRUE(partition.ext3_mount("/dvr", nullptr)) << capture.errors();
        EXPECT_TRUE(partition.ext3_fscheck());
        EXPECT_TRUE(partition.unmount());
    });
}
