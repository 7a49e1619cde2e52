// SPDX-License-Identifier: MIT
//
// The states that a power cut can leave of a history. The model is the weakest that a POSIX file
// system guarantees:
// - Synced changes persist: a file's contents by a sync of the file, names by a sync of the
// directory.
// - Any subset of the unsynced changes of names is present, each as a whole: a rename is one
// change,
//   and so is a removal.
// - Each unsynced block of 512 bytes is the new one, the old one, zeros, garbage, or new in its
// first
//   half only. The length is the old one, zero, or any length during the writing.
#ifndef KESTROVA_TESTS_CRASH_DISKSTATES_H
#define KESTROVA_TESTS_CRASH_DISKSTATES_H

#include <functional>

#include "tests/crash/memorydisk.h"

namespace crash {

/// Calls `visit` with every disk that a power cut can leave after the first `events` events, some
/// repeatedly.
void forEachDisk(const History& history, std::size_t events,
                 const std::function<void(const Disk&)>& visit);

/// Returns the disk with only the changes that are synced at the end.
Disk syncedDisk(const History& history);

}  // namespace crash

#endif
