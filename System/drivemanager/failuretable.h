// SPDX-License-Identifier: MIT
//
// Why the last operation of each recording drive failed. sysDVRDrive has no room for it: its layout
// is part of the binary interface. Any thread may call these functions, and none of them blocks for
// long.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_FAILURETABLE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_FAILURETABLE_H

#include "System/drivemanager/partition.h"

class sysDVRDrive;

namespace drivemanager {

/// Adds a drive, without a failure. Throws only allocation failure; the other functions do not
/// allocate, so that a lack of memory can be recorded too.
void addToFailureTable(const sysDVRDrive* drive);
void removeFromFailureTable(const sysDVRDrive* drive);

/// Forgets the failure of the drive's previous operation.
void clearFailure(const sysDVRDrive* drive);
/// Stores a failure unless the operation has one already: the first one is the cause.
void storeFailure(const sysDVRDrive* drive, const sysPartition::Failure& failure);
/// The stored failure; eFailNone if there is none.
sysPartition::Failure storedFailure(const sysDVRDrive* drive);

}  // namespace drivemanager

#endif
