// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_DRIVE_DRIVEFAILURE_H
#define KESTROVA_APP_COMMANDS_DRIVE_DRIVEFAILURE_H

#include <string>

#include "System/drivemanager/partition.h"

namespace app {

/// Why an operation on the drive failed, in one line: which step, on which node or directory, with
/// the tool's end or the text of errno.
std::string driveFailureText(const sysPartition::Failure& failure);

}  // namespace app

#endif
