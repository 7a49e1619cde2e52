// SPDX-License-Identifier: MIT
//
// A start without enough memory: the exception is thrown, and nothing leaks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <new>
#include <string_view>

#include "System/BlockdevCfg.fmp.h"
#include "System/system.h"
#include "tests/support/failingnew.h"
#include "tests/support/outputlevel.h"

namespace {

using tests::FailingNew;
using tests::OutputLevel;

/// Returns whether a start succeeded.
bool comesThrough(void (*start)()) {
    try {
        start();
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

/// Makes every single allocation of a start fail in turn. Returns their number.
int failEveryAllocation(void (*start)()) {
    const OutputLevel quiet(0);
    for (int nth = 1; nth < 1000; ++nth) {
        FailingNew memory(nth);
        const bool started = comesThrough(start);
        memory.stop();
        if (started) {
            SystemTerm();
        }
        EXPECT_EQ(nullptr, getSystem()) << nth;
        EXPECT_EQ(nullptr, BlockdeviceConfig::GetInstance()) << nth;
        EXPECT_EQ(0, memory.alive()) << nth;
        if (started || testing::Test::HasFailure()) {
            return nth - 1;
        }
    }
    ADD_FAILURE() << "no end";
    return 0;
}

TEST(SystemAllocationTest, MinimalStartFailsWhole) {
    // The object, its two helpers, the table, its devices and their partitions.
    EXPECT_EQ(6, failEveryAllocation(SystemMinimalInit));
}

TEST(SystemAllocationTest, FullStartFailsWhole) {
    if (::access("/dev/sda", F_OK) == 0) {
        GTEST_SKIP() << "this machine has a /dev/sda";
    }
    // The allocations of the minimal start, and the manager and the drive that it looks for.
    EXPECT_LE(8, failEveryAllocation(SystemInit));
}

TEST(SystemAllocationTest, FailedStartLeavesTheEarlierSystem) {
    const OutputLevel quiet(0);
    SystemMinimalInit();
    sysInterface* const first = getSystem();
    for (const int nth : {1, 3}) {
        const FailingNew memory(nth);
        EXPECT_FALSE(comesThrough(SystemMinimalInit));
    }
    EXPECT_EQ(first, getSystem());
    EXPECT_NE(nullptr, BlockdeviceConfig::GetInstance());
    SystemTerm();
}

TEST(SystemAllocationTest, EveryFailedSecondStartLeavesTheEarlierSystemWhole) {
    const OutputLevel quiet(0);
    SystemMinimalInit();
    sysInterface* const first = getSystem();
    BlockdeviceConfig* const table = BlockdeviceConfig::GetInstance();
    int nth = 1;
    while (true) {
        const FailingNew memory(nth);
        if (comesThrough(SystemInit)) {
            break;
        }
        ++nth;
        ASSERT_LT(nth, 1000);
        EXPECT_EQ(0, memory.alive()) << nth;
        EXPECT_EQ(first, getSystem()) << nth;
        ASSERT_EQ(table, BlockdeviceConfig::GetInstance()) << nth;
        EXPECT_STREQ("/boot-sw", table->GetSoftwarePartitionMountPoint());
    }
    // The last ones fail in initDVR(), after the second table has been built.
    EXPECT_GT(nth, 7);
    SystemTerm();
    delete first;
    delete table;
}

TEST(SystemAllocationTest, QueriesOfOnePartitionTakeNoMemory) {
    const OutputLevel quiet(0);
    BlockdeviceConfig* const table = BlockdeviceConfig::CreateInstance();
    {
        const FailingNew memory(1);
        EXPECT_STREQ("/boot-sw", table->GetSoftwarePartitionMountPoint());
        EXPECT_NE(std::string_view(), table->GetSoftwarePartitionMountDevice());
        EXPECT_STREQ("ext3", table->GetSoftwarePartitionFilesystem());
        EXPECT_STREQ("", table->GetCustomPartitionMountDevice());
        EXPECT_NE(nullptr, table->GetDataPartition());
        EXPECT_EQ(0, memory.count());
    }
    BlockdeviceConfig::DestroyInstance();
}

TEST(SystemAllocationTest, TableFailsWhole) {
    const OutputLevel quiet(0);
    for (int nth = 1; nth <= 3; ++nth) {
        const FailingNew memory(nth);
        EXPECT_THROW((void)BlockdeviceConfig::CreateInstance(), std::bad_alloc) << nth;
        EXPECT_EQ(0, memory.alive()) << nth;
        EXPECT_EQ(nullptr, BlockdeviceConfig::GetInstance());
    }
}

TEST(SystemAllocationTest, DownloadMemoryMayBeMissing) {
    const FailingNew memory(1);
    EXPECT_THROW(download_free(download_allocate(10)), std::bad_alloc);
}

}  // namespace
