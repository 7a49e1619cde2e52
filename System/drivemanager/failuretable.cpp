// SPDX-License-Identifier: MIT
#include "System/drivemanager/failuretable.h"

#include "System/drivemanager/sidetable.h"

namespace drivemanager {

namespace {

using Failure = sysPartition::Failure;

SideTable<sysDVRDrive, Failure> failures;

}  // namespace

void addToFailureTable(const sysDVRDrive* drive) {
    clearFailure(drive);
}

void removeFromFailureTable(const sysDVRDrive* drive) {
    failures.remove(drive);
}

void clearFailure(const sysDVRDrive* drive) {
    failures.change(drive, [](Failure& stored) { stored = Failure(); });
}

void storeFailure(const sysDVRDrive* drive, const Failure& failure) {
    failures.change(drive, [&failure](Failure& stored) {
        if (stored.mStep == sysPartition::eFailNone) {
            stored = failure;
        }
    });
}

Failure storedFailure(const sysDVRDrive* drive) {
    return failures.value(drive);
}

}  // namespace drivemanager
