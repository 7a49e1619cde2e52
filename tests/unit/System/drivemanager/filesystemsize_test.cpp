// SPDX-License-Identifier: MIT
#include "System/drivemanager/filesystemsize.h"

#include <gtest/gtest.h>
#include <sys/statfs.h>

#include <cerrno>
#include <limits>

#include "System/drivemanager/partition.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"

using drivemanager::FilesystemSize;
using drivemanager::measure;
using failingcalls::Call;

namespace {

constexpr std::uint64_t kLargest = UINT32_MAX;

/// Returns an ordinary file system.
struct statfs ordinary() {
    struct statfs status = {};
    status.f_bsize = 4096;
    status.f_frsize = 4096;
    status.f_blocks = 1000;
    status.f_bfree = 600;
    status.f_bavail = 500;
    status.f_files = 50;
    status.f_ffree = 40;
    return status;
}

FilesystemSize measured(const struct statfs& status) {
    const failingcalls::Scope scope;
    failingcalls::answerStatfs([&](const char*, struct statfs* out) {
        *out = status;
        return 0;
    });
    return measure("/somewhere");
}

bool isZero(const FilesystemSize& size) {
    return size.mBlockSize == 0 && size.mBlocks == 0 && size.mFreeBlocks == 0;
}

}  // namespace

TEST(FilesystemSize, TakesFreeBlocksWithThoseOfRoot) {
    const FilesystemSize size = measured(ordinary());
    EXPECT_EQ(size.mBlockSize, 4096);
    EXPECT_EQ(size.mBlocks, 1000U);
    EXPECT_EQ(size.mFreeBlocks, 600U);
}

TEST(FilesystemSize, AsksForTheDirectoryItIsGiven) {
    const failingcalls::Scope scope;
    std::string asked;
    failingcalls::answerStatfs([&](const char* path, struct statfs* out) {
        asked = path;
        *out = ordinary();
        return 0;
    });
    (void)measure("/dvr/data");
    EXPECT_EQ(asked, "/dvr/data");
    EXPECT_TRUE(isZero(measure("")));
    EXPECT_EQ(failingcalls::count(Call::eStatfs), 1);
}

TEST(FilesystemSize, HasNoFiguresWhenTheCallFails) {
    const failingcalls::Scope scope;
    failingcalls::fail(Call::eStatfs, EIO);
    EXPECT_TRUE(isZero(measure("/")));
    EXPECT_TRUE(isZero(measure("/no/such/directory")));
    EXPECT_FALSE(isZero(measure("/")));
}

TEST(FilesystemSize, CountsUpTo32BitsFit) {
    struct statfs status = ordinary();
    status.f_blocks = kLargest;
    status.f_bfree = kLargest;
    status.f_bavail = kLargest;
    status.f_files = kLargest;
    status.f_ffree = kLargest;
    const FilesystemSize size = measured(status);
    EXPECT_EQ(size.mBlocks, UINT32_MAX);
    EXPECT_EQ(size.mFreeBlocks, UINT32_MAX);
    EXPECT_EQ(drivemanager::bytes(size, size.mBlocks), 4096ULL * UINT32_MAX);
}

TEST(FilesystemSize, AFieldBeyond32BitsLeavesNoFigures) {
    const auto with = [](fsblkcnt_t(statfs::*field), std::uint64_t value) {
        struct statfs status = ordinary();
        status.*field = value;
        return measured(status);
    };
    for (const std::uint64_t value : {kLargest + 1, std::uint64_t{1} << 40, UINT64_MAX}) {
        EXPECT_TRUE(isZero(with(&statfs::f_blocks, value))) << value;
        EXPECT_TRUE(isZero(with(&statfs::f_bfree, value))) << value;
        EXPECT_TRUE(isZero(with(&statfs::f_bavail, value))) << value;
    }
}

TEST(FilesystemSize, UnknownFileCountsFit) {
    struct statfs status = ordinary();
    status.f_files = UINT64_MAX;
    status.f_ffree = UINT64_MAX;
    EXPECT_EQ(measured(status).mBlocks, 1000U);
    status.f_files = kLargest + 1;
    EXPECT_TRUE(isZero(measured(status)));
    status = ordinary();
    status.f_ffree = UINT64_MAX - 1;
    EXPECT_TRUE(isZero(measured(status)));
}

TEST(FilesystemSize, ABlockSizeBeyond32BitsLeavesNoFigures) {
    struct statfs status = ordinary();
    if (sizeof(status.f_bsize) < sizeof(std::int64_t)) {
        GTEST_SKIP() << "the field has 32 bits here";
    }
    const auto large = static_cast<decltype(status.f_bsize)>(kLargest + 1);
    status.f_bsize = large;
    EXPECT_TRUE(isZero(measured(status)));
    status = ordinary();
    status.f_frsize = large;
    EXPECT_TRUE(isZero(measured(status)));
}

TEST(FilesystemSize, TheBlockSizeIsSigned) {
    struct statfs status = ordinary();
    status.f_bsize = static_cast<decltype(status.f_bsize)>(0x80000000UL);
    status.f_blocks = 3;
    const FilesystemSize size = measured(status);
    EXPECT_EQ(size.mBlockSize, std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(drivemanager::bytes(size, size.mBlocks),
              static_cast<unsigned long long>(-3LL * 0x80000000LL));
}

TEST(FilesystemSize, ProductsHave64Bits) {
    FilesystemSize size;
    size.mBlockSize = 65536;
    EXPECT_EQ(drivemanager::bytes(size, 0xffffffffU), 0xffffffff0000ULL);
    EXPECT_EQ(drivemanager::bytes(size, 0), 0U);
    size.mBlockSize = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(drivemanager::bytes(size, 0xffffffffU), 0x7fffffffULL * 0xffffffffULL);
}

TEST(PartitionSize, GivesTheFiguresOfTheKnownDirectory) {
    tests::inSandbox([](tests::Sandbox& box) {
        tests::writeFile("/dev/sda1", "");
        box.replaceMounts("/dev/sda1 /known xfs rw 0 0\n");
        sysPartition partition;
        ASSERT_TRUE(partition.init("/dev/sda1", 1, 0));
        // The object's own state counts, not the table.
        tests::writeFile("/stub/mounts", "");
        const failingcalls::Scope scope;
        failingcalls::answerStatfs([](const char* path, struct statfs* status) {
            *status = ordinary();
            return std::string(path) == "/known" ? 0 : -1;
        });
        EXPECT_EQ(partition.fsCapacity(), 4096000U);
        EXPECT_EQ(partition.fsFree(), 2457600U);
        EXPECT_EQ(partition.fsBlockSize(), 4096U);
        EXPECT_EQ(failingcalls::count(Call::eOpen), 0);

        failingcalls::failAll(Call::eStatfs, EIO);
        EXPECT_EQ(partition.fsCapacity(), 0U);
        EXPECT_EQ(partition.fsFree(), 0U);
        EXPECT_EQ(partition.fsBlockSize(), 0U);
    });
}

TEST(PartitionSize, AnswersWhatStatfsAnswers) {
    tests::inSandbox([](tests::Sandbox& box) {
        tests::writeFile("/dev/sda1", "");
        sysPartition partition;
        ASSERT_TRUE(partition.init("/dev/sda1", 1, 0));
        box.expect(tests::Role({"/bin/mount", "/dev/sda1", "/dvr"}).mount("/dev/sda1", "/dvr"));
        const tests::OutputLevel level(0);
        ASSERT_TRUE(partition.mount("/dvr", sysPartition::eFsUnknown, nullptr));
        struct statfs status = {};
        ASSERT_EQ(::statfs("/dvr", &status), 0);
        const auto blockSize = static_cast<unsigned long long>(status.f_bsize);
        EXPECT_EQ(partition.fsBlockSize(), blockSize);
        EXPECT_EQ(partition.fsCapacity(), blockSize * status.f_blocks);
        EXPECT_EQ(partition.fsCapacity(), 4U << 20);
        EXPECT_EQ(partition.fsFree(), blockSize * status.f_bfree);
    });
}
