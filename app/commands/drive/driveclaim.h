// SPDX-License-Identifier: MIT
//
// The recording drive's lock, held by a session, and the progress published with it.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_DRIVECLAIM_H
#define KESTROVA_APP_COMMANDS_DRIVE_DRIVECLAIM_H

#include <memory>

#include "System/sysResourceLock.h"
#include "app/cli/result.h"
#include "app/work.h"

namespace app {

class Session;
struct Invocation;

/// Holds the drive's lock from the first command that needs it to the end of the session. One
/// thread at a time.
class DriveClaim {
public:
    /// Takes the lock, unless it is already held. See takeLock() for the result.
    Result take(Session& session, const Invocation& invocation);
    bool held() const { return mLock != nullptr; }
    /// Publishes the state of the drive for other processes. Does nothing without the lock.
    void publish(const Progress& progress);

private:
    std::unique_ptr<sysResourceLock> mLock;
};

/// Wraps work so that its progress is published while it runs, even if no command follows it.
std::unique_ptr<Work> publishedWork(std::unique_ptr<Work> work, DriveClaim& claim);

}  // namespace app

#endif
