// SPDX-License-Identifier: MIT
//
// The commands of the drive whose work the drive's own worker does: format and start.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>

#include "app/cli/commands.h"
#include "app/cli/options.h"
#include "app/commands/drive/drivedescription.h"
#include "app/commands/drive/drivework.h"
#include "app/commands/drive/losses.h"
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

/// ": " and the reason of the last failure, or what else to do.
std::string reasonText(const sysDVRDrive& drive) {
    const std::string reason = failureReason(drive);
    return reason.empty() ? "; -v shows more" : ": " + reason;
}

/// A format that the drive's own worker does.
class FormatWork : public Work {
public:
    // The status alone does not show the end: it is "error" from a failure on the data partition
    // on, while the storage partition is still being formatted. But stop() waits for the worker,
    // and changes nothing on a drive that is not started.
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
            progress.mPercent = mPercent;  // 100 already, and not over yet
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
        // The drive keeps what it read of the partitions before the format: it reads them again.
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
    std::future<bool> mEnd;  // its end waits for the worker
};

/// The mounting that the drive's own worker does.
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

/// What a format destroys: the first two partitions.
std::vector<Loss> formatLosses(std::vector<Loss> losses) {
    losses.resize(std::min<std::size_t>(losses.size(), kDataPosition + 1));
    return losses;
}

/// The data partition first, as the library does it.
std::vector<std::string> formatCommands(const DriveLook& look) {
    std::vector<std::string> commands;
    for (const PartitionLook& partition : look.mPartitions) {
        if (partition.mIndex <= kDataPosition) {
            const std::string label = partition.mIndex == kDataPosition ? "DVRData" : "DVRStorage";
            commands.insert(commands.begin(), "/sbin/mkfs.xfs -L " + label +
                                                  " -f -l lazy-count=0 " + partition.mPath);
        }
    }
    return commands;
}

Result dryFormat(const DriveLook& look, const std::vector<Loss>& losses) {
    Result result;
    result.mText = "ALL DATA on these partitions of " + driveName(look.mIdentity) +
                   " would be lost:\n" + lossesText(losses) + "They would be formatted by\n";
    JsonArray commands;
    for (const std::string& command : formatCommands(look)) {
        result.mText += "  " + printable(command) + "\n";
        commands.addJson(jsonString(command));
    }
    result.mData.add("losses", lossesData(losses)).add("wouldRun", commands);
    return result;
}

}  // namespace

Result runDriveFormat(Session& session, const Invocation& invocation) {
    if (!invocation.mOptions.mDryRun) {
        Result claimed = session.claimDrive(invocation);
        if (claimed.mStatus != eDone) {
            return claimed;
        }
    }
    const DriveLook look = invocation.mOptions.mDryRun ? lookAtDrive() : lookWhenQuiet();
    if (!look.mFailure.empty()) {
        return Result::failed(look.mFailure);
    }
    if (look.mPartitions.empty() && look.mTableFailure.empty()) {
        return Result::failed("the drive has no partitions: 'drive partition' comes first");
    }
    const std::vector<Loss> held = findLosses(look);
    const std::string reason = destructionRefusal(look, held, invocation.mOptions.mForce);
    if (!reason.empty()) {
        return Result::failed(reason);
    }
    const std::vector<Loss> losses = formatLosses(held);
    if (invocation.mOptions.mDryRun) {
        return dryFormat(look, losses);
    }
    if (!invocation.mOptions.mYes &&
        !session.confirm("ALL DATA on these partitions of " + driveName(look.mIdentity) +
                         " will be lost:\n" + lossesText(losses) + "Format?")) {
        return Result::failed("not confirmed, nothing was changed");
    }
    Result refusal;
    sysDVRDrive* const drive = session.useDrive(invocation, refusal);
    if (drive == nullptr) {
        return refusal;
    }
    if (!drive->initialize()) {
        return Result::failed(std::string("the drive refuses to be formatted (status ") +
                              statusName(statusOf(*drive)) + ")");
    }
    return session.keep(std::make_unique<FormatWork>(session, *drive), invocation);
}

sysDVRDrive* startDrive(Session& session, const Invocation& invocation, Result& refusal) {
    refusal = session.claimDrive(invocation);
    if (refusal.mStatus != eDone) {
        return nullptr;
    }
    const DriveLook look = lookWhenQuiet();
    const std::string& reason = look.mFailure.empty() ? look.mProblem : look.mFailure;
    if (!reason.empty()) {
        refusal = Result::failed(reason);
        return nullptr;
    }
    sysDVRDrive* const drive = session.useDrive(invocation, refusal);
    if (drive == nullptr) {
        return nullptr;
    }
    const sysDVRDrive::Status status = statusOf(*drive);
    if (status == sysDVRDrive::eStNotFormatted) {
        refusal = Result::failed("the drive is not formatted: 'drive format' comes first");
    } else if (status == sysDVRDrive::eStStarted) {
        refusal = Result::failed("the drive is started already");
    } else if (!drive->start()) {
        refusal = Result::failed(std::string("the drive can't be started (status ") +
                                 statusName(status) + ")");
    }
    return refusal.mStatus == eDone ? drive : nullptr;
}

std::unique_ptr<Work> startWork(Session& session, sysDVRDrive& drive) {
    return std::make_unique<StartWork>(session, drive);
}

Result runDriveStart(Session& session, const Invocation& invocation) {
    Result refusal;
    sysDVRDrive* const drive = startDrive(session, invocation, refusal);
    return drive == nullptr ? refusal : session.keep(startWork(session, *drive), invocation);
}

}  // namespace app
