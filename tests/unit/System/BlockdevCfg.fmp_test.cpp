// SPDX-License-Identifier: MIT
//
// The queries of the partition table.
#include "System/BlockdevCfg.fmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/unit/System/blockdevtable.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tests::deviceOf;
using tests::Devices;
using tests::OwnTable;
using tests::partitionOf;
using Partitions = KestrovaVector<PartitionConfig*>;

constexpr char kDisk[] = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0";

/// Returns what a query appends to an empty list.
template <class Table>
Partitions appended(Table& table, void (BlockdeviceConfig::*query)(Partitions*)) {
    Partitions found;
    (table.*query)(&found);
    return found;
}

Partitions byUsage(BlockdeviceConfig& table, unsigned usage) {
    Partitions found;
    table.GetPartitionsByUsage(usage, &found);
    return found;
}

TEST(BlockdevTableTest, BuiltInDevice) {
    OwnTable table;
    ASSERT_EQ(1U, table.devices().size());
    const BlockdevConfig& disk = table.devices()[0];
    EXPECT_EQ(0U, disk.mBlockdevId);
    EXPECT_EQ(1U, disk.mBlockdevType);
    EXPECT_STREQ(kDisk, disk.mpBlockdevName);
    EXPECT_EQ(2U, disk.mPartition.size());
}

TEST(BlockdevTableTest, BuiltInSoftwarePartition) {
    OwnTable table;
    const PartitionConfig& software = table.devices()[0].mPartition[0];
    EXPECT_EQ(0U, software.mPartId);
    EXPECT_EQ(3U, software.mFstype);
    EXPECT_EQ(4U, software.mUsage);
    EXPECT_STREQ("/boot-sw", software.mpMountPoint);
    EXPECT_EQ(std::string(kDisk) + "-part1", software.mpPartDevname);
    EXPECT_FALSE(software.mUseItForSettings);
    EXPECT_FALSE(software.mUseItForBulk);
    EXPECT_EQ(0U, software.mBulkProjectId);
    EXPECT_STREQ("", software.mpBulkSubDir);
    EXPECT_FALSE(software.mUseItForTemp);
    EXPECT_STREQ("", software.mpTempSubDir);
    EXPECT_EQ(table.devices().data(), software.mpBlockdev);
}

TEST(BlockdevTableTest, BuiltInDataPartition) {
    OwnTable table;
    const PartitionConfig& data = table.devices()[0].mPartition[1];
    EXPECT_EQ(1U, data.mPartId);
    EXPECT_EQ(1U, data.mFstype);
    EXPECT_EQ(5U, data.mUsage);
    EXPECT_STREQ("/media/data0-1", data.mpMountPoint);
    EXPECT_EQ(std::string(kDisk) + "-part2", data.mpPartDevname);
    EXPECT_TRUE(data.mUseItForSettings);
    EXPECT_TRUE(data.mUseItForBulk);
    EXPECT_EQ(110U, data.mBulkProjectId);
    EXPECT_STREQ("/bulk", data.mpBulkSubDir);
    EXPECT_TRUE(data.mUseItForTemp);
    EXPECT_STREQ("/temp", data.mpTempSubDir);
    EXPECT_EQ(table.devices().data(), data.mpBlockdev);
}

TEST(BlockdevTableTest, QueriesOfTheBuiltInTable) {
    OwnTable table;
    PartitionConfig* const software = &table.devices()[0].mPartition[0];
    PartitionConfig* const data = &table.devices()[0].mPartition[1];
    EXPECT_STREQ("/boot-sw", table.GetSoftwarePartitionMountPoint());
    EXPECT_EQ(std::string(kDisk) + "-part1", table.GetSoftwarePartitionMountDevice());
    EXPECT_STREQ("ext3", table.GetSoftwarePartitionFilesystem());
    EXPECT_STREQ("", table.GetCustomPartitionMountDevice());
    EXPECT_EQ(data, table.GetDataPartition());
    EXPECT_THAT(appended(table, &BlockdeviceConfig::GetSettingsLinuxDevices), ElementsAre(data));
    EXPECT_THAT(appended(table, &BlockdeviceConfig::GetBulkLinuxDevices), ElementsAre(data));
    EXPECT_THAT(appended(table, &BlockdeviceConfig::GetTempLinuxDevices), ElementsAre(data));
    EXPECT_THAT(appended(table, &BlockdeviceConfig::GetIgnoredLinuxDevices), ElementsAre(software));
    EXPECT_THAT(byUsage(table, eUsageSoftware), ElementsAre(software));
    EXPECT_THAT(byUsage(table, eUsageData), ElementsAre(data));
    EXPECT_THAT(byUsage(table, eUsageCustom), IsEmpty());
}

TEST(BlockdevTableTest, UsageIsComparedAsAWholeAndNotByItsBits) {
    OwnTable table;
    for (const unsigned usage : {0U, 1U, 2U, 3U, 6U, 7U, 8U, 12U, 13U, 0xffffffffU}) {
        EXPECT_THAT(byUsage(table, usage), IsEmpty()) << usage;
    }
}

TEST(BlockdevTableTest, ResultsAreAppendedToWhatIsThere) {
    OwnTable table;
    PartitionConfig* const software = &table.devices()[0].mPartition[0];
    PartitionConfig* const data = &table.devices()[0].mPartition[1];
    Partitions out;
    table.GetPartitionsByUsage(5, &out);
    table.GetPartitionsByUsage(2, &out);
    table.GetPartitionsByUsage(5, &out);
    EXPECT_THAT(out, ElementsAre(data, data));
    table.GetSettingsLinuxDevices(&out);
    table.GetIgnoredLinuxDevices(&out);
    table.GetBulkLinuxDevices(&out);
    table.GetTempLinuxDevices(&out);
    EXPECT_THAT(out, ElementsAre(data, data, data, software, data, data));
}

TEST(BlockdevTableTest, EmptyTableAnswersWithNothing) {
    for (const Devices& devices : {Devices{}, Devices{deviceOf({}), deviceOf({})}}) {
        OwnTable table(devices);
        EXPECT_EQ(nullptr, table.GetDataPartition());
        EXPECT_STREQ("", table.GetSoftwarePartitionMountPoint());
        EXPECT_STREQ("", table.GetSoftwarePartitionMountDevice());
        EXPECT_STREQ("", table.GetSoftwarePartitionFilesystem());
        EXPECT_STREQ("", table.GetCustomPartitionMountDevice());
        EXPECT_THAT(appended(table, &BlockdeviceConfig::GetSettingsLinuxDevices), IsEmpty());
        EXPECT_THAT(appended(table, &BlockdeviceConfig::GetBulkLinuxDevices), IsEmpty());
        EXPECT_THAT(appended(table, &BlockdeviceConfig::GetTempLinuxDevices), IsEmpty());
        EXPECT_THAT(appended(table, &BlockdeviceConfig::GetIgnoredLinuxDevices), IsEmpty());
    }
}

TEST(BlockdevTableTest, NamesOfFileSystems) {
    const char* const names[] = {"", "xfs", "ext2", "ext3", "ext4", "", ""};
    for (unsigned code = 0; code < 7; ++code) {
        OwnTable table(Devices{deviceOf({partitionOf(eUsageSoftware, code, "/dev/x")})});
        EXPECT_STREQ(names[code], table.GetSoftwarePartitionFilesystem()) << code;
    }
    OwnTable table(Devices{deviceOf({partitionOf(eUsageSoftware, 0xffffffffU, "/dev/x")})});
    EXPECT_STREQ("", table.GetSoftwarePartitionFilesystem());
}

/// Two devices with several partitions of each usage.
OwnTable crowdedTable() {
    return OwnTable(
        {deviceOf({partitionOf(eUsageData, 1, "/dev/a1"),
                   partitionOf(eUsageCustom, 2, "/dev/a2", "/custom"),
                   partitionOf(eUsageSoftware, 3, "/dev/a3", "/first")}),
         deviceOf({partitionOf(eUsageSoftware, 4, "/dev/b1", "/second"),
                   partitionOf(eUsageData, 1, "/dev/b2"), partitionOf(eUsageCustom, 2, "/dev/b3"),
                   partitionOf(eUsageData, 1, "/dev/b4")})});
}

std::vector<std::string> names(const Partitions& partitions) {
    std::vector<std::string> names;
    for (const PartitionConfig* const partition : partitions) {
        names.emplace_back(partition->mpPartDevname);
    }
    return names;
}

TEST(BlockdevTableTest, OrderIsThatOfTheTable) {
    auto table = crowdedTable();
    EXPECT_THAT(names(byUsage(table, eUsageData)), ElementsAre("/dev/a1", "/dev/b2", "/dev/b4"));
    EXPECT_THAT(names(byUsage(table, eUsageSoftware)), ElementsAre("/dev/a3", "/dev/b1"));
    EXPECT_STREQ("/dev/a1", table.GetDataPartition()->mpPartDevname);
    EXPECT_STREQ("/first", table.GetSoftwarePartitionMountPoint());
    EXPECT_STREQ("/dev/a3", table.GetSoftwarePartitionMountDevice());
    EXPECT_STREQ("ext3", table.GetSoftwarePartitionFilesystem());
    EXPECT_STREQ("/dev/a2", table.GetCustomPartitionMountDevice());
}

TEST(BlockdevTableTest, IgnoredAreTheFirstSoftwareAndThenTheFirstCustomPartition) {
    auto table = crowdedTable();
    EXPECT_THAT(names(appended(table, &BlockdeviceConfig::GetIgnoredLinuxDevices)),
                ElementsAre("/dev/a3", "/dev/a2"));
    OwnTable custom(Devices{deviceOf({partitionOf(eUsageCustom, 1, "/dev/c")})});
    EXPECT_THAT(names(appended(custom, &BlockdeviceConfig::GetIgnoredLinuxDevices)),
                ElementsAre("/dev/c"));
}

TEST(BlockdevTableTest, FlagsCountOnDataPartitionsOnly) {
    auto table = crowdedTable();
    PartitionConfig& first = table.devices()[0].mPartition[0];
    PartitionConfig& last = table.devices()[1].mPartition[3];
    PartitionConfig& custom = table.devices()[0].mPartition[1];
    custom.mUseItForSettings = custom.mUseItForBulk = custom.mUseItForTemp = true;
    last.mUseItForSettings = first.mUseItForSettings = true;
    last.mUseItForBulk = true;
    first.mUseItForTemp = true;
    EXPECT_THAT(appended(table, &BlockdeviceConfig::GetSettingsLinuxDevices),
                ElementsAre(&first, &last));
    EXPECT_THAT(appended(table, &BlockdeviceConfig::GetBulkLinuxDevices), ElementsAre(&last));
    EXPECT_THAT(appended(table, &BlockdeviceConfig::GetTempLinuxDevices), ElementsAre(&first));
}

TEST(BlockdevTableTest, RecordsArePlainAndKeepTheirOrder) {
    EXPECT_TRUE(std::is_trivially_copyable_v<PartitionConfig>);
    EXPECT_TRUE(std::has_virtual_destructor_v<BlockdeviceConfig>);
    const std::size_t offsets[] = {
        offsetof(PartitionConfig, mPartId),       offsetof(PartitionConfig, mFstype),
        offsetof(PartitionConfig, mUsage),        offsetof(PartitionConfig, mpMountPoint),
        offsetof(PartitionConfig, mpPartDevname), offsetof(PartitionConfig, mUseItForSettings),
        offsetof(PartitionConfig, mUseItForBulk), offsetof(PartitionConfig, mBulkProjectId),
        offsetof(PartitionConfig, mpBulkSubDir),  offsetof(PartitionConfig, mUseItForTemp),
        offsetof(PartitionConfig, mpTempSubDir),  offsetof(PartitionConfig, mpBlockdev),
    };
    for (std::size_t i = 1; i < std::size(offsets); ++i) {
        EXPECT_LT(offsets[i - 1], offsets[i]) << i;
    }
    EXPECT_LT(offsetof(BlockdevConfig, mBlockdevId), offsetof(BlockdevConfig, mBlockdevType));
    EXPECT_LT(offsetof(BlockdevConfig, mBlockdevType), offsetof(BlockdevConfig, mpBlockdevName));
    EXPECT_LT(offsetof(BlockdevConfig, mpBlockdevName), offsetof(BlockdevConfig, mPartition));
}

}  // namespace
