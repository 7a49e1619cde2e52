// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_DRIVE_DRIVEWORK_H
#define KESTROVA_APP_COMMANDS_DRIVE_DRIVEWORK_H

#include <memory>

#include "System/drivemanager/dvrdrive.h"
#include "app/cli/result.h"
#include "app/work.h"

namespace app {

class Session;
struct Invocation;

/// Takes the drive's lock, checks the drive, initialises it and starts to mount it. Sets `drive` on
/// success only.
Result startDrive(Session& session, const Invocation& invocation, sysDVRDrive*& drive);

/// Returns the mount that startDrive() has started.
std::unique_ptr<Work> startWork(Session& session, sysDVRDrive& drive);

}  // namespace app

#endif
