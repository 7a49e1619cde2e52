// SPDX-License-Identifier: MIT
#include "System/drivemanager/tools/tableresults.h"

#include "System/drivemanager/sidetable.h"

namespace drivemanager {

namespace {

SideTable<sysHardDrive, TableResults> results;

}  // namespace

TableResults tableResults(const sysHardDrive* drive) {
    return results.value(drive);
}

void storeTableResults(const sysHardDrive* drive, const TableResults& last) {
    results.change(drive, [&last](TableResults& stored) { stored = last; });
}

void dropTableResults(const sysHardDrive* drive) {
    results.remove(drive);
}

}  // namespace drivemanager
