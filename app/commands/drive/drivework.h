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

/// Takes the drive's lock, brings the drive up and begins to mount it, after a look at what speaks
/// against that. Null, with the reason in `refusal`, if it cannot be started.
sysDVRDrive* startDrive(Session& session, const Invocation& invocation, Result& refusal);

/// The mounting that startDrive() has begun.
std::unique_ptr<Work> startWork(Session& session, sysDVRDrive& drive);

}  // namespace app

#endif
