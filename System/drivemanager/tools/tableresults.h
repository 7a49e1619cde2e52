// SPDX-License-Identifier: MIT
// Results of the partition-table tool for each drive. Stored outside the sysHardDrive objects,
// because applications are compiled with their layout.
// layout applications are compiled with.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TABLERESULTS_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TABLERESULTS_H

#include "base/process/tool.h"

class sysHardDrive;

namespace drivemanager {

/// The last runs of the tool for one drive.
struct TableResults {
    base::ToolResult mRead;     ///< the run that listed the partitions
    base::ToolResult mWritten;  ///< the run that wrote a table
};

/// Returns the results of a drive. A run that has not happened has a default result. Any thread may
/// call it.
TableResults tableResults(const sysHardDrive* drive);
/// Stores the results of a drive. Any thread may call it. Throws std::bad_alloc only for a drive
/// without results.
void storeTableResults(const sysHardDrive* drive, const TableResults& last);
/// Frees the results of a drive that is being deleted. Any thread may call it; it never fails.
void dropTableResults(const sysHardDrive* drive);

}  // namespace drivemanager

#endif
