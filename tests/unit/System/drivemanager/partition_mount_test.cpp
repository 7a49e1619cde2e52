// SPDX-License-Identifier: MIT
//
// Mounting and unmounting with the tool and the kernel. The stub of the mount command mounts an
// empty file system with the device's name, so that the kernel's own table has the state.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "System/drivemanager/partition.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using failingcalls::Call;
using tests::inSandbox;
using tests::makePartition;
using tests::Outcome;
using tests::outcomeOf;
using tests::Role;
using tests::Sandbox;

namespace {

using Arguments = std::vector<std::string>;

const char kTrying[] = "Trying to mount fs /dev/sda1 on /dvr\n";

/// Mounts it on /dvr with the stub.
void mountOnDvr(Sandbox& box, sysPartition& partition) {
    const tests::OutputLevel level(0);
    box.expect(Role({"/bin/mount", "-t", "xfs", "/dev/sda1", "/dvr"}).mount("/dev/sda1", "/dvr"));
    ASSERT_TRUE(partition.xfs_mount("/dvr", nullptr));
}

}  // namespace

TEST(PartitionMount, CommandsForEveryFileSystemAndOptions) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const tests::OutputLevel level(0);
        const auto mount = [&](sysPartition::FSType fs, const char* options,
                               const Arguments& rest) {
            Arguments arguments = {"/bin/mount"};
            arguments.insert(arguments.end(), rest.begin(), rest.end());
            box.expect(Role(arguments));
            EXPECT_TRUE(partition.mount("/dvr", fs, options));
        };
        mount(sysPartition::eFsExt3, nullptr, {"-t", "ext3", "/dev/sda1", "/dvr"});
        mount(sysPartition::eFsXfs, "", {"-t", "xfs", "/dev/sda1", "/dvr"});
        mount(sysPartition::eFsUnknown, nullptr, {"/dev/sda1", "/dvr"});
        mount(static_cast<sysPartition::FSType>(3), "ro", {"/dev/sda1", "/dvr", "-o", "ro"});
        mount(sysPartition::eFsXfs, "prjquota",
              {"-t", "xfs", "/dev/sda1", "/dvr", "-o", "prjquota"});
        mount(sysPartition::eFsExt3, "ro,noatime",
              {"-t", "ext3", "/dev/sda1", "/dvr", "-o", "ro,noatime"});
        box.expect(Role({"/bin/mount", "-t", "ext3", "/dev/sda1", "/dvr", "-o", "sync"}));
        EXPECT_TRUE(partition.ext3_mount("/dvr", "sync"));
        box.expect(Role({"/bin/mount", "-t", "xfs", "/dev/sda1", "/dvr", "-o", "sync"}));
        EXPECT_TRUE(partition.xfs_mount("/dvr", "sync"));
    });
}

TEST(PartitionMount, TheCommandIsOneExactTextForTheShell) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const tests::OutputLevel level(0);
        // A shell of the test's own records the commands.
        box.removeTool("/bin/sh");
        ASSERT_EQ(::link("/stub/tool", "/bin/sh"), 0);
        box.expect(Role({"sh", "-c", "/bin/mount -t xfs /dev/sda1 /dvr"}));
        box.expect(Role({"sh", "-c", "/bin/mount -t xfs /dev/sda1 /dvr -o prjquota"}));
        box.expect(Role({"sh", "-c", "/bin/mount  /dev/sda1 /dvr"}));
        EXPECT_TRUE(partition.mount("/dvr", sysPartition::eFsXfs, ""));
        EXPECT_TRUE(partition.mount("/dvr", sysPartition::eFsXfs, "prjquota"));
        EXPECT_TRUE(partition.mount("/dvr", sysPartition::eFsUnknown, nullptr));
    });
}

TEST(PartitionMount, ATextOfAnyLengthFits) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const tests::OutputLevel level(0);
        const std::string directory = "/" + std::string(3000, 'd');
        const std::string options(10000, 'o');
        box.expect(Role({"/bin/mount", "-t", "xfs", "/dev/sda1", directory, "-o", options}));
        EXPECT_TRUE(partition.xfs_mount(directory.c_str(), options.c_str()));
        EXPECT_EQ(partition.mountpoint(), directory);
    });
}

TEST(PartitionMount, LogsTheAttemptAndKnowsTheDirectoryAtOnce) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(
            Role({"/bin/mount", "-t", "xfs", "/dev/sda1", "/dvr"}).mount("/dev/sda1", "/dvr"));
        const Outcome outcome = outcomeOf([&] { return partition.xfs_mount("/dvr", ""); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, kTrying);
        EXPECT_EQ(outcome.mErrors, "");
        EXPECT_STREQ(partition.mountpoint(), "/dvr");
        const failingcalls::Scope scope;
        EXPECT_GT(partition.fsFree(), 0U);
        EXPECT_EQ(failingcalls::count(Call::eOpen), 0);
    });
}

TEST(PartitionMount, AlreadyThereRunsNothing) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        mountOnDvr(box, partition);
        const Outcome outcome = outcomeOf([&] { return partition.ext3_mount("/dvr", "ro"); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, kTrying);
        EXPECT_EQ(box.runs().size(), 1U);
    });
}

TEST(PartitionMount, ElsewhereIsUnmountedFirst) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        mountOnDvr(box, partition);
        ASSERT_EQ(::mkdir("/other", 0755), 0);
        box.expect(Role({"/bin/mount", "/dev/sda1", "/other"}).mount("/dev/sda1", "/other"));
        const tests::OutputLevel level(0);
        EXPECT_TRUE(partition.mount("/other", sysPartition::eFsUnknown, nullptr));
        EXPECT_STREQ(partition.mountpoint(), "/other");
        EXPECT_EQ(tests::readFile("/proc/self/mounts").find(" /dvr "), std::string::npos);
    });
}

TEST(PartitionMount, ElsewhereAndBusyFailsWithoutACommand) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        mountOnDvr(box, partition);
        const int busy = ::open("/dvr", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const Outcome outcome = outcomeOf([&] { return partition.xfs_mount("/other", ""); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "Trying to mount fs /dev/sda1 on /other\n");
        EXPECT_EQ(outcome.mErrors, "Umount failure: Device or resource busy\n");
        EXPECT_STREQ(partition.mountpoint(), "/dvr");
        EXPECT_EQ(box.runs().size(), 1U);
        (void)::close(busy);
    });
}

TEST(PartitionMount, FailureTellsTheRawStatus) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(Role({"/bin/mount", "-t", "xfs", "/dev/sda1", "/dvr"}).exit(32));
        errno = 0;
        Outcome outcome = outcomeOf([&] { return partition.xfs_mount("/dvr", ""); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, std::string(kTrying) + "Mount failed with code 8192\n");
        EXPECT_EQ(outcome.mErrors.rfind("Mount Failure: ", 0), 0U) << outcome.mErrors;
        EXPECT_EQ(partition.mountpoint(), nullptr);

        box.removeTool("/bin/mount");
        outcome = outcomeOf([&] { return partition.xfs_mount("/dvr", ""); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, std::string(kTrying) + "Mount failed with code 32512\n");
    });
}

TEST(PartitionMount, FailureLeavesTheKnownDirectory) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        mountOnDvr(box, partition);
        box.replaceMounts("");
        box.expect(Role({"/bin/mount", "-t", "xfs", "/dev/sda1", "/other"}).exit(1));
        EXPECT_FALSE(outcomeOf([&] { return partition.xfs_mount("/other", ""); }).mDone);
        EXPECT_STREQ(partition.mountpoint(), "/dvr");
    });
}

TEST(PartitionMount, WithoutAShellTheReasonIsTold) {
    inSandbox([](Sandbox&) {
        sysPartition partition;
        makePartition(partition);
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eSystem, EAGAIN);
        const Outcome outcome = outcomeOf([&] { return partition.xfs_mount("/dvr", ""); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, std::string(kTrying) + "Mount failed with code -1\n");
        EXPECT_EQ(outcome.mErrors, "Mount Failure: Resource temporarily unavailable\n");
    });
}

TEST(PartitionMount, WithoutADirectoryItFails) {
    inSandbox([](Sandbox&) {
        sysPartition partition;
        makePartition(partition);
        EXPECT_FALSE(partition.xfs_mount(nullptr, ""));
    });
}

TEST(PartitionUnmount, OfWhatIsNotMountedFails) {
    inSandbox([](Sandbox&) {
        sysPartition partition;
        makePartition(partition);
        const Outcome outcome = outcomeOf([&] { return partition.unmount(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "File system is not mounted\n");
        EXPECT_EQ(outcome.mErrors, "");
    });
}

TEST(PartitionUnmount, ForgetsTheDirectory) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        mountOnDvr(box, partition);
        const Outcome outcome = outcomeOf([&] { return partition.unmount(); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
        EXPECT_EQ(partition.mountpoint(), nullptr);
        EXPECT_FALSE(partition.isMounted());
        EXPECT_EQ(partition.fsFree(), 0U);
    });
}

TEST(PartitionUnmount, WhileAFileIsOpenFails) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        mountOnDvr(box, partition);
        const int busy = ::open("/dvr/file", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        const Outcome outcome = outcomeOf([&] { return partition.unmount(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mErrors, "Umount failure: Device or resource busy\n");
        EXPECT_STREQ(partition.mountpoint(), "/dvr");
        (void)::close(busy);
        EXPECT_TRUE(partition.unmount());
    });
}

TEST(PartitionUnmount, TellsWhyTheKernelRefuses) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        mountOnDvr(box, partition);
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eUmount, EPERM);
        const Outcome outcome = outcomeOf([&] { return partition.unmount(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mErrors, "Umount failure: Operation not permitted\n");
        EXPECT_STREQ(partition.mountpoint(), "/dvr");
    });
}
