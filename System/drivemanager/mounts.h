// SPDX-License-Identifier: MIT
//
// The mount directories of a partition in the kernel's mount table.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_MOUNTS_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_MOUNTS_H

#include <string>
#include <vector>

namespace drivemanager {

/// Looks a device up in /proc/mounts by its exact name. If it is mounted, returns true and sets
/// `directory` to that of the first entry, as written by the kernel. If not, or if the table cannot
/// be read, returns false and leaves `directory` unchanged. Only the first 255 characters of a line
/// are read as one line.
bool findMounted(const std::string& device, std::string& directory);

/// Appends every mount directory of a device, in the order of /proc/mounts, with the kernel's
/// escapes decoded. An entry matches if it has the same name or if both names are nodes of the same
/// block device. Returns false, with errno set, if the table cannot be read.
bool listMounts(const std::string& device, std::vector<std::string>& directories);

}  // namespace drivemanager

#endif
