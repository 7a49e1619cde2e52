// SPDX-License-Identifier: MIT
//
// What there is to tell about the recording drive.
#ifndef KESTROVA_APP_DRIVEDESCRIPTION_H
#define KESTROVA_APP_DRIVEDESCRIPTION_H

#include <string>

#include "System/drivemanager/dvrdrive.h"
#include "app/json.h"

namespace app {

/// The node that the library takes as the recording drive.
constexpr char kDriveDevice[] = "/dev/sda";

/// What identifies a drive to the person who is to decide about its data.
struct DriveIdentity {
    std::string mModel;
    std::string mSerial;
    unsigned long long mCapacity = 0;  ///< bytes
};

/// Asks the drive. Its model and serial number come without their padding.
DriveIdentity driveIdentity(const sysDVRDrive& drive);

/// "/dev/sda (model ..., 80.0 GB)".
std::string driveName(const sysDVRDrive& drive);

/// "none", "error", "not-formatted", "formatting", "ready", "starting" or "started".
const char* statusName(sysDVRDrive::Status status);

sysDVRDrive::Status statusOf(sysDVRDrive& drive);

/// Status and space, as a line of text and as members.
std::string statusText(sysDVRDrive& drive);
JsonObject statusData(sysDVRDrive& drive);

/// The partitions, a line or an object each. No operation may run.
std::string partitionsText(sysDVRDrive& drive);
JsonArray partitionsData(sysDVRDrive& drive);

/// Why the system found no recording drive, as far as it can be told from outside.
std::string noDriveReason();

}  // namespace app

#endif
