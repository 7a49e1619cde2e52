// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_FILESYSTEMSIZE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_FILESYSTEMSIZE_H

#include <cstdint>
#include <string>

namespace drivemanager {

/// The figures of a file system in the widths of the 32-bit statfs. All 0 when there are none.
struct FilesystemSize {
    std::int32_t mBlockSize = 0;    ///< bytes
    std::uint32_t mBlocks = 0;      ///< blocks in all
    std::uint32_t mFreeBlocks = 0;  ///< free blocks, those reserved for root included
};

/// Measures the file system at a directory. No figures for an empty name, when statfs fails, and
/// when a field does not fit: the 32-bit call fails then with EOVERFLOW, and so does every build.
FilesystemSize measure(const std::string& directory);

/// A number of blocks in bytes.
unsigned long long bytes(const FilesystemSize& size, std::uint32_t blocks);

}  // namespace drivemanager

#endif
