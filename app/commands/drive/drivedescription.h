// SPDX-License-Identifier: MIT
//
// Describes the recording drive: lines for people, and JSON members for programs.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_DRIVEDESCRIPTION_H
#define KESTROVA_APP_COMMANDS_DRIVE_DRIVEDESCRIPTION_H

#include <string>

#include "System/drivemanager/dvrdrive.h"
#include "System/sysResourceLock.h"
#include "app/cli/json.h"
#include "app/commands/drive/drivelook.h"

namespace app {

class Session;

/// Returns "none", "error", "not-formatted", "formatting", "ready", "starting" or "started".
const char* statusName(sysDVRDrive::Status status);

sysDVRDrive::Status statusOf(sysDVRDrive& drive);

/// The state of the drive at one moment.
struct DriveState {
    Result mFound;  ///< failed if there is no recording drive
    DriveLook mLook;
    sysResourceLock::Holder mHolder;  ///< another process that holds the drive's lock
    std::string mStatus;              ///< a statusName()
    int mProgress = 100;              ///< per cent; 100 if no work runs
};

/// Queries the drive. Status and progress are those of the session's own drive object if it has
/// one, otherwise those that another holder of the drive's lock has published, otherwise those from
/// lookAtDrive(). Blocks as long as lookAtDrive().
DriveState stateOfDrive(const Session& session);

/// Returns "/dev/sda (model ..., 80.0 GiB)".
std::string driveName(const DriveIdentity& identity);

/// Return status and space, as lines of text and as members.
std::string statusText(const DriveState& state);
Json statusData(const DriveState& state);

/// Return the partitions, as one line or one object each.
std::string partitionsText(const DriveLook& look);
Json partitionsData(const DriveLook& look);

/// Returns "process 812 (kestrova drive format) since 02:16:24", for a known holder.
std::string holderText(const sysResourceLock::Holder& holder);

/// Returns why the drive has just failed to start, as far as that is known.
std::string noDriveReason();

/// Returns why the last operation of the drive failed, such as "mount of /dev/sda1: exit status
/// 32"; empty if it has not failed.
std::string failureReason(const sysDVRDrive& drive);

}  // namespace app

#endif
