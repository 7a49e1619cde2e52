// SPDX-License-Identifier: MIT
//
// The data that a new partition table or a format would destroy, and the reasons to refuse it.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_LOSSES_H
#define KESTROVA_APP_COMMANDS_DRIVE_LOSSES_H

#include <string>
#include <vector>

#include "app/cli/json.h"
#include "app/commands/drive/drivelook.h"

namespace app {

/// A partition, or the whole drive, with its contents.
struct Loss {
    std::string mPath;             ///< device node
    unsigned long long mCapacity;  ///< bytes
    std::string mContent;          ///< "xfs", "type ee" for a partition of another type, or ""
    std::string mLabel;            ///< empty for none
    bool mOwn = false;             ///< a file system of the recording drive

    bool isForeign() const { return !mContent.empty() && !mOwn; }
};

/// Returns the contents of the drive: its partitions or, if there are none, the whole drive. If the
/// library does not recognise the contents, runs the box's "/sbin/blkid", if it exists.
std::vector<Loss> findLosses(const DriveLook& look);

/// Fails if the drive must not be partitioned or formatted: its table could not be read, one of its
/// partitions is mounted or in use, or it holds data that does not belong to the recording drive.
/// `force` permits the last case.
Result checkDestruction(const DriveLook& look, const std::vector<Loss>& losses, bool force);

/// Return one line or one object each, with node, size, content and label.
std::string lossesText(const std::vector<Loss>& losses);
Json lossesData(const std::vector<Loss>& losses);

}  // namespace app

#endif
