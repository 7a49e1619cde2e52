// SPDX-License-Identifier: MIT
//
// What a new partition table or a format would destroy, and why it must not.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_LOSSES_H
#define KESTROVA_APP_COMMANDS_DRIVE_LOSSES_H

#include <string>
#include <vector>

#include "app/cli/json.h"
#include "app/commands/drive/drivelook.h"

namespace app {

/// A partition, or the whole drive, with what it holds.
struct Loss {
    std::string mPath;             ///< device node
    unsigned long long mCapacity;  ///< bytes
    std::string mContent;          ///< "xfs", "type ee" for a partition of another type, or ""
    std::string mLabel;            ///< empty for none
    bool mOwn = false;             ///< a file system of the recording drive

    bool isForeign() const { return !mContent.empty() && !mOwn; }
};

/// What the drive holds: its partitions or, without any, the whole drive. The library recognises
/// the content; where it knows none, the box's "/sbin/blkid" is asked, if there is one.
std::vector<Loss> findLosses(const DriveLook& look);

/// Fails when the drive must not be partitioned or formatted: its table could not be read, one of
/// its partitions is mounted or in use, or it holds what is not the recording drive's own. `force`
/// allows the last one.
Result checkDestruction(const DriveLook& look, const std::vector<Loss>& losses, bool force);

/// One line each: node, size, content and label.
std::string lossesText(const std::vector<Loss>& losses);
Json lossesData(const std::vector<Loss>& losses);

}  // namespace app

#endif
