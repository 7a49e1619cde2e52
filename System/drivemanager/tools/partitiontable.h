// SPDX-License-Identifier: MIT
//
// The texts that are exchanged with the partition-table tool.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_PARTITIONTABLE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_PARTITIONTABLE_H

#include <string>

namespace drivemanager {

/// A PC partition table has room for four primary partitions.
constexpr int kPrimaryPartitions = 4;

/// A partition as "sfdisk -d" lists it.
struct PartitionEntry {
    char mName[128] = {};              ///< device node
    unsigned long long mCapacity = 0;  ///< bytes
    int mType = 0;                     ///< type byte
};

/// Reads a line such as "/dev/sda1 : start=       63, size=   16002, Id=83", its size in sectors of
/// 512 bytes. False for other lines, for a name that does not fit, and for an empty slot.
bool parsePartitionLine(const char* line, PartitionEntry& entry);

/// The tool's input for up to four partitions of these sizes in MB: -1 is the rest of the disk and
/// ends it, any other size of 0 or below ends it without a line of its own.
std::string partitionScript(const int* sizes);

}  // namespace drivemanager

#endif
