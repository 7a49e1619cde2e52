// SPDX-License-Identifier: MIT
#include "System/drivemanager/mounts.h"

#include <sys/stat.h>

#include "base/io/mounttable.h"

namespace drivemanager {

namespace {

/// Finds the number of a block device; returns false for any other name. File systems without a
/// device have names that are not paths.
bool blockDevice(const char* path, dev_t& number) {
    struct stat status = {};
    if (*path != '/' || ::stat(path, &status) != 0 || !S_ISBLK(status.st_mode)) {
        return false;
    }
    number = status.st_rdev;
    return true;
}

}  // namespace

bool findMounted(const std::string& device, std::string& directory) {
    constexpr std::size_t lineSize = 256;

    base::MountTable table;
    char line[lineSize];
    base::MountEntry entry;
    while (table.opened() && table.next(line, sizeof(line), entry)) {
        if (entry.mFields >= 2 && device == entry.mDevice) {
            directory = entry.mDirectory;
            return true;
        }
    }
    return false;
}

bool listMounts(const std::string& device, std::vector<std::string>& directories) {
    // Room for two names of 4096 characters, each of which may be escaped.
    constexpr std::size_t lineSize = 32768;

    base::MountTable table;
    if (!table.opened()) {
        return false;
    }
    dev_t wanted = 0;
    const bool isBlockDevice = blockDevice(device.c_str(), wanted);
    std::string line(lineSize, '\0');
    base::MountEntry entry;
    while (table.next(line.data(), line.size(), entry)) {
        const std::string name = base::unescapedMountName(entry.mDevice);
        dev_t found = 0;
        if (entry.mFields >= 2 &&
            (name == device ||
             (isBlockDevice && blockDevice(name.c_str(), found) && found == wanted))) {
            directories.push_back(base::unescapedMountName(entry.mDirectory));
        }
    }
    // A partial table must not look like an unmounted device, which would be formatted.
    return !table.failed();
}

}  // namespace drivemanager
