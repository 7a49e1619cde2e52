// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_VARS_ENVIRONMENTCHECK_H
#define KESTROVA_APP_COMMANDS_VARS_ENVIRONMENTCHECK_H

#include "app/cli/result.h"

namespace app {

/// Fails if there is no software partition: its device is missing, and not mounted either. The
/// library would report that for each of its attempts to mount it.
Result checkSoftwarePartition();

/// Reads the environment files at the paths in the partition table; if the software partition is
/// not mounted, mounts it read-only for that. The library returns no variables both for an empty
/// environment and for an unreadable one; this function distinguishes them.
/// - done: there is a valid environment without variables
/// - eAbsent: there are no files yet
/// - eFailed: there should be an environment, but it cannot be read
Result checkEnvironment();

}  // namespace app

#endif
