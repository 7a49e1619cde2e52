// SPDX-License-Identifier: MIT
//
// The state of a partition stays valid without memory and after a cancellation, and its own texts
// may be passed to it as arguments. The program's operator delete overwrites freed memory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "tests/unit/System/drivemanager/fakedvr.h"
#include "tests/unit/System/drivemanager/workermemory.h"

using failingcalls::Call;
using namespace tests;

namespace {

// Too long for the internal buffer of std::string.
const char kLong[] = "/a-directory-of-many-characters";
const char kOther[] = "/another-directory-of-many-characters";

Role mounter(const std::string& directory) {
    return Role({"/bin/mount", "-t", "xfs", "/dev/sda1", directory}).mount("/dev/sda1", directory);
}

/// Mounts "/dev/sda1" on kLong with the partition object.
void mountOnLong(Sandbox& box, sysPartition& partition) {
    ASSERT_EQ(::mkdir(kLong, 0755), 0);
    ASSERT_EQ(::mkdir(kOther, 0755), 0);
    makePartition(partition);
    box.expect(mounter(kLong));
    ASSERT_TRUE(partition.xfs_mount(kLong, nullptr));
}

}  // namespace

TEST(PartitionAliases, MountWhereItIsMounted) {
    inSandbox([](Sandbox& box) {
        const OutputLevel level(0);
        sysPartition partition;
        mountOnLong(box, partition);
        const char* const known = partition.mountpoint();
        EXPECT_TRUE(partition.xfs_mount(partition.mountpoint(), partition.mountpoint()));
        EXPECT_EQ(partition.mountpoint(), known);
        EXPECT_STREQ(known, kLong);
        EXPECT_EQ(box.runs().size(), 1U);
    });
}

TEST(PartitionAliases, MountWhereItIsRememberedAlthoughItIsElsewhere) {
    inSandbox([](Sandbox& box) {
        const OutputLevel level(0);
        sysPartition partition;
        mountOnLong(box, partition);
        ASSERT_EQ(::umount(kLong), 0);
        mountAs("/dev/sda1", kOther);
        box.expect(mounter(kLong));
        EXPECT_TRUE(partition.xfs_mount(partition.mountpoint(), nullptr));
        EXPECT_STREQ(partition.mountpoint(), kLong);
        const std::string table = readFile("/proc/self/mounts");
        EXPECT_NE(table.find(std::string("/dev/sda1 ") + kLong + " "), std::string::npos);
        EXPECT_EQ(table.find(kOther), std::string::npos);
    });
}

TEST(PartitionAliases, MountWithItsTextsAsOptions) {
    inSandbox([](Sandbox& box) {
        const OutputLevel level(0);
        sysPartition partition;
        mountOnLong(box, partition);
        const std::string options = partition.mountpoint();
        box.expect(Role({"/bin/mount", "-t", "ext3", "/dev/sda1", kOther, "-o", options})
                       .mount("/dev/sda1", kOther));
        EXPECT_TRUE(partition.ext3_mount(kOther, partition.mountpoint()));
        box.expect(Role({"/bin/mount", "/dev/sda1", kLong, "-o", "/dev/sda1"}));
        EXPECT_TRUE(partition.mount(kLong, sysPartition::eFsUnknown, partition.path()));
    });
}

TEST(PartitionAliases, InitWithItsOwnTexts) {
    inSandbox([](Sandbox&) {
        const OutputLevel level(0);
        const std::string node = "/dev/a-node-with-a-long-name";
        writeFile(node, xfsHeader("label"));
        writeFile(node + "-part1", xfsHeader("/dev/sda1"));
        sysPartition partition;
        ASSERT_TRUE(partition.init(node.c_str(), 1, 0x83));
        const char* const path = partition.path();
        EXPECT_TRUE(partition.init(partition.path(), 2, 0x83));
        EXPECT_EQ(partition.path(), path);
        EXPECT_STREQ(partition.label(), "label");
        // By the alternative name, from the path that is being replaced.
        EXPECT_TRUE(partition.init((node + "p1").c_str(), 1, 0x83));
        EXPECT_EQ(partition.path(), node + "-part1");
        writeFile("/dev/sda1", "");
        EXPECT_TRUE(partition.init(partition.label(), 1, 0));
        EXPECT_STREQ(partition.path(), "/dev/sda1");
    });
}

TEST(PartitionAliases, FormatWithItsOwnLabel) {
    inSandbox([](Sandbox& box) {
        const OutputLevel level(0);
        writeFile("/dev/sda1", extHeader("a label of many characters"));
        sysPartition partition;
        ASSERT_TRUE(partition.init("/dev/sda1", 1, 0x83));
        const std::string label = partition.label();
        box.expect(Role({"/sbin/mkfs.xfs", "-L", label, "-f", "-l", "lazy-count=0", "/dev/sda1"}));
        EXPECT_TRUE(partition.xfs_format(partition.label()));
        box.expect(Role({"/sbin/mkfs.ext3", "-L", label, "-m", "0", "-i", "2097152", "/dev/sda1"}));
        EXPECT_TRUE(partition.ext3_format(partition.label()));
    });
}

TEST(DriveAliases, AddsAPartitionByTheNameOfAnother) {
    inSandbox([](Sandbox&) {
        const OutputLevel level(0);
        const std::string node = "/dev/a-node-with-a-long-name";
        writeFile(node, "");
        OpenDrive drive;
        drive.addPartition(node.c_str(), 1, 0);
        for (int i = 0; i < 8; ++i) {
            drive.addPartition(drive.getPartition(0)->path(), 2, 0);
        }
        ASSERT_EQ(drive.numPartitions(), 9);
        EXPECT_EQ(drive.getPartition(8)->path(), node);
    });
}

TEST(DriveAliases, InitWithItsOwnTexts) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        answerAsDrive();
        box.allow(tableTool());
        OpenDrive drive;
        ASSERT_TRUE(drive.init("/dev/sda"));
        EXPECT_TRUE(drive.init(drive.mDevice.c_str()));
        EXPECT_EQ(drive.mDevice, "/dev/sda");
        // The model text is replaced while the drive that it names is identified.
        drive.mModel = "/dev/" + std::string(100, '.') + "/";
        ASSERT_EQ(::mkdir(drive.mModel.c_str(), 0755), 0);
        drive.mModel += "sda";
        const std::string device = drive.mModel;
        writeFile(device, "");
        box.allow(Role({"/sbin/sfdisk", "-d", device}));
        EXPECT_TRUE(drive.init(drive.mModel.c_str()));
        EXPECT_EQ(drive.mDevice, device);
        // The path of a partition, which the scan frees.
        drive.addPartition(device.c_str(), 1, 0);
        const Outcome outcome =
            outcomeOf([&] { return drive.init(drive.getPartition(0)->path()); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(drive.mDevice, device);
    });
}

TEST(PartitionMemory, AMountIsKnownOrNotDone) {
    inSandbox([](Sandbox& box) {
        const OutputLevel level(0);
        ASSERT_EQ(::mkdir(kLong, 0755), 0);
        box.allow(mounter(kLong));
        exemptThisThread();
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            ASSERT_LT(nth, 1000);
            sysPartition partition;
            makePartition(partition);
            bool mounted = false;
            failWorkerAllocation(nth);
            std::thread([&] {
                try {
                    mounted = partition.xfs_mount(kLong, "");
                } catch (const std::bad_alloc&) {
                }
            }).join();
            failed = workerAllocations() >= nth;
            failWorkerAllocation(0);
            EXPECT_EQ(mounted, !failed) << nth;
            EXPECT_EQ(isListed("/dev/sda1"), mounted) << nth;
            EXPECT_EQ(partition.mountpoint() != nullptr, mounted) << nth;
            if (isListed("/dev/sda1")) {
                ASSERT_TRUE(partition.unmount());
            }
        }
    });
}

TEST(PartitionMemory, AnUnmountIsDoneOrNotBegun) {
    inSandbox([](Sandbox& box) {
        const OutputLevel level(0);
        exemptThisThread();
        sysPartition partition;
        mountOnLong(box, partition);
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            ASSERT_LT(nth, 1000);
            bool unmounted = false;
            failWorkerAllocation(nth);
            std::thread([&] {
                try {
                    unmounted = partition.unmount();
                } catch (const std::bad_alloc&) {
                }
            }).join();
            failed = workerAllocations() >= nth;
            failWorkerAllocation(0);
            EXPECT_EQ(unmounted, !failed) << nth;
            EXPECT_EQ(isListed("/dev/sda1"), failed) << nth;
            EXPECT_EQ(partition.mountpoint() != nullptr, failed) << nth;
        }
    });
}

namespace {

void* unmountIt(void* partition) {
    (void)static_cast<sysPartition*>(partition)->unmount();
    pthread_testcancel();
    return nullptr;
}

}  // namespace

TEST(PartitionCancellation, ARefusedUnmountKeepsTheMountPoint) {
    inSandbox([](Sandbox& box) {
        const OutputLevel level(0);
        const failingcalls::Scope scope;
        sysPartition partition;
        mountOnLong(box, partition);
        failingcalls::before(Call::eUmount, [] { (void)pthread_cancel(pthread_self()); });
        failingcalls::fail(Call::eUmount, EBUSY);
        const Capture capture;
        pthread_t thread = {};
        ASSERT_EQ(pthread_create(&thread, nullptr, unmountIt, &partition), 0);
        void* result = nullptr;
        ASSERT_EQ(pthread_join(thread, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_EQ(capture.errors(), "Umount failure: Device or resource busy\n");
        EXPECT_STREQ(partition.mountpoint(), kLong);
    });
}
