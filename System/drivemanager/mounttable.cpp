// SPDX-License-Identifier: MIT
#include "System/drivemanager/mounttable.h"

#include "base/linereader.h"
#include "base/scanner.h"

namespace drivemanager {

bool findMounted(const std::string& device, std::string& directory) {
    // The system's mount points are short: a line that is longer than this comes in pieces, and its
    // device and directory are in the first.
    constexpr std::size_t lineSize = 256;

    const base::Stream mounts = base::openForReading("/proc/mounts");
    if (mounts == nullptr) {
        return false;
    }
    char line[lineSize];
    while (base::readLine(mounts.get(), line, sizeof(line))) {
        char name[lineSize];
        char mountPoint[lineSize];
        base::Scanner fields(line);
        if (fields.word(name, sizeof(name)) && fields.word(mountPoint, sizeof(mountPoint)) &&
            device == name) {
            directory = mountPoint;
            return true;
        }
    }
    return false;
}

}  // namespace drivemanager
