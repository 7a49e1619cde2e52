// SPDX-License-Identifier: MIT
//
// How the partition-table tool ended for each drive. Kept outside the sysHardDrive objects, whose
// layout applications are compiled with.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TABLERESULTS_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TABLERESULTS_H

#include "base/process/tool.h"

class sysHardDrive;

namespace drivemanager {

/// The last runs of the tool for one drive.
struct TableResults {
    base::ToolResult mRead;     ///< of the run that listed the partitions
    base::ToolResult mWritten;  ///< of the run that wrote a table
};

/// Returns the results of a drive; without any, both runs did not take place. Any thread may call.
TableResults tableResults(const sysHardDrive* drive);
/// Stores the results of a drive. Any thread may call. Throws allocation failure only for a drive
/// without results.
void storeTableResults(const sysHardDrive* drive, const TableResults& last);
/// Frees the results of a drive, which is deleted. Any thread may call; fails never.
void dropTableResults(const sysHardDrive* drive);

}  // namespace drivemanager

#endif
