// SPDX-License-Identifier: MIT
//
// The reason that lastFailure() returns for every kind of failure of a partition, and the size
// stated in a superblock.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "System/drivemanager/partition.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using failingcalls::Call;
using tests::inSandbox;
using tests::makePartition;
using tests::outcomeOf;
using tests::Role;
using tests::Sandbox;

namespace {

/// Returns "step path errno status" of the last failure of this thread, "none" without one.
std::string lastFailure() {
    sysPartition::Failure failure;
    if (!sysPartition::lastFailure(&failure)) {
        return "none";
    }
    return std::to_string(failure.mStep) + " " + failure.mPath + " " +
           std::to_string(failure.mErrno) + " " + std::to_string(failure.mToolStatus);
}

std::string text(sysPartition::FailureStep step, int error, int status = 0,
                 const std::string& path = "/dev/sda1") {
    return std::to_string(step) + " " + path + " " + std::to_string(error) + " " +
           std::to_string(status);
}

}  // namespace

TEST(PartitionFailure, NoneBeforeTheFirst) {
    std::string other = "not run";
    std::thread([&] { other = lastFailure(); }).join();
    EXPECT_EQ(other, "none");
}

TEST(PartitionFailure, EachThreadHasItsOwn) {
    inSandbox([](Sandbox&) {
        const tests::OutputLevel level(0);
        sysPartition partition;
        makePartition(partition);
        EXPECT_FALSE(partition.unmount());
        std::string other = "not run";
        std::thread([&] { other = lastFailure(); }).join();
        EXPECT_EQ(other, "none");
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailNotMounted, 0));
        // Success does not reset it.
        makePartition(partition);
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailNotMounted, 0));
    });
}

TEST(PartitionFailure, OfInit) {
    inSandbox([](Sandbox&) {
        const tests::OutputLevel level(0);
        sysPartition partition;
        EXPECT_FALSE(partition.init("/dev/none", 1, 0x83));
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailOpen, ENOENT, 0, "/dev/none"));
        EXPECT_FALSE(partition.init("/dev/nonep1", 1, 0x83));
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailOpen, ENOENT, 0, "/dev/none-part1"));
        EXPECT_FALSE(partition.init(nullptr, 1, 0x83));
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailOpen, ENOENT, 0, ""));
        const std::string longest = "/" + std::string(300, 'x');
        EXPECT_FALSE(partition.init(longest.c_str(), 1, 0x83));
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailOpen, ENOENT, 0, longest.substr(0, 255)));
        tests::writeFile("/dev/sda1", "");
        const failingcalls::Scope scope;
        failingcalls::failAll(Call::eOpen, EIO);
        EXPECT_FALSE(partition.init("/dev/sda1", 1, 0x83));
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailOpen, EIO));
    });
}

TEST(PartitionFailure, OfMount) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        EXPECT_FALSE(partition.xfs_mount(nullptr, nullptr));
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailMount, EINVAL));
        box.expect(Role({"/bin/mount", "-t", "xfs", "/dev/sda1", "/dvr"}).exit(32));
        EXPECT_FALSE(outcomeOf([&] { return partition.xfs_mount("/dvr", ""); }).mDone);
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailMount, 0, 32 << 8));
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eSystem, EAGAIN);
        EXPECT_FALSE(outcomeOf([&] { return partition.xfs_mount("/dvr", ""); }).mDone);
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailMount, EAGAIN, -1));
    });
}

TEST(PartitionFailure, OfUnmount) {
    inSandbox([](Sandbox& box) {
        const tests::OutputLevel level(0);
        sysPartition partition;
        makePartition(partition);
        box.expect(
            Role({"/bin/mount", "-t", "xfs", "/dev/sda1", "/dvr"}).mount("/dev/sda1", "/dvr"));
        ASSERT_TRUE(partition.xfs_mount("/dvr", nullptr));
        const int busy = ::open("/dvr", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        EXPECT_FALSE(outcomeOf([&] { return partition.unmount(); }).mDone);
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailUnmount, EBUSY));
        (void)::close(busy);
    });
}

TEST(PartitionFailure, OfFormatsAndTheCheck) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(
            Role({"/sbin/mkfs.xfs", "-L", "x", "-f", "-l", "lazy-count=0", "/dev/sda1"}).exit(1));
        EXPECT_FALSE(outcomeOf([&] { return partition.xfs_format("x"); }).mDone);
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailFormat, 0, 1 << 8));
        box.expect(
            Role({"/sbin/mkfs.ext3", "-L", "x", "-m", "0", "-i", "2097152", "/dev/sda1"}).die(9));
        EXPECT_FALSE(outcomeOf([&] { return partition.ext3_format("x"); }).mDone);
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailFormat, 0, 9));
        const failingcalls::Scope scope;
        const auto without = [&](Call call, int error, auto operation) {
            failingcalls::reset();
            failingcalls::failAll(call, error);
            EXPECT_FALSE(outcomeOf(operation).mDone);
        };
        const auto format = [&] { return partition.xfs_format("x"); };
        const auto check = [&] { return partition.ext3_fscheck(); };
        without(Call::ePipe2, EMFILE, format);
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailFormat, EMFILE, -1));
        without(Call::eFork, EAGAIN, check);
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailCheck, EAGAIN, -1));
        failingcalls::reset();
        box.removeTool("/sbin/fsck.ext3");
        EXPECT_FALSE(outcomeOf(check).mDone);
        EXPECT_EQ(lastFailure(), text(sysPartition::eFailCheck, 0, 255 << 8));
    });
}

TEST(PartitionFailure, FileSystemSizeIsThatOfTheSuperblock) {
    inSandbox([](Sandbox&) {
        const tests::OutputLevel level(0);
        sysPartition partition;
        EXPECT_EQ(partition.fileSystemSize(), 0U);
        std::string header = tests::xfsHeader("DVRStorage");
        header.replace(4, 12, std::string("\0\0\x10\0\0\0\0\x01\0\0\0\0", 12));
        tests::writeFile("/dev/sda1", header);
        ASSERT_TRUE(partition.init("/dev/sda1", 1000000, 0x83));
        EXPECT_EQ(partition.fileSystemSize(), 4096ULL << 32U);
        EXPECT_GT(partition.fileSystemSize(), partition.capacity());
        ASSERT_EQ(::unlink("/dev/sda1"), 0);
        EXPECT_EQ(partition.fileSystemSize(), 0U);
    });
}
