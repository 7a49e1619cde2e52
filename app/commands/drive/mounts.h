// SPDX-License-Identifier: MIT
//
// What is mounted where, from the kernel's table.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_MOUNTS_H
#define KESTROVA_APP_COMMANDS_DRIVE_MOUNTS_H

#include <string>
#include <vector>

namespace app {

/// One line of /proc/self/mountinfo.
struct Mount {
    std::string mDevice;     ///< "8:1"
    std::string mSource;     ///< as it was given to mount, such as "/dev/sda1"
    std::string mDirectory;  ///< mount point
};

/// Parses a line of /proc/self/mountinfo (man 5 proc_pid_mountinfo); false when it is not one.
bool parseMount(const std::string& line, Mount& mount);

/// All mounts of this process's namespace. Empty when the table cannot be read.
std::vector<Mount> readMounts();

/// The directories where a device is mounted, in the order in which they were mounted. A mount
/// counts when its source has this name or its device number is that of the node, so that an alias
/// of the node hides nothing.
std::vector<std::string> mountPointsOf(const std::vector<Mount>& mounts, const std::string& node);

/// Size of a mounted file system. All 0 when it cannot be measured.
struct Space {
    unsigned long long mTotal = 0;  ///< bytes
    unsigned long long mFree = 0;   ///< bytes, those reserved for root included
    unsigned mBlockSize = 0;        ///< bytes
};

Space measureSpace(const std::string& directory);

}  // namespace app

#endif
