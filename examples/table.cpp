// SPDX-License-Identifier: MIT
//
// Prints what the box's partitions are for: first in words of our own, then the library's dump.
//
//     table
#include <System/BlockdevCfg.fmp.h>
#include <System/system.h>
#include <base/outputlevel.h>

#include <cstdio>

namespace {

void print(const PartitionConfig& partition) {
    // No text of a record is null: what is not there is "".
    std::printf("%s\t%s%s%s%s\n", partition.mpPartDevname, partition.mpMountPoint,
                partition.mUseItForSettings ? "\tsettings" : "",
                partition.mUseItForBulk ? "\tbulk" : "", partition.mUseItForTemp ? "\ttemp" : "");
}

}  // namespace

int main() {
    // The library writes its messages to standard output. That is ours alone here.
    kestrova_debug_output_level = 0;
    // The table is there while the system is up. The recording drive is not asked for it, so the
    // minimal system does.
    SystemMinimalInit();
    BlockdeviceConfig* const table = BlockdeviceConfig::GetInstance();

    // Queries append to a vector of ours. The records belong to the table.
    KestrovaVector<PartitionConfig*> partitions;
    table->GetPartitionsByUsage(eUsageSoftware, &partitions);
    table->GetPartitionsByUsage(eUsageData, &partitions);
    for (const PartitionConfig* const partition : partitions) {
        print(*partition);
    }

    // The dump goes to any KestrovaOstream; this one writes to standard output, past stdio.
    std::fflush(stdout);
    table->DumpToKestrovaOstream(pCoutKestrovaOstream);
    *pCoutKestrovaOstream << "\n";

    SystemTerm();
    return 0;
}
