// SPDX-License-Identifier: MIT
//
// Recognises file systems by what they write at the start of a device.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_SUPERBLOCK_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_SUPERBLOCK_H

#include <string>

namespace drivemanager {

/// True for ext2 and ext3: the 16-bit little-endian magic 0xef53 at byte 56 of the superblock,
/// which is at byte 1024 (kernel header fs/ext4/ext4.h). `label` becomes the text at its byte 120.
/// False, with `label` untouched, for anything else and when the superblock cannot be read whole.
bool readExtLabel(int descriptor, std::string& label);

/// True for XFS: the bytes "XFSB" at byte 0 (kernel header fs/xfs/libxfs/xfs_format.h). `label`
/// becomes the up to 12 characters at byte 108. False, with `label` untouched, for anything else
/// and when one of the two cannot be read whole.
bool readXfsLabel(int descriptor, std::string& label);

}  // namespace drivemanager

#endif
