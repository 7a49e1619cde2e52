// SPDX-License-Identifier: MIT
#include <algorithm>

#include "System/BlockdevCfg.fmp.h"
#include "app/commands/commands.h"
#include "app/session.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

const char* fileSystemName(unsigned code) {
    switch (code) {
        case eFstypeXfs:
            return "xfs";
        case eFstypeExt2:
            return "ext2";
        case eFstypeExt3:
            return "ext3";
        case eFstypeExt4:
            return "ext4";
        default:
            return "unknown";
    }
}

const char* usageName(unsigned usage) {
    switch (usage) {
        case eUsageCustom:
            return "custom";
        case eUsageSoftware:
            return "software";
        case eUsageData:
            return "data";
        default:
            return "unknown";
    }
}

/// Returns the devices that have partitions of a known usage, each once. The table can only be
/// queried by usage.
std::vector<const BlockdevConfig*> devices() {
    KestrovaVector<PartitionConfig*> partitions;
    for (const unsigned usage : {eUsageCustom, eUsageSoftware, eUsageData}) {
        BlockdeviceConfig::GetInstance()->GetPartitionsByUsage(usage, &partitions);
    }
    std::vector<const BlockdevConfig*> found;
    for (const PartitionConfig* const partition : partitions) {
        if (std::find(found.begin(), found.end(), partition->mpBlockdev) == found.end()) {
            found.push_back(partition->mpBlockdev);
        }
    }
    return found;
}

/// Returns the purposes of a partition, one per line, because a box's console is narrow.
std::string purposes(const PartitionConfig& partition) {
    const std::string directory = partition.mpMountPoint;
    std::string text;
    if (partition.mUseItForSettings) {
        text += "    settings\n";
    }
    if (partition.mUseItForBulk) {
        text += "    bulk in " + directory + partition.mpBulkSubDir + " (project " +
                std::to_string(partition.mBulkProjectId) + ")\n";
    }
    if (partition.mUseItForTemp) {
        text += "    temporary files in " + directory + partition.mpTempSubDir + "\n";
    }
    return text;
}

std::string partitionText(const PartitionConfig& partition) {
    return "  partition " + std::to_string(partition.mPartId) + ": " + partition.mpPartDevname +
           "\n    " + usageName(partition.mUsage) + ", " + fileSystemName(partition.mFstype) +
           " on " + partition.mpMountPoint + "\n" + purposes(partition);
}

Json partitionData(const PartitionConfig& partition) {
    Json data;
    data.add("id", partition.mPartId).add("device", partition.mpPartDevname);
    data.add("usage", usageName(partition.mUsage));
    data.add("filesystem", fileSystemName(partition.mFstype));
    data.add("mountpoint", partition.mpMountPoint).add("settings", partition.mUseItForSettings);
    data.add("bulk", partition.mUseItForBulk).add("bulkProject", partition.mBulkProjectId);
    data.add("bulkDirectory", partition.mpBulkSubDir).add("temp", partition.mUseItForTemp);
    return data.add("tempDirectory", partition.mpTempSubDir);
}

Result runTable(Session& /*session*/, const Invocation& /*invocation*/) {
    Result result;
    Json deviceList = Json::array();
    for (const BlockdevConfig* const device : devices()) {
        result.mText +=
            "device " + std::to_string(device->mBlockdevId) + ": " + device->mpBlockdevName + "\n";
        Json partitions = Json::array();
        for (const PartitionConfig& partition : device->mPartition) {
            result.mText += partitionText(partition);
            partitions.append(partitionData(partition));
        }
        Json data;
        data.add("id", device->mBlockdevId).add("type", device->mBlockdevType);
        data.add("device", device->mpBlockdevName).add("partitions", partitions);
        deviceList.append(data);
    }
    result.mData.add("devices", deviceList);
    return result;
}

}  // namespace

constexpr char kTableHelp[] = R"(Show how the partitions of the box are used.

Needs no drive, and leaves it alone.

Exit status:
  1  standard output could not be written

Example:
  kestrova table
)";
const Command kTableCommand = {"table", "", kTableHelp, 0, eRunsBesideWork, runTable};

}  // namespace app
