// SPDX-License-Identifier: MIT
//
// What a power cut can leave of a history. The model is the weakest that a POSIX file system keeps:
// - What was synced lasts: a file's contents by a sync of the file, names by one of the directory.
// - Of the changes of names that were not synced any part is there, each whole: a rename is one
//   change, and so is a removal.
// - Of contents that were not synced each block of 512 bytes is the new one, the old one, zeros,
//   garbage, or new in its first half only; and the length is the old one, none, or any that the
//   writing went through.
#ifndef KESTROVA_TESTS_CRASH_DISKSTATES_H
#define KESTROVA_TESTS_CRASH_DISKSTATES_H

#include <functional>

#include "tests/crash/memorydisk.h"

namespace crash {

/// Gives every disk that a power cut can leave after the first `events` events, some repeatedly.
void forEachDisk(const History& history, std::size_t events,
                 const std::function<void(const Disk&)>& visit);

/// The disk when nothing is left but what was synced by the end.
Disk syncedDisk(const History& history);

}  // namespace crash

#endif
