// SPDX-License-Identifier: MIT
//
// Why the last operation of each recording drive failed. Stored outside sysDVRDrive, whose layout
// is part of the binary interface. Any thread may call these functions; they block only for a short
// time.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_FAILURETABLE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_FAILURETABLE_H

#include "System/drivemanager/partition.h"

class sysDVRDrive;

namespace drivemanager {

/// Adds a drive, without a failure. Throws only std::bad_alloc. The other functions do not
/// allocate, so that they can record a lack of memory.
void addToFailureTable(const sysDVRDrive* drive);
void removeFromFailureTable(const sysDVRDrive* drive);

/// Clears the failure of the drive's previous operation.
void clearFailure(const sysDVRDrive* drive);
/// Stores a failure unless the operation already has one: the first failure is the cause.
void storeFailure(const sysDVRDrive* drive, const sysPartition::Failure& failure);
/// Returns the stored failure; eFailNone if there is none.
sysPartition::Failure storedFailure(const sysDVRDrive* drive);

}  // namespace drivemanager

#endif
