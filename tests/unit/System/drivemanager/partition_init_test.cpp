// SPDX-License-Identifier: MIT
//
// How a partition is initialised: its node's name, its type, its file system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "System/drivemanager/partition.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"

using failingcalls::Call;
using testing::MatchesRegex;
using tests::inSandbox;
using tests::Sandbox;

namespace {

constexpr int kLinux = 0x83;
const char kContext[] = "System/drivemanager/partition:[0-9]+ \\(level 1\\):\n";

/// Whether a new partition object accepts the node, and what it logs.
struct Taken {
    explicit Taken(const std::string& path, unsigned long long capacity = 1, int type = kLinux) {
        const tests::Capture capture;
        mDone = mPartition.init(path.c_str(), capacity, type);
        mLog = capture.output();
    }
    std::string label() const {
        return mPartition.label() != nullptr ? mPartition.label() : "(null)";
    }
    sysPartition mPartition;
    bool mDone;
    std::string mLog;
};

}  // namespace

TEST(PartitionInit, StartsEmpty) {
    const sysPartition partition;
    EXPECT_STREQ(partition.path(), "");
    EXPECT_EQ(partition.label(), nullptr);
    EXPECT_EQ(partition.mountpoint(), nullptr);
    EXPECT_EQ(partition.ext3_format_progress(), 0);
    EXPECT_EQ(partition.ext3_fscheck_progress(), 0);
    EXPECT_EQ(partition.fsFree(), 0U);
    EXPECT_EQ(partition.fsCapacity(), 0U);
    EXPECT_EQ(partition.fsBlockSize(), 0U);
}

TEST(PartitionInit, KeepsWhatItIsGiven) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/sda1", tests::xfsHeader("DVRStorage"));
        const Taken taken("/dev/sda1", 0x123456789abcULL);
        EXPECT_TRUE(taken.mDone);
        EXPECT_EQ(taken.mLog, "");
        EXPECT_STREQ(taken.mPartition.path(), "/dev/sda1");
        EXPECT_EQ(taken.mPartition.capacity(), 0x123456789abcULL);
        EXPECT_EQ(taken.mPartition.type(), kLinux);
        EXPECT_EQ(taken.mPartition.fileSystemType(), sysPartition::eFsXfs);
        EXPECT_EQ(taken.label(), "DVRStorage");
        EXPECT_EQ(taken.mPartition.mountpoint(), nullptr);
    });
}

TEST(PartitionInit, RecognisesFileSystems) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/ext", tests::extHeader("software"));
        tests::writeFile("/dev/xfs", tests::xfsHeader(""), 4096);
        tests::writeFile("/dev/none", "", 4096);
        tests::writeFile("/dev/short", "XF");
        EXPECT_EQ(Taken("/dev/ext").mPartition.fileSystemType(), sysPartition::eFsExt3);
        EXPECT_EQ(Taken("/dev/ext").label(), "software");
        EXPECT_EQ(Taken("/dev/xfs").mPartition.fileSystemType(), sysPartition::eFsXfs);
        EXPECT_EQ(Taken("/dev/xfs").label(), "(null)");
        for (const char* const name : {"/dev/none", "/dev/short"}) {
            const Taken taken(name);
            EXPECT_TRUE(taken.mDone) << name;
            EXPECT_EQ(taken.mPartition.fileSystemType(), sysPartition::eFsUnknown) << name;
            EXPECT_EQ(taken.label(), "(null)") << name;
        }
    });
}

TEST(PartitionInit, BothMagicsAreExt3) {
    inSandbox([](Sandbox&) {
        std::string both = tests::extHeader("ext");
        both.replace(0, 512, tests::xfsHeader("xfs"));
        tests::writeFile("/dev/sda1", both);
        const Taken taken("/dev/sda1");
        EXPECT_EQ(taken.mPartition.fileSystemType(), sysPartition::eFsExt3);
        EXPECT_EQ(taken.label(), "ext");
    });
}

TEST(PartitionInit, OtherTypesAreNotRead) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/sda1", tests::extHeader("software"));
        const failingcalls::Scope scope;
        int mountTables = 0;
        for (const int type : {0, 0x82, 0x8e, 0x183}) {
            ++mountTables;
            const Taken taken("/dev/sda1", 7, type);
            EXPECT_TRUE(taken.mDone);
            EXPECT_EQ(taken.mPartition.type(), type);
            EXPECT_EQ(taken.mPartition.fileSystemType(), sysPartition::eFsUnknown);
            EXPECT_EQ(taken.label(), "(null)");
        }
        EXPECT_EQ(failingcalls::count(Call::eOpen), mountTables);
    });
}

TEST(PartitionInit, TriesTheOtherName) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/mmcblk0-part3", tests::xfsHeader("label"));
        const Taken taken("/dev/mmcblk0p3");
        EXPECT_TRUE(taken.mDone);
        EXPECT_STREQ(taken.mPartition.path(), "/dev/mmcblk0-part3");
        EXPECT_EQ(taken.mPartition.fileSystemType(), sysPartition::eFsXfs);
        EXPECT_EQ(taken.mLog, "");
    });
}

TEST(PartitionInit, TheNameItselfComesFirst) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/mmcblk0p3", "");
        tests::writeFile("/dev/mmcblk0-part3", "");
        EXPECT_STREQ(Taken("/dev/mmcblk0p3").mPartition.path(), "/dev/mmcblk0p3");
    });
}

TEST(PartitionInit, TellsTheOtherNameThatIsMissingToo) {
    inSandbox([](Sandbox&) {
        const Taken taken("/dev/mmcblk0p3");
        EXPECT_FALSE(taken.mDone);
        EXPECT_THAT(taken.mLog,
                    MatchesRegex(std::string(kContext) + " newdev=/dev/mmcblk0-part3\n"));
        EXPECT_THAT(Taken("xxp1").mLog, MatchesRegex(std::string(kContext) + " newdev=xx-part1\n"));
    });
}

TEST(PartitionInit, TellsANameThatHasNoOther) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/mmcblk0-part2", "");
        tests::writeFile("/dev/mmcblk0p-part2", "");
        tests::writeFile("/dev/x-part1", "");
        // A name of three characters is too short to rewrite.
        tests::writeFile("x-part1", "");
        for (const char* const name : {"/dev/mmcblk0p12", "/dev/sdz1", "/dev/mmcblk0p", "xp1", "p1",
                                       "1", "", "/dev/mmcblk0pa", "/dev/mmcblk0P1"}) {
            const Taken taken(name);
            EXPECT_FALSE(taken.mDone) << name;
            EXPECT_THAT(taken.mLog, MatchesRegex(kContext + (" iDev=" + std::string(name)) + "\n"));
        }
        sysPartition partition;
        const tests::Capture capture;
        EXPECT_FALSE(partition.init(nullptr, 1, kLinux));
    });
}

TEST(PartitionInit, TellsANodeThatCannotBeOpened) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/sda1", tests::xfsHeader("label"));
        const failingcalls::Scope scope;
        failingcalls::failAll(Call::eOpen, EACCES);
        const Taken taken("/dev/sda1", 5);
        EXPECT_FALSE(taken.mDone);
        EXPECT_THAT(taken.mLog, MatchesRegex(std::string(kContext) + " mPath=/dev/sda1\n"));
        EXPECT_EQ(taken.mPartition.capacity(), 5U);
        EXPECT_EQ(taken.mPartition.fileSystemType(), sysPartition::eFsUnknown);
    });
}

TEST(PartitionInit, ANodeThatStatCannotReachIsMissing) {
    inSandbox([](Sandbox&) {
        tests::writeFile("/dev/sda1", "");
        tests::writeFile("/dev/mmcblk0-part1", "");
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eStat, EACCES);
        EXPECT_THAT(Taken("/dev/sda1").mLog, MatchesRegex(std::string(kContext) + " iDev=.*"));
        failingcalls::fail(Call::eStat, EACCES, 2);
        EXPECT_THAT(Taken("/dev/mmcblk0p1").mLog,
                    MatchesRegex(std::string(kContext) + " newdev=.*"));
    });
}

TEST(PartitionInit, LevelZeroSilencesTheReports) {
    inSandbox([](Sandbox&) {
        const tests::OutputLevel level(0);
        EXPECT_EQ(Taken("/dev/nothing").mLog, "");
        EXPECT_EQ(Taken("/dev/nothingp1").mLog, "");
    });
}

TEST(PartitionInit, LearnsWhereItIsMounted) {
    inSandbox([](Sandbox& box) {
        tests::writeFile("/dev/sda1", "");
        box.replaceMounts("/dev/sda1 /dvr xfs rw 0 0\n");
        EXPECT_STREQ(Taken("/dev/sda1").mPartition.mountpoint(), "/dvr");
        EXPECT_STREQ(Taken("/dev/sda1", 1, 7).mPartition.mountpoint(), "/dvr");
    });
}

TEST(PartitionInit, RecognisesWhatTheRealToolsMake) {
    inSandbox([](Sandbox&) {
        const auto make = [](const std::string& tool, const std::string& label, long long size) {
            tests::writeFile("/tmp/image", "", size);
            const std::string quoted = label.empty() ? "" : " -L '" + label + "'";
            return ::system(("/usr/sbin/" + tool + quoted + " /tmp/image >/dev/null").c_str()) == 0;
        };
        for (const char* const tool : {"mkfs.ext2 -q -F", "mkfs.ext3 -q -F"}) {
            for (const std::string label : {"", "x", "twelve chars", "sixteen letters."}) {
                ASSERT_TRUE(make(tool, label, 4 << 20)) << tool;
                const Taken taken("/tmp/image");
                EXPECT_EQ(taken.mPartition.fileSystemType(), sysPartition::eFsExt3);
                EXPECT_EQ(taken.label(), label.empty() ? "(null)" : label);
            }
        }
        for (const std::string label : {"", "x", "twelve-chars"}) {
            ASSERT_TRUE(make("mkfs.xfs -q -f", label, 300 << 20));
            const Taken taken("/tmp/image");
            EXPECT_EQ(taken.mPartition.fileSystemType(), sysPartition::eFsXfs);
            EXPECT_EQ(taken.label(), label.empty() ? "(null)" : label);
        }
    });
}
