// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_VARS_ENVIRONMENTCHECK_H
#define KESTROVA_APP_COMMANDS_VARS_ENVIRONMENTCHECK_H

#include "app/cli/result.h"

namespace app {

/// Fails when there is no software partition: its device is missing, and not mounted either. The
/// library would report that for each of its attempts to mount it.
Result checkSoftwarePartition();

/// Reads the environment files where the partition table has them; mounts the software partition
/// read-only for that if it is not mounted. The library reports no variables both for an
/// environment that is empty and for one that it cannot read; this distinguishes them.
/// - done: there is a valid environment without variables
/// - eAbsent: there are no files yet
/// - eFailed: there should be an environment, but it cannot be read
Result checkEnvironment();

}  // namespace app

#endif
