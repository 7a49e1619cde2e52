// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SYSTEM_BLOCKDEVTABLE_H
#define KESTROVA_TESTS_SYSTEM_BLOCKDEVTABLE_H

#include <string>
#include <utility>
#include <vector>

#include "System/BlockdevCfg.fmp.h"
#include "tests/support/outputlevel.h"

namespace tests {

using Devices = std::vector<BlockdevConfig>;

/// A table whose devices a test can replace.
class OwnTable : public BlockdeviceConfig {
public:
    OwnTable() = default;
    explicit OwnTable(Devices devices) { mBlockdevice = std::move(devices); }
    Devices& devices() { return mBlockdevice; }
};

/// The instance for a scope, created without log output.
class TableInstance {
public:
    TableInstance() {
        const OutputLevel quiet(0);
        mpTable = BlockdeviceConfig::CreateInstance();
    }
    ~TableInstance() {
        const OutputLevel quiet(0);
        BlockdeviceConfig::DestroyInstance();
    }
    TableInstance(const TableInstance&) = delete;
    TableInstance& operator=(const TableInstance&) = delete;
    BlockdeviceConfig* operator->() const { return mpTable; }
    BlockdeviceConfig* get() const { return mpTable; }

private:
    BlockdeviceConfig* mpTable = nullptr;
};

inline PartitionConfig partitionOf(unsigned usage, unsigned filesystem, const char* device,
                                   const char* directory = "") {
    PartitionConfig partition;
    partition.mUsage = usage;
    partition.mFstype = filesystem;
    partition.mpPartDevname = device;
    partition.mpMountPoint = directory;
    return partition;
}

inline BlockdevConfig deviceOf(std::vector<PartitionConfig> partitions) {
    BlockdevConfig device;
    device.mPartition = std::move(partitions);
    return device;
}

}  // namespace tests

#endif
