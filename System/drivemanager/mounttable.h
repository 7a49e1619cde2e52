// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_MOUNTTABLE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_MOUNTTABLE_H

#include <string>

namespace drivemanager {

/// Looks a device up in /proc/mounts, by its exact name. True when it is mounted; `directory` is
/// then that of the first entry, as the kernel writes it. False, with `directory` untouched, when
/// it is not, or when the table cannot be read.
bool findMounted(const std::string& device, std::string& directory);

}  // namespace drivemanager

#endif
