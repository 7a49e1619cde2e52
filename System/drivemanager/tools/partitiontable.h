// SPDX-License-Identifier: MIT
//
// The output and input of the partition-table tool.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_PARTITIONTABLE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_PARTITIONTABLE_H

#include <string>

namespace drivemanager {

/// Number of primary partitions in a PC partition table.
constexpr int kPrimaryPartitions = 4;

/// A partition in the output of "sfdisk -d".
struct PartitionEntry {
    char mName[128] = {};              ///< device node
    unsigned long long mCapacity = 0;  ///< bytes
    int mType = 0;                     ///< type byte
};

/// Parses a line such as "/dev/sda1 : start=       63, size=   16002, Id=83", whose size is in
/// sectors of 512 bytes. Returns false for other lines, for a name that does not fit, and for an
/// empty slot.
bool parsePartitionLine(const char* line, PartitionEntry& entry);

/// Returns the tool's input for up to four partitions of these sizes in MB: -1 is the rest of the
/// disk and the last partition; any other size of 0 or below ends the table without a line.
std::string partitionScript(const int* sizes);

}  // namespace drivemanager

#endif
