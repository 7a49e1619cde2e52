// SPDX-License-Identifier: MIT
//
// The command that writes a partition table.
#include "System/drivemanager/tools/toolcommands.h"
#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/drive/drivedescription.h"
#include "app/commands/drive/losses.h"
#include "app/commands/drive/sizes.h"
#include "app/commands/drive/tablebackup.h"
#include "app/commands/drive/toolrun.h"
#include "app/session.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

/// A new partition table that has passed all checks.
struct Plan {
    DriveLook mLook;
    std::vector<Loss> mLosses;
    PartitionSizes mSizes;
};

/// Fails if the drive cannot be partitioned as requested.
Result makePlan(const Invocation& invocation, Plan& plan) {
    Result result =
        invocation.mOptions.mDryRun ? lookAtDrive(plan.mLook) : lookWhenQuiet(plan.mLook);
    const unsigned long long capacity = plan.mLook.mIdentity.mCapacity;
    if (result.good()) {
        result = parseSizes(invocation.mArguments, capacity, plan.mSizes);
    }
    if (!result.good()) {
        return result;
    }
    if (totalSize(plan.mSizes) > capacity) {
        return Result::failed("the drive has " + std::to_string(capacity >> 20U) +
                              " MiB, fewer than the sizes need; 'rest' is what is left");
    }
    plan.mLosses = findLosses(plan.mLook);
    return checkDestruction(plan.mLook, plan.mLosses, invocation.mOptions.mForce);
}

Result dryRun(const Plan& plan) {
    const std::string tool = commandLine(drivemanager::writePartitionTable(kDriveDevice));
    Result result;
    result.mText = "ALL DATA on " + driveName(plan.mLook.mIdentity) + " would be lost:\n" +
                   lossesText(plan.mLosses) + "It would be partitioned as " +
                   sizesText(plan.mSizes) + " by\n  " + tool + "\n";
    Json commands = Json::array();
    commands.append(tool);
    result.mData.add("losses", lossesData(plan.mLosses)).add("wouldRun", commands);
    return result;
}

/// Returns whether there is a table to save; an empty disk has none.
bool hasTable(const Plan& plan) {
    return !plan.mLook.mPartitions.empty() || !plan.mLosses.front().mContent.empty();
}

void describeBackup(const TableBackup& backup, Result& result) {
    result.mText += "The old table is saved" +
                    std::string(backup.mLasting ? "" : ", until the next restart of the box") +
                    "; this brings it back:\n  " + printable(backup.mRestore) + "\n";
    result.mData.add("savedTable", backup.mFile).add("restore", backup.mRestore);
}

/// Writes the table and reads it back.
Result writeTable(Session& session, sysDVRDrive& drive, Plan& plan) {
    // The drive must not keep pointers to partitions that are about to disappear.
    session.publish({"partitioning", 0});
    (void)drive.shut();
    const bool written = drive.partitionCustom(plan.mSizes);
    const bool found = drive.init();
    if (!written) {
        return Result::failed(
            "the partition table could not be written; 'drive info' shows what is there now");
    }
    if (!found) {
        return Result::failed(
            "the drive can't be read after its partition table was written; -v shows more");
    }
    const DriveState state = stateOfDrive(session);
    Result result;
    result.mText = partitionsText(state.mLook) + statusText(state);
    result.mData.add(statusData(state)).add("partitions", partitionsData(state.mLook));
    return result;
}

Result runDrivePartition(Session& session, const Invocation& invocation) {
    const Options& options = invocation.mOptions;
    Result result = options.mDryRun ? Result() : session.claimDrive(invocation);
    Plan plan;
    if (result.good()) {
        result = makePlan(invocation, plan);
    }
    if (!result.good()) {
        return result;
    }
    if (options.mDryRun) {
        return dryRun(plan);
    }
    if (!options.mYes && !session.confirm("ALL DATA on " + driveName(plan.mLook.mIdentity) +
                                          " will be lost:\n" + lossesText(plan.mLosses) +
                                          "Partition it as " + sizesText(plan.mSizes) + "?")) {
        return Result::failed("not confirmed, nothing was changed");
    }
    TableBackup backup;
    const bool save = hasTable(plan);
    if (save) {
        result = saveTable(options.mSaveTable, backup);
    }
    sysDVRDrive* drive = nullptr;
    if (result.good()) {
        result = session.useDrive(invocation, drive);
    }
    if (!result.good()) {
        return result;
    }
    result = writeTable(session, *drive, plan);
    if (save) {
        describeBackup(backup, result);
    }
    return result;
}

}  // namespace

constexpr char kDrivePartitionHelp[] = R"(Write a partition table; all data are lost.

Writes a table of one to four partitions. SIZE is a number of MiB (1500 or
1500M), of GiB (6G) or TiB (1T), a share of the drive (50%), or 'rest' for all
that is left, which can be the last one only. Names the drive and asks first,
unless --yes; where nobody can be asked it is refused with exit status 2.

All data of the drive are lost. Refused while a partition of the drive is
mounted and, without --force, when the drive holds a file system that is not the
recording drive's own. The old table is saved first, in a new file below
/var/lib/kestrova or, if that can't be written, /run/kestrova. 'drive format'
comes next.

Exit status:
  1  refused, not confirmed, too large for the drive, or not written

Example:
  kestrova drive partition --dry-run 40G rest
  kestrova drive partition 40G rest
)";
const Command kDrivePartitionCommand = {
    "drive partition",
    "SIZE...",
    kDrivePartitionHelp,
    eOptionYes | eOptionForce | eOptionDryRun | eOptionSaveTable | eOptionWait,
    eNeedsDrive | eDestroysData,
    runDrivePartition,
    checkSizes};

}  // namespace app
