// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_DRIVE_DRIVEFAILURE_H
#define KESTROVA_APP_COMMANDS_DRIVE_DRIVEFAILURE_H

#include <string>

#include "System/drivemanager/partition.h"

namespace app {

/// Returns why an operation on the drive failed, in one line: the step, the node or directory, and
/// the tool's exit status or the text of errno.
std::string driveFailureText(const sysPartition::Failure& failure);

}  // namespace app

#endif
