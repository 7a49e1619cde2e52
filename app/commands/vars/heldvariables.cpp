// SPDX-License-Identifier: MIT
#include "app/commands/vars/heldvariables.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "System/BlockdevCfg.fmp.h"
#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/resourcelock.h"
#include "app/commands/vars/environmentcheck.h"
#include "app/session.h"
#include "app/ui/deadline.h"
#include "app/ui/humantext.h"

namespace app {

HeldVariables::~HeldVariables() {
    if (mDevice >= 0) {
        (void)::close(mDevice);
    }
}

Result HeldVariables::take(Session& session, const Invocation& invocation) {
    if (!invocation.mOptions.mFile.empty()) {
        return {};  // not the box's variables
    }
    const bool reads = invocation.mCommand->has(eReadsVariables);
    if (!reads && !invocation.mCommand->has(eWritesVariables)) {
        return {};
    }
    mLock = std::make_unique<sysResourceLock>(sysResourceLock::eResBootVariables,
                                              session.holderName(invocation).c_str());
    Result result = takeLock(session, invocation, *mLock,
                             reads ? sysResourceLock::eMoShared : sysResourceLock::eMoExclusive);
    if (result.good()) {
        result = checkSoftwarePartition();
    }
    return result.good() && reads ? takeDevice(session, invocation) : result;
}

/// Readers share the lock, but each of them mounts the software partition if it is not mounted, and
/// unmounts it afterwards, possibly before another reader has finished. Therefore they also take a
/// flock of the device. It is held only briefly, so that no reader fails because of it.
Result HeldVariables::takeDevice(Session& session, const Invocation& invocation) {
    constexpr unsigned least = 10;  // seconds
    constexpr int interval = 10;    // milliseconds
    const char* const device = BlockdeviceConfig::GetInstance()->GetSoftwarePartitionMountDevice();
    mDevice = ::open(device, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (mDevice < 0) {
        return {};  // the read fails as well, and reports the reason
    }
    const Deadline deadline(std::max(least, session.waitLimit(invocation)));
    while (::flock(mDevice, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        if (deadline.passed()) {
            return Result::failed(quoted(device) + " is locked by another process", eBusy);
        }
        if (session.interrupts().wait(interval)) {
            return Result::failed("cancelled while " + quoted(device) + " was locked", eCancelled);
        }
    }
    return {};
}

}  // namespace app
