// SPDX-License-Identifier: MIT
//
// Where a partition is mounted, according to the kernel's mount table.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_MOUNTS_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_MOUNTS_H

#include <string>
#include <vector>

namespace drivemanager {

/// Looks a device up in /proc/mounts, by its exact name. Returns true if it is mounted; `directory`
/// is then that of the first entry, as the kernel writes it. Returns false, with `directory`
/// untouched, if it is not, or if the table cannot be read. At most 255 characters of a line are
/// read as one line.
bool findMounted(const std::string& device, std::string& directory);

/// Appends every directory on which a device is mounted, in the order of /proc/mounts, without the
/// kernel's escapes. An entry counts if it has the same name or if both names are nodes of the same
/// block device. Returns false, with errno, if the table cannot be read.
bool listMounts(const std::string& device, std::vector<std::string>& directories);

}  // namespace drivemanager

#endif
