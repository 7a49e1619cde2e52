// SPDX-License-Identifier: MIT
#include "System/drivemanager/superblock.h"

#include <cstring>

#include "base/io/descriptor.h"

namespace drivemanager {

bool readExtLabel(int descriptor, std::string& label) {
    constexpr off_t superblockAt = 1024;
    constexpr std::size_t superblockSize = 1024;
    constexpr std::size_t magicAt = 56;
    constexpr std::size_t volumeNameAt = 120;

    char superblock[superblockSize + 1];
    if (!base::readAt(descriptor, superblockAt, superblock, superblockSize)) {
        return false;
    }
    if (superblock[magicAt] != '\x53' || superblock[magicAt + 1] != '\xef') {
        return false;
    }
    // A name that fills its 16 bytes has no NUL, so the label continues with the next field.
    superblock[superblockSize] = '\0';
    label = superblock + volumeNameAt;
    return true;
}

bool readXfsLabel(int descriptor, std::string& label) {
    constexpr char magic[] = {'X', 'F', 'S', 'B'};
    constexpr off_t nameAt = 108;
    constexpr std::size_t nameSize = 12;

    char found[sizeof(magic)];
    if (!base::readAt(descriptor, 0, found, sizeof(found)) ||
        std::memcmp(found, magic, sizeof(magic)) != 0) {
        return false;
    }
    char name[nameSize + 1];
    if (!base::readAt(descriptor, nameAt, name, nameSize)) {
        return false;
    }
    name[nameSize] = '\0';
    label = name;
    return true;
}

}  // namespace drivemanager
