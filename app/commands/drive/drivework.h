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

/// Takes the drive's lock, checks the drive, brings it up and begins to mount it. `drive` is set on
/// success only.
Result startDrive(Session& session, const Invocation& invocation, sysDVRDrive*& drive);

/// The mounting that startDrive() has begun.
std::unique_ptr<Work> startWork(Session& session, sysDVRDrive& drive);

}  // namespace app

#endif
