// SPDX-License-Identifier: MIT
#include "System/drivemanager/failuretable.h"

#include "base/lock.h"

namespace drivemanager {

namespace {

using Failure = sysPartition::Failure;

/// One drive's failure, in a list through all drives.
struct Entry {
    const sysDVRDrive* mDrive;
    Entry* mNext;
    Failure mFailure;
};

// Neither is destroyed at exit: a detached worker may still store a failure then.
base::Mutex lock;
Entry* firstEntry KESTROVA_GUARDED_BY(lock) = nullptr;

/// The pointer that leads to the drive's entry. Every drive is listed from its constructor to its
/// destructor.
Entry*& linkTo(const sysDVRDrive* drive) KESTROVA_REQUIRES(lock) {
    Entry** link = &firstEntry;
    while ((*link)->mDrive != drive) {
        link = &(*link)->mNext;
    }
    return *link;
}

}  // namespace

void addToFailureTable(const sysDVRDrive* drive) {
    auto* const entry = new Entry{drive, nullptr, Failure()};
    const base::Lock guard(lock);
    entry->mNext = firstEntry;
    firstEntry = entry;
}

void removeFromFailureTable(const sysDVRDrive* drive) {
    const base::Lock guard(lock);
    Entry*& link = linkTo(drive);
    Entry* const entry = link;
    link = entry->mNext;
    delete entry;
}

void clearFailure(const sysDVRDrive* drive) {
    const base::Lock guard(lock);
    linkTo(drive)->mFailure = Failure();
}

void storeFailure(const sysDVRDrive* drive, const Failure& failure) {
    const base::Lock guard(lock);
    Failure& stored = linkTo(drive)->mFailure;
    if (stored.mStep == sysPartition::eFailNone) {
        stored = failure;
    }
}

Failure storedFailure(const sysDVRDrive* drive) {
    const base::Lock guard(lock);
    return linkTo(drive)->mFailure;
}

}  // namespace drivemanager
