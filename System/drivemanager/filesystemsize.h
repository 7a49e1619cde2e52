// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_FILESYSTEMSIZE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_FILESYSTEMSIZE_H

#include <cstdint>
#include <string>

namespace drivemanager {

/// Sizes of a file system, with the field widths of the 32-bit statfs(). All 0 if unknown.
struct FilesystemSize {
    std::int32_t mBlockSize = 0;    ///< bytes
    std::uint32_t mBlocks = 0;      ///< total number of blocks
    std::uint32_t mFreeBlocks = 0;  ///< free blocks, including those reserved for root
};

/// Measures the file system at a directory. Returns no sizes for an empty name, if statfs()
/// fails, and if a field does not fit 32 bits: the 32-bit call then fails with EOVERFLOW, and all
/// builds behave alike.
FilesystemSize measure(const std::string& directory);

/// Returns the size of a number of blocks in bytes.
unsigned long long bytes(const FilesystemSize& size, std::uint32_t blocks);

}  // namespace drivemanager

#endif
