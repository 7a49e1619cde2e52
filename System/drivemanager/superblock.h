// SPDX-License-Identifier: MIT
//
// Recognises file systems by the bytes at the start of a device.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_SUPERBLOCK_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_SUPERBLOCK_H

#include <string>

namespace drivemanager {

/// Recognises ext2 and ext3: the 16-bit little-endian magic 0xef53 at byte 56 of the superblock,
/// which is at byte 1024 (kernel header fs/ext4/ext4.h). Sets `label` to the text at byte 120 of
/// the superblock. Returns false, with `label` unchanged, for anything else and if the superblock
/// cannot be read completely.
bool readExtLabel(int descriptor, std::string& label);

/// Recognises XFS: the bytes "XFSB" at byte 0 (kernel header fs/xfs/libxfs/xfs_format.h). Sets
/// `label` to the up to 12 characters at byte 108. Returns false, with `label` unchanged, for
/// anything else and if either cannot be read completely.
bool readXfsLabel(int descriptor, std::string& label);

}  // namespace drivemanager

#endif
