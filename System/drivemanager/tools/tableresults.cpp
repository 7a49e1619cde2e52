// SPDX-License-Identifier: MIT
#include "System/drivemanager/tools/tableresults.h"

#include "base/lock.h"

namespace drivemanager {

namespace {

struct Entry {
    const sysHardDrive* mpDrive;
    TableResults mResults;
    Entry* mpNext;
};

// A list, because deleting a drive must not allocate, and a box has one drive or two. It is
// constant-initialised and never destroyed: drives may be deleted until the process ends.
base::Mutex entriesLock;  // held for a few instructions; no lock is taken while it is held
Entry* firstEntry KESTROVA_GUARDED_BY(entriesLock) = nullptr;

/// The pointer that leads to a drive's entry; it holds null if there is none.
Entry** linkTo(const sysHardDrive* drive) KESTROVA_REQUIRES(entriesLock) {
    Entry** link = &firstEntry;
    while (*link != nullptr && (*link)->mpDrive != drive) {
        link = &(*link)->mpNext;
    }
    return link;
}

}  // namespace

TableResults tableResults(const sysHardDrive* drive) {
    const base::Lock lock(entriesLock);
    const Entry* const entry = *linkTo(drive);
    return entry != nullptr ? entry->mResults : TableResults();
}

void storeTableResults(const sysHardDrive* drive, const TableResults& results) {
    const base::Lock lock(entriesLock);
    Entry** const link = linkTo(drive);
    if (*link == nullptr) {
        *link = new Entry{drive, results, nullptr};
    } else {
        (*link)->mResults = results;
    }
}

void dropTableResults(const sysHardDrive* drive) {
    const base::Lock lock(entriesLock);
    Entry** const link = linkTo(drive);
    if (*link != nullptr) {
        const Entry* const entry = *link;
        *link = entry->mpNext;
        delete entry;
    }
}

}  // namespace drivemanager
