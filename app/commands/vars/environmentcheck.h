// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_VARS_ENVIRONMENTCHECK_H
#define KESTROVA_APP_COMMANDS_VARS_ENVIRONMENTCHECK_H

#include <string>

namespace app {

/// Why the library gives no variables.
struct EnvironmentState {
    enum Kind {
        eEmpty,       ///< there is a valid environment without variables
        eMissing,     ///< there are no files yet
        eUnreadable,  ///< there should be one, but it cannot be had
    };
    Kind mKind;
    std::string mReason;  ///< one line for people
};

/// Why there is no software partition: its device is missing, and not mounted either. "" when there
/// is one. The library would say so for each of its attempts to mount it.
std::string missingPartition();

/// Looks for the environment files where the partition table has them, mounting the software
/// partition read-only for that if it is not mounted. The library answers alike for an environment
/// that is empty and for one that it cannot read; this tells them apart.
EnvironmentState checkEnvironment();

}  // namespace app

#endif
