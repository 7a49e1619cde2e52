// SPDX-License-Identifier: MIT
//
// The SIZE arguments of 'drive partition'.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_SIZES_H
#define KESTROVA_APP_COMMANDS_DRIVE_SIZES_H

#include <string>

#include "app/cli/command.h"

namespace app {

/// Sizes for sysHardDrive::partitionCustom(): MiB, -1 for the rest of the drive, and 0 for no
/// further partition.
using PartitionSizes = int[4];

/// Parses one to four SIZE arguments: a number of MiB ("1500"), a number with a unit ("1500M",
/// "6G", "1T"; MiB, GiB and TiB), a share of the drive ("50%"), or, as the last one, "rest". Fails
/// with a message that names the bad argument. Shares are of `capacity` bytes, rounded down to MiB;
/// a capacity of 0 means that it is not known yet.
Result parseSizes(const Words& arguments, unsigned long long capacity, PartitionSizes& sizes);

/// Parses the arguments without a known capacity.
Result checkSizes(const Words& arguments);

/// Returns the number of bytes that the sizes need, without the rest.
unsigned long long totalSize(const PartitionSizes& sizes);

/// Returns, for example, "6000 MiB, the rest".
std::string sizesText(const PartitionSizes& sizes);

}  // namespace app

#endif
