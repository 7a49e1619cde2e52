// SPDX-License-Identifier: MIT
//
// A caller without some of the standard streams: tools run normally, and no other descriptor is
// used as one.
#include <gtest/gtest.h>

#include "System/drivemanager/harddrive.h"
#include "System/drivemanager/partition.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using tests::inSandbox;
using tests::makePartition;
using tests::Role;
using tests::Sandbox;
using tests::ToolRun;

namespace {

constexpr int kStreams = 3;

/// Closes the standard streams selected by a bit mask for a scope.
class Without {
public:
    explicit Without(unsigned mask) : mMask(mask) {
        (void)std::fflush(nullptr);
        for (int i = 0; i < kStreams; ++i) {
            if (isClosed(i)) {
                mSaved[i] = ::fcntl(i, F_DUPFD_CLOEXEC, 900);
                (void)::close(i);
            }
        }
    }
    ~Without() {
        for (int i = 0; i < kStreams; ++i) {
            if (isClosed(i)) {
                (void)::dup2(mSaved[i], i);
                (void)::close(mSaved[i]);
            }
        }
    }
    Without(const Without&) = delete;
    Without& operator=(const Without&) = delete;

    bool isClosed(int stream) const { return (mMask >> stream & 1) != 0; }

private:
    unsigned mMask;
    int mSaved[kStreams] = {};
};

/// Runs an operation with each set of closed streams and passes the tool's run to `check`.
void withEachSet(Sandbox& box, const std::function<bool()>& operation,
                 const std::function<void(const ToolRun&, const std::string* streams)>& check) {
    for (unsigned mask = 0; mask < 1U << kStreams; ++mask) {
        SCOPED_TRACE(mask);
        std::string expected[kStreams];
        for (int i = 0; i < kStreams; ++i) {
            expected[i] = (mask >> i & 1) != 0 ? "/dev/null rw" : tests::descriptorText(i);
        }
        bool done = false;
        {
            const Without without(mask);
            done = operation();
            for (int i = 0; i < kStreams; ++i) {
                if (without.isClosed(i) && ::fcntl(i, F_GETFD) >= 0) {
                    done = false;  // a descriptor was left in its place
                }
            }
        }
        EXPECT_TRUE(done);
        ASSERT_EQ(box.runs().size(), mask + 1);
        check(box.runs().back(), expected);
    }
}

void checkOutputOfPipe(const ToolRun& run, const std::string* streams) {
    ASSERT_EQ(run.mDescriptors.size(), 3U);
    EXPECT_EQ(run.mDescriptors.at(0), streams[0]);
    EXPECT_EQ(run.mDescriptors.at(1).substr(0, 5), "pipe:");
    EXPECT_EQ(run.mDescriptors.at(2), streams[2]);
}

}  // namespace

TEST(ClosedStreams, Ext3Format) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.allow(Role({"/sbin/mkfs.ext3", "-L", "x", "-m", "0", "-i", "2097152", "/dev/sda1"})
                      .print("Writing inode tables:\n"));
        withEachSet(
            box, [&] { return partition.ext3_format("x"); }, checkOutputOfPipe);
    });
}

TEST(ClosedStreams, XfsFormat) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.allow(Role({"/sbin/mkfs.xfs", "-L", "x", "-f", "-l", "lazy-count=0", "/dev/sda1"})
                      .print("x"));
        withEachSet(
            box, [&] { return partition.xfs_format("x"); }, checkOutputOfPipe);
    });
}

TEST(ClosedStreams, Ext3Check) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        // The numbers depend on which end of the pipe filled a gap and was moved.
        for (const int number : {tests::nextDescriptor(), tests::nextDescriptor() + 1}) {
            box.allow(Role({"/sbin/fsck.ext3", "-C", std::to_string(number), "-p", "/dev/sda1"})
                          .report("1 1 1\n"));
        }
        withEachSet(
            box, [&] { return partition.ext3_fscheck(); },
            [](const ToolRun& run, const std::string* streams) {
                ASSERT_EQ(run.mDescriptors.size(), 5U);
                for (int i = 0; i < kStreams; ++i) {
                    EXPECT_EQ(run.mDescriptors.at(i), streams[i]);
                }
                const std::string end = run.mDescriptors.at(std::stoi(run.mArguments.at(2)));
                EXPECT_EQ(end.substr(0, 5), "pipe:");
                EXPECT_EQ(end.back(), 'w');
            });
    });
}

TEST(ClosedStreams, PartitionTable) {
    inSandbox([](Sandbox& box) {
        sysHardDrive drive;
        box.allow(Role({"/sbin/sfdisk", "-d", ""}));
        withEachSet(
            box,
            [&] {
                drive.scanPartitions();
                return true;
            },
            checkOutputOfPipe);
    });
}

TEST(ClosedStreams, WritingAPartitionTable) {
    inSandbox([](Sandbox& box) {
        box.allow(Role({"/sbin/sfdisk", "-d", ""}));
        sysHardDrive drive;
        int sizes[] = {100, -1, 0, 0};
        for (unsigned mask = 0; mask < 1U << kStreams; ++mask) {
            SCOPED_TRACE(mask);
            box.expect(Role({"/sbin/sfdisk", "-q", "-L", "-uM", ""}).readInput());
            bool done = false;
            {
                const Without without(mask);
                done = drive.partitionCustom(sizes);
            }
            EXPECT_TRUE(done);
            const ToolRun run = box.runs().at(2 * mask);
            EXPECT_EQ(run.mInput, ",100\n;\n");
            ASSERT_EQ(run.mDescriptors.size(), 3U);
            EXPECT_EQ(run.mDescriptors.at(0).substr(0, 5), "pipe:");
            EXPECT_EQ(run.mDescriptors.at(0).back(), 'r');
        }
    });
}

TEST(ClosedStreams, RecognisingAndMeasuringTakeNoneOfThem) {
    inSandbox([](Sandbox& box) {
        tests::writeFile("/dev/sda1", tests::xfsHeader("label"));
        box.replaceMounts("/dev/sda1 / xfs rw 0 0\n");
        bool done = false;
        unsigned int size = 0;
        {
            const Without without(7);
            sysPartition partition;
            done = partition.init("/dev/sda1", 1, 0x83) &&
                   partition.fileSystemType() == sysPartition::eFsXfs && partition.isMounted();
            size = partition.fsBlockSize();
        }
        EXPECT_TRUE(done);
        EXPECT_GT(size, 0U);
        EXPECT_EQ(tests::readFile("/dev/sda1"), tests::xfsHeader("label"));
    });
}
