// SPDX-License-Identifier: MIT
#include "System/drivemanager/filesystemsize.h"

#include <sys/statfs.h>

#include <type_traits>

namespace drivemanager {

namespace {

/// Returns whether the bits of a field above the lower 32 are all zero.
template <class Field>
bool fits(Field field) {
    return std::uint64_t{static_cast<std::make_unsigned_t<Field>>(field)} <= UINT32_MAX;
}

/// The check of the kernel's 32-bit statfs() (fs/statfs.c). File counts may be all ones, "unknown".
bool fitsAll(const struct statfs& status) {
    constexpr std::uint64_t unknown = UINT64_MAX;
    return fits(status.f_blocks) && fits(status.f_bfree) && fits(status.f_bavail) &&
           fits(status.f_bsize) && fits(status.f_frsize) &&
           (status.f_files == unknown || fits(status.f_files)) &&
           (status.f_ffree == unknown || fits(status.f_ffree));
}

}  // namespace

FilesystemSize measure(const std::string& directory) {
    FilesystemSize size;
    struct statfs status = {};
    if (!directory.empty() && ::statfs(directory.c_str(), &status) == 0 && fitsAll(status)) {
        size.mBlockSize = static_cast<std::int32_t>(status.f_bsize);
        size.mBlocks = static_cast<std::uint32_t>(status.f_blocks);
        size.mFreeBlocks = static_cast<std::uint32_t>(status.f_bfree);
    }
    return size;
}

unsigned long long bytes(const FilesystemSize& size, std::uint32_t blocks) {
    return static_cast<unsigned long long>(static_cast<long long>(size.mBlockSize) *
                                           static_cast<long long>(blocks));
}

}  // namespace drivemanager
