// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_VARS_HELDVARIABLES_H
#define KESTROVA_APP_COMMANDS_VARS_HELDVARIABLES_H

#include <memory>

#include "System/sysResourceLock.h"
#include "app/cli/result.h"

namespace app {

class Session;
struct Invocation;

/// The lock of the boot variables, held while a command uses them.
class HeldVariables {
public:
    HeldVariables() = default;
    ~HeldVariables();
    HeldVariables(const HeldVariables&) = delete;
    HeldVariables& operator=(const HeldVariables&) = delete;

    /// Takes the lock that the command's row in the table requires, if any; none for a command that
    /// works on a file. See takeLock() for the result; fails also if there is no software
    /// partition.
    Result take(Session& session, const Invocation& invocation);

private:
    Result takeDevice(Session& session, const Invocation& invocation);

    std::unique_ptr<sysResourceLock> mLock;
    int mDevice = -1;
};

}  // namespace app

#endif
