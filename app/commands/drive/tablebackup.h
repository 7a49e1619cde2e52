// SPDX-License-Identifier: MIT
//
// Saves a partition table before a new one replaces it.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_TABLEBACKUP_H
#define KESTROVA_APP_COMMANDS_DRIVE_TABLEBACKUP_H

#include <string>

#include "app/cli/result.h"

namespace app {

/// A saved partition table.
struct TableBackup {
    std::string mFile;     ///< output of "sfdisk -d"
    std::string mRestore;  ///< command line that restores it
    bool mLasting = true;  ///< false if the file does not survive a restart of the box
};

/// Saves the drive's partition table as printed by "sfdisk -d" and syncs it to disk: in `file`, or
/// if that is empty in a new file below /var/lib/kestrova or, if that is not writable,
/// /run/kestrova. Never replaces an existing file.
Result saveTable(const std::string& file, TableBackup& backup);

}  // namespace app

#endif
