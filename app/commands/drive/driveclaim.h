// SPDX-License-Identifier: MIT
//
// The recording drive's lock as a session holds it, and what it tells onlookers.
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
    /// Takes the lock, unless it is held already. See takeLock() for the result.
    Result take(Session& session, const Invocation& invocation);
    bool held() const { return mLock != nullptr; }
    /// Shows other processes what happens to the drive. Does nothing without the lock.
    void publish(const Progress& progress);

private:
    std::unique_ptr<sysResourceLock> mLock;
};

/// Work whose progress is published while it runs, whether anybody in this process follows it or
/// not.
std::unique_ptr<Work> publishedWork(std::unique_ptr<Work> work, DriveClaim& claim);

}  // namespace app

#endif
