// SPDX-License-Identifier: MIT
//
// The file behind a lock: opened so that no other user can have prepared it.
#ifndef KESTROVA_SYSTEM_RESOURCELOCK_LOCKFILE_H
#define KESTROVA_SYSTEM_RESOURCELOCK_LOCKFILE_H

#include <cstddef>
#include <string>

#include "System/resourcelock/lockrecord.h"
#include "base/io/descriptor.h"

namespace resourcelock {

constexpr char kBaseFolder[] = "/run/lock";
constexpr char kFolder[] = "/run/lock/kestrova";

/// Holders that a file has room for. A file is never longer.
constexpr int kSlots = 8;
constexpr std::size_t kLargestFile = kSlots * kRecordSize;

/// What failed.
struct Failure {
    int mError = 0;
    std::string mText;  ///< the path, and why
};

/// Opens a file of kFolder for reading and writing, and makes it and the folder where they are
/// missing. Not valid on failure. Follows no symbolic link below kBaseFolder and opens nothing but
/// a regular file.
base::Descriptor openForLocking(const std::string& name, Failure& failure);

/// Opens it for reading only; makes nothing. Not valid when it is missing (the error is ENOENT) or
/// on failure.
base::Descriptor openForLooking(const std::string& name, Failure& failure);

/// True when this open file is still the one that others open by the name.
bool isCurrent(const base::Descriptor& file, const std::string& name);

/// The first slot without an owner becomes this open file's; -1 when there is none or on an error,
/// with errno EAGAIN when all are taken.
int claimSlot(const base::Descriptor& file);
/// Writes the record of an own slot; false with errno.
bool writeSlot(const base::Descriptor& file, int slot, const Record& record);
/// Shows an own slot to onlookers; false with errno.
bool showSlot(const base::Descriptor& file, int slot);
/// Gives slots and flock back, also where a forked child shares the open file.
void releaseAll(const base::Descriptor& file);

enum class Look {
    eNobody,
    eFound,
    eUnreadable,  ///< somebody is there, with a record that cannot be read
    eFailed,      ///< errno tells why
};
/// Looks for a shown slot. Takes no lock: only asks which there are.
Look findHolder(const base::Descriptor& file, Record& record);

}  // namespace resourcelock

#endif
