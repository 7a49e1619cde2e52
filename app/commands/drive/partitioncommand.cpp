// SPDX-License-Identifier: MIT
//
// The command that writes a partition table.
#include "app/cli/commands.h"
#include "app/cli/options.h"
#include "app/commands/drive/drivedescription.h"
#include "app/commands/drive/losses.h"
#include "app/commands/drive/sizes.h"
#include "app/commands/drive/tablebackup.h"
#include "app/session.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

constexpr char kTool[] = "/sbin/sfdisk -q -L -uM /dev/sda";

/// What is going to happen, after all that speaks against it has been looked at.
struct Plan {
    DriveLook mLook;
    std::vector<Loss> mLosses;
    PartitionSizes mSizes;
};

/// Why the drive can't be partitioned as wanted; empty when it can.
std::string makePlan(const Invocation& invocation, Plan& plan) {
    plan.mLook = invocation.mOptions.mDryRun ? lookAtDrive() : lookWhenQuiet();
    if (!plan.mLook.mFailure.empty()) {
        return plan.mLook.mFailure;
    }
    const unsigned long long capacity = plan.mLook.mIdentity.mCapacity;
    std::string error;
    if (!parseSizes(invocation.mArguments, capacity, plan.mSizes, error)) {
        return error;
    }
    if (totalSize(plan.mSizes) > capacity) {
        return "the drive has " + std::to_string(capacity >> 20U) +
               " MiB, fewer than the sizes need; 'rest' is what is left";
    }
    plan.mLosses = findLosses(plan.mLook);
    return destructionRefusal(plan.mLook, plan.mLosses, invocation.mOptions.mForce);
}

Result dryRun(const Plan& plan) {
    Result result;
    result.mText = "ALL DATA on " + driveName(plan.mLook.mIdentity) + " would be lost:\n" +
                   lossesText(plan.mLosses) + "It would be partitioned as " +
                   sizesText(plan.mSizes) + " by\n  " + kTool + "\n";
    JsonArray commands;
    commands.addJson(jsonString(kTool));
    result.mData.add("losses", lossesData(plan.mLosses)).add("wouldRun", commands);
    return result;
}

/// True when there is a table to save: a bare disk has none.
bool hasTable(const Plan& plan) {
    return !plan.mLook.mPartitions.empty() || !plan.mLosses.front().mContent.empty();
}

void describeBackup(const TableBackup& backup, Result& result) {
    result.mText += "The old table is saved" +
                    std::string(backup.mLasting ? "" : ", until the next restart of the box") +
                    "; this brings it back:\n  " + printable(backup.mRestore) + "\n";
    result.mData.add("savedTable", backup.mFile).add("restore", backup.mRestore);
}

/// Writes the table and looks at what is there then.
Result writeTable(Session& session, sysDVRDrive& drive, Plan& plan) {
    // The drive must not hold on to partitions that go away under it.
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

}  // namespace

Result runDrivePartition(Session& session, const Invocation& invocation) {
    if (!invocation.mOptions.mDryRun) {
        Result claimed = session.claimDrive(invocation);
        if (claimed.mStatus != eDone) {
            return claimed;
        }
    }
    Plan plan;
    const std::string refusal = makePlan(invocation, plan);
    if (!refusal.empty()) {
        return Result::failed(refusal);
    }
    if (invocation.mOptions.mDryRun) {
        return dryRun(plan);
    }
    if (!invocation.mOptions.mYes &&
        !session.confirm("ALL DATA on " + driveName(plan.mLook.mIdentity) + " will be lost:\n" +
                         lossesText(plan.mLosses) + "Partition it as " + sizesText(plan.mSizes) +
                         "?")) {
        return Result::failed("not confirmed, nothing was changed");
    }
    TableBackup backup;
    std::string error;
    const bool save = hasTable(plan);
    if (save && !saveTable(invocation.mOptions.mSaveTable, backup, error)) {
        return Result::failed("the old partition table could not be saved, nothing was changed: " +
                              error);
    }
    Result failure;
    sysDVRDrive* const drive = session.useDrive(invocation, failure);
    if (drive == nullptr) {
        return failure;
    }
    Result result = writeTable(session, *drive, plan);
    if (save) {
        describeBackup(backup, result);
    }
    return result;
}

}  // namespace app
