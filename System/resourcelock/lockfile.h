// SPDX-License-Identifier: MIT
//
// The file of a lock, opened so that no other user can have prepared it.
#ifndef KESTROVA_SYSTEM_RESOURCELOCK_LOCKFILE_H
#define KESTROVA_SYSTEM_RESOURCELOCK_LOCKFILE_H

#include <cstddef>
#include <string>

#include "System/resourcelock/lockrecord.h"
#include "base/io/descriptor.h"

namespace resourcelock {

constexpr char kBaseFolder[] = "/run/lock";
constexpr char kFolder[] = "/run/lock/kestrova";

/// Number of holders that a file has room for. A file is never longer.
constexpr int kSlots = 8;
constexpr std::size_t kLargestFile = kSlots * kRecordSize;

/// A failure and its message.
struct Failure {
    int mError = 0;
    std::string mText;  ///< the path, and the reason
};

/// Opens a file of kFolder for reading and writing. Creates the file and the directory if they are
/// missing. Returns an invalid object on failure. Follows no symbolic link below kBaseFolder and
/// opens only a regular file.
base::Descriptor openForLocking(const std::string& name, Failure& failure);

/// Opens the file for reading only and creates nothing. Returns an invalid object if it is missing
/// (the error is ENOENT) and on failure.
base::Descriptor openForLooking(const std::string& name, Failure& failure);

/// Returns whether the name still refers to this open file.
bool isCurrent(const base::Descriptor& file, const std::string& name);

/// Claims the first free slot for this open file. Returns -1 on an error, with errno EAGAIN if all
/// slots are taken.
int claimSlot(const base::Descriptor& file);
/// Writes the record of a slot that this open file has claimed. Returns false, with errno set, on
/// failure.
bool writeSlot(const base::Descriptor& file, int slot, const Record& record);
/// Makes a claimed slot visible to other processes. Returns false, with errno set, on failure.
bool showSlot(const base::Descriptor& file, int slot);
/// Releases slots and flock, even if a forked child shares the open file.
void releaseAll(const base::Descriptor& file);

enum class Look {
    eNobody,
    eFound,
    eUnreadable,  ///< there is a holder, but its record cannot be read
    eFailed,      ///< errno is set
};
/// Finds a visible slot. Only queries locks and takes none.
Look findHolder(const base::Descriptor& file, Record& record);

}  // namespace resourcelock

#endif
