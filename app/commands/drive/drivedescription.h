// SPDX-License-Identifier: MIT
//
// The recording drive in words: lines for people, and JSON members for programs.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_DRIVEDESCRIPTION_H
#define KESTROVA_APP_COMMANDS_DRIVE_DRIVEDESCRIPTION_H

#include <string>

#include "System/drivemanager/dvrdrive.h"
#include "System/sysResourceLock.h"
#include "app/cli/json.h"
#include "app/commands/drive/drivelook.h"

namespace app {

class Session;

/// "none", "error", "not-formatted", "formatting", "ready", "starting" or "started".
const char* statusName(sysDVRDrive::Status status);

sysDVRDrive::Status statusOf(sysDVRDrive& drive);

/// The drive at one moment: what there is to see of it, and what happens to it.
struct DriveState {
    Result mFound;  ///< failed when there is no recording drive
    DriveLook mLook;
    sysResourceLock::Holder mHolder;  ///< another process that holds the drive's lock
    std::string mStatus;              ///< a statusName()
    int mProgress = 100;              ///< per cent; 100 when nothing runs
};

/// Looks at the drive. Status and progress are those of the session's own drive object, when it has
/// one, those that another holder of the drive's lock has published, or else what the look says.
/// Blocks as lookAtDrive().
DriveState stateOfDrive(const Session& session);

/// "/dev/sda (model ..., 80.0 GiB)".
std::string driveName(const DriveIdentity& identity);

/// Status and space, as lines of text and as members.
std::string statusText(const DriveState& state);
Json statusData(const DriveState& state);

/// The partitions, a line or an object each.
std::string partitionsText(const DriveLook& look);
Json partitionsData(const DriveLook& look);

/// "process 812 (kestrova drive format) since 02:16:24", for a holder that is known.
std::string holderText(const sysResourceLock::Holder& holder);

/// Why the drive could not be brought up a moment ago, as far as it is known.
std::string noDriveReason();

/// Why the last operation of the drive failed, such as "mount of /dev/sda1: exit status 32"; empty
/// when it has not.
std::string failureReason(const sysDVRDrive& drive);

}  // namespace app

#endif
