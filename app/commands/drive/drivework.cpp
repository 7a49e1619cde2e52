// SPDX-License-Identifier: MIT
//
// The drive commands whose work runs in the drive's own worker: format and start.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>

#include "System/drivemanager/tools/toolcommands.h"
#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/drive/drivedescription.h"
#include "app/commands/drive/drivework.h"
#include "app/commands/drive/losses.h"
#include "app/commands/drive/toolrun.h"
#include "app/session.h"
#include "app/ui/humantext.h"
#include "app/work.h"

namespace app {

namespace {

constexpr int kDataPosition = 1;

Progress progressOf(sysDVRDrive& drive) {
    sysDVRDrive::Status status = sysDVRDrive::eStNone;
    int percent = 0;
    drive.getStatus(&status, &percent);
    return {statusName(status), percent};
}

/// Returns ": " and the reason for the last failure, or a hint if it is unknown.
std::string reasonText(const sysDVRDrive& drive) {
    const std::string reason = failureReason(drive);
    return reason.empty() ? "; -v shows more" : ": " + reason;
}

/// A format in the drive's own worker.
class FormatWork : public Work {
public:
    // The status alone does not show the end: after a failure on the data partition it is "error"
    // while the storage partition is still being formatted. stop() waits for the worker, and
    // changes nothing on a drive that is not started.
    FormatWork(Session& session, sysDVRDrive& drive)
        : mSession(session),
          mDrive(drive),
          mEnd(std::async(std::launch::async, [&drive] { return drive.stop(); })) {}

    const char* name() const override { return "format"; }
    bool ended() override {
        return mEnd.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }

    Progress progress() override {
        const bool over = ended();
        Progress progress = progressOf(mDrive);
        if (over) {
            return progress;
        }
        if (progress.mState == statusName(sysDVRDrive::eStError)) {
            mDataFailed = true;
        }
        if (progress.mState != statusName(sysDVRDrive::eStFormatting)) {
            progress.mPercent = mPercent;  // the drive already reports 100 here, but the worker
                                           // still runs
        }
        if (progress.mState == statusName(sysDVRDrive::eStReady)) {
            progress.mState = statusName(sysDVRDrive::eStFormatting);
        }
        mPercent = progress.mPercent;
        return progress;
    }

    Result finish() override {
        Result result = outcome();
        result.mData = statusData(stateOfDrive(mSession));
        return result;
    }

private:
    Result outcome() {
        if (statusOf(mDrive) != sysDVRDrive::eStReady) {
            return Result::failed("the storage partition could not be formatted" + reason());
        }
        const std::string dataReason = reason();
        // The drive keeps what it read from the partitions before the format, so it must read them
        // again.
        (void)mDrive.shut();
        if (!mDrive.init() || statusOf(mDrive) != sysDVRDrive::eStReady) {
            return Result::failed("the drive is not ready after the format" + reason());
        }
        Result result;
        if (mDrive.numPartitions() <= kDataPosition) {
            result.mText = "The drive is formatted, without a data partition.\n";
        } else if (mDataFailed || !hasDataLabel()) {
            result = Result::failed("the data partition could not be formatted" + dataReason +
                                    "; the storage partition is ready and can be started");
        } else {
            result.mText = "The drive is formatted.\n";
        }
        return result;
    }

    std::string reason() const { return reasonText(mDrive); }

    bool hasDataLabel() {
        const char* const label = mDrive.getPartition(kDataPosition)->label();
        return label != nullptr && std::strcmp(label, "DVRData") == 0;
    }

    Session& mSession;
    sysDVRDrive& mDrive;
    int mPercent = 0;
    bool mDataFailed = false;
    std::future<bool> mEnd;  // ready when the worker has exited
};

/// A mount in the drive's own worker.
class StartWork : public Work {
public:
    StartWork(Session& session, sysDVRDrive& drive) : mSession(session), mDrive(drive) {}

    const char* name() const override { return "start"; }
    bool ended() override { return statusOf(mDrive) != sysDVRDrive::eStStarting; }
    Progress progress() override { return progressOf(mDrive); }

    Result finish() override {
        const DriveState state = stateOfDrive(mSession);
        Result result;
        if (statusOf(mDrive) == sysDVRDrive::eStStarted) {
            result.mText = "The drive is started.\n" + statusText(state);
        } else {
            result = Result::failed("the drive could not be started" + reasonText(mDrive));
        }
        result.mData = statusData(state);
        return result;
    }

private:
    Session& mSession;
    sysDVRDrive& mDrive;
};

/// Returns the losses of a format, which destroys the first two partitions.
std::vector<Loss> formatLosses(std::vector<Loss> losses) {
    losses.resize(std::min<std::size_t>(losses.size(), kDataPosition + 1));
    return losses;
}

/// Returns the commands in the library's order: the data partition first.
std::vector<std::string> formatCommands(const DriveLook& look) {
    std::vector<std::string> commands;
    for (const PartitionLook& partition : look.mPartitions) {
        if (partition.mIndex <= kDataPosition) {
            const char* const label = partition.mIndex == kDataPosition ? "DVRData" : "DVRStorage";
            commands.insert(commands.begin(),
                            commandLine(drivemanager::makeXfs(partition.mPath, label)));
        }
    }
    return commands;
}

Result dryFormat(const DriveLook& look, const std::vector<Loss>& losses) {
    Result result;
    result.mText = "ALL DATA on these partitions of " + driveName(look.mIdentity) +
                   " would be lost:\n" + lossesText(losses) + "They would be formatted by\n";
    Json commands = Json::array();
    for (const std::string& command : formatCommands(look)) {
        result.mText += "  " + printable(command) + "\n";
        commands.append(command);
    }
    result.mData.add("losses", lossesData(losses)).add("wouldRun", commands);
    return result;
}

Result runDriveFormat(Session& session, const Invocation& invocation) {
    const Options& options = invocation.mOptions;
    Result result = options.mDryRun ? Result() : session.claimDrive(invocation);
    DriveLook look;
    if (result.good()) {
        result = options.mDryRun ? lookAtDrive(look) : lookWhenQuiet(look);
    }
    if (result.good() && look.mPartitions.empty() && look.mTableFailure.empty()) {
        result = Result::failed("the drive has no partitions: 'drive partition' comes first");
    }
    std::vector<Loss> losses;
    if (result.good()) {
        losses = findLosses(look);
        result = checkDestruction(look, losses, options.mForce);
        losses = formatLosses(losses);
    }
    if (!result.good()) {
        return result;
    }
    if (options.mDryRun) {
        return dryFormat(look, losses);
    }
    if (!options.mYes &&
        !session.confirm("ALL DATA on these partitions of " + driveName(look.mIdentity) +
                         " will be lost:\n" + lossesText(losses) + "Format?")) {
        return Result::failed("not confirmed, nothing was changed");
    }
    sysDVRDrive* drive = nullptr;
    result = session.useDrive(invocation, drive);
    if (!result.good()) {
        return result;
    }
    if (!drive->initialize()) {
        return Result::failed(std::string("the drive refuses to be formatted (status ") +
                              statusName(statusOf(*drive)) + ")");
    }
    return session.keep(std::make_unique<FormatWork>(session, *drive), invocation);
}

Result runDriveStart(Session& session, const Invocation& invocation) {
    sysDVRDrive* drive = nullptr;
    Result started = startDrive(session, invocation, drive);
    return started.good() ? session.keep(startWork(session, *drive), invocation) : started;
}

}  // namespace

Result startDrive(Session& session, const Invocation& invocation, sysDVRDrive*& drive) {
    Result result = session.claimDrive(invocation);
    DriveLook look;
    if (result.good()) {
        result = lookWhenQuiet(look);
    }
    if (result.good() && !look.mProblem.empty()) {
        result = Result::failed(look.mProblem);
    }
    sysDVRDrive* found = nullptr;
    if (result.good()) {
        result = session.useDrive(invocation, found);
    }
    if (!result.good()) {
        return result;
    }
    const sysDVRDrive::Status status = statusOf(*found);
    if (status == sysDVRDrive::eStNotFormatted) {
        return Result::failed("the drive is not formatted: 'drive format' comes first");
    }
    if (status == sysDVRDrive::eStStarted) {
        return Result::failed("the drive is started already");
    }
    if (!found->start()) {
        return Result::failed(std::string("the drive can't be started (status ") +
                              statusName(status) + ")");
    }
    drive = found;
    return {};
}

std::unique_ptr<Work> startWork(Session& session, sysDVRDrive& drive) {
    return std::make_unique<StartWork>(session, drive);
}

constexpr char kDriveFormatHelp[] = R"(Make the file systems; all their data are lost.

Makes the file systems of the recording drive: 'DVRData' on partition 1, then
'DVRStorage' on partition 0. Names the drive and asks first, unless --yes; where
nobody can be asked it is refused with exit status 2. Refused as well as 'drive
partition' is.

A format that runs can't be stopped. Ctrl-C in a shell at a terminal returns to
the prompt, and 'drive watch' follows it again; anywhere else the command waits
for its end all the same.
A drive with a single partition becomes ready, too: it has no separate data
partition. 'drive start' comes next.

Exit status:
  1  refused, not confirmed, not partitioned, or not formatted

Example:
  kestrova drive format
  kestrova drive format --yes
)";
const Command kDriveFormatCommand = {
    "drive format",
    "",
    kDriveFormatHelp,
    eOptionYes | eOptionNoWait | eOptionForce | eOptionDryRun | eOptionWait,
    eNeedsDrive | eDestroysData,
    runDriveFormat};

constexpr char kDriveStartHelp[] = R"(Mount the file systems for recording.

Mounts the storage partition on /dvr, with project quotas, and the data
partition on /dvr/data. The status must be 'ready'.

A shell that has started the drive stops it when it ends, whatever happens.
'drive start' alone leaves the file systems mounted when it exits, until 'drive
stop' or the next full start of the system unmounts them.
Ctrl-C does not stop a mount; in a shell at a terminal it only stops waiting for
it.

Exit status:
  1  not formatted, started already, or not mounted

Example:
  kestrova shell -e 'drive start; drive status; drive stop'
)";
const Command kDriveStartCommand = {
    "drive start", "", kDriveStartHelp, eOptionNoWait | eOptionWait, eNeedsDrive, runDriveStart};

}  // namespace app
