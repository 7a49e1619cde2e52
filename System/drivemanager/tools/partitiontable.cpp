// SPDX-License-Identifier: MIT
#include "System/drivemanager/tools/partitiontable.h"

#include "base/text/scanner.h"

namespace drivemanager {

bool parsePartitionLine(const char* line, PartitionEntry& entry) {
    constexpr unsigned long long sectorSize = 512;

    base::Scanner fields(line);
    std::uint32_t start = 0;
    std::uint32_t sectors = 0;
    std::uint32_t type = 0;
    if (!fields.word(entry.mName, sizeof(entry.mName)) || !fields.literal("\t: start= ") ||
        !fields.unsignedNumber(start) || !fields.literal(", size=") ||
        !fields.unsignedNumber(sectors) || !fields.literal(", Id=") ||
        !fields.unsignedNumber(type, 16, 2) || sectors == 0) {
        return false;
    }
    entry.mCapacity = sectors * sectorSize;
    entry.mType = static_cast<int>(type);
    return true;
}

std::string partitionScript(const int* sizes) {
    constexpr int restOfDisk = -1;

    std::string script;
    int i = 0;
    for (; i < kPrimaryPartitions && sizes[i] > 0; ++i) {
        script += "," + std::to_string(sizes[i]) + "\n";
    }
    if (i < kPrimaryPartitions && sizes[i] == restOfDisk) {
        script += ";\n";
    }
    return script;
}

}  // namespace drivemanager
