// SPDX-License-Identifier: MIT
//
// The SIZE arguments of 'drive partition'.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_SIZES_H
#define KESTROVA_APP_COMMANDS_DRIVE_SIZES_H

#include <string>

#include "app/cli/command.h"

namespace app {

/// Sizes as sysHardDrive::partitionCustom() takes them: MiB, -1 for the rest of the drive, and 0
/// for no further partition.
using PartitionSizes = int[4];

/// Converts one to four SIZE arguments: a number of MiB ("1500"), a number with a unit ("1500M",
/// "6G", "1T"; MiB, GiB and TiB), a share of the drive ("50%"), or, as the last one, "rest". Fails
/// with a message that names the bad argument. Shares are of `capacity` bytes, rounded down to MiB;
/// a capacity of 0 stands for a drive that has not been looked at yet.
Result parseSizes(const Words& arguments, unsigned long long capacity, PartitionSizes& sizes);

/// The same, for a drive that has not been looked at.
Result checkSizes(const Words& arguments);

/// How many bytes the sizes need, without the rest.
unsigned long long totalSize(const PartitionSizes& sizes);

/// "6000 MiB, the rest"
std::string sizesText(const PartitionSizes& sizes);

}  // namespace app

#endif
