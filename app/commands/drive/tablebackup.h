// SPDX-License-Identifier: MIT
//
// Saves a partition table before a new one takes its place.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_TABLEBACKUP_H
#define KESTROVA_APP_COMMANDS_DRIVE_TABLEBACKUP_H

#include <string>

#include "app/cli/result.h"

namespace app {

/// A partition table that was saved.
struct TableBackup {
    std::string mFile;     ///< what "sfdisk -d" printed
    std::string mRestore;  ///< the command line that writes it back
    bool mLasting = true;  ///< false when the file does not outlive a restart of the box
};

/// Saves the drive's partition table as text of "sfdisk -d" and puts it on the disk: in `file`, or
/// when that is empty in a new file below /var/lib/kestrova or, where that cannot be written,
/// /run/kestrova. An existing file is never replaced.
Result saveTable(const std::string& file, TableBackup& backup);

}  // namespace app

#endif
