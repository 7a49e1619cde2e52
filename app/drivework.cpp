// SPDX-License-Identifier: MIT
//
// The commands of the drive that take their time: format, start, check; and watch, which follows
// them.
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <utility>

#include "app/commands.h"
#include "app/drivedescription.h"
#include "app/options.h"
#include "app/session.h"
#include "app/text.h"
#include "app/work.h"

namespace app {

namespace {

constexpr int kDataPosition = 1;

bool isReady(const std::future<bool>& future) {
    return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

Progress progressOf(sysDVRDrive& drive) {
    sysDVRDrive::Status status = sysDVRDrive::eStNone;
    int percent = 0;
    drive.getStatus(&status, &percent);
    return {statusName(status), percent};
}

/// A format that the drive's own worker does.
class FormatWork : public Work {
public:
    // The status alone does not tell the end: it is "error" from a failure on the data partition
    // on, while the storage partition is still being formatted. But stop() waits its turn behind
    // the worker, and changes nothing on a drive that is not started.
    explicit FormatWork(sysDVRDrive& drive)
        : mDrive(drive), mEnd(std::async(std::launch::async, [&drive] { return drive.stop(); })) {}

    const char* name() const override { return "format"; }
    bool ended() override { return isReady(mEnd); }

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
        mPercent = progress.mPercent;
        return progress;
    }

    Result finish() override {
        if (statusOf(mDrive) != sysDVRDrive::eStReady) {
            return withStatus(
                Result::failed("the storage partition could not be formatted; -v tells more"));
        }
        // The drive keeps what it read of the partitions before the format: it reads them again.
        (void)mDrive.shut();
        if (!mDrive.init() || statusOf(mDrive) != sysDVRDrive::eStReady) {
            return withStatus(
                Result::failed("the drive is not ready after the format; -v tells more"));
        }
        Result result;
        if (mDrive.numPartitions() <= kDataPosition) {
            result.mText = "The drive is formatted, without a data partition.\n";
        } else if (mDataFailed || !hasDataLabel()) {
            result = Result::failed(
                "the data partition could not be formatted; the storage "
                "partition is ready and can be started");
        } else {
            result.mText = "The drive is formatted.\n";
        }
        return withStatus(std::move(result));
    }

private:
    bool hasDataLabel() {
        const char* const label = mDrive.getPartition(kDataPosition)->label();
        return label != nullptr && std::strcmp(label, "DVRData") == 0;
    }

    Result withStatus(Result result) {
        result.mData = statusData(mDrive);
        return result;
    }

    sysDVRDrive& mDrive;
    int mPercent = 0;
    bool mDataFailed = false;
    std::future<bool> mEnd;  // its end waits for the worker
};

/// The mounting that the drive's own worker does.
class StartWork : public Work {
public:
    explicit StartWork(sysDVRDrive& drive) : mDrive(drive) {}

    const char* name() const override { return "start"; }
    bool ended() override { return statusOf(mDrive) != sysDVRDrive::eStStarting; }
    Progress progress() override { return progressOf(mDrive); }

    Result finish() override {
        Result result;
        if (statusOf(mDrive) == sysDVRDrive::eStStarted) {
            result.mText = "The drive is started.\n" + statusText(mDrive);
        } else {
            result = Result::failed("a file system could not be mounted; -v tells more");
        }
        result.mData = statusData(mDrive);
        return result;
    }

private:
    sysDVRDrive& mDrive;
};

/// A check, which the library does on the calling thread.
class CheckWork : public Work {
public:
    CheckWork(sysPartition& partition, int index)
        : mPartition(partition),
          mIndex(index),
          mEnd(std::async(std::launch::async, [&partition] { return partition.ext3_fscheck(); })) {}

    const char* name() const override { return "check"; }
    bool ended() override { return isReady(mEnd); }

    Progress progress() override {
        constexpr int whole = 100000;
        constexpr int percent = 1000;
        const bool over = ended();
        const int progress = mPartition.ext3_fscheck_progress();
        // All of it, and not over: what is left of an earlier check.
        return {over ? "checked" : "checking", progress == whole && !over ? 0 : progress / percent};
    }

    Result finish() override {
        const std::string path = mPartition.path();
        Result result;
        if (mEnd.get()) {
            result.mText = printable(path) + " has no errors.\n";
        } else {
            result = Result::failed(printable(path) +
                                    " had errors, or could not be checked; a second check tells "
                                    "whether they were corrected");
        }
        result.mData.add("index", mIndex).add("path", path);
        return result;
    }

private:
    sysPartition& mPartition;
    int mIndex;
    std::future<bool> mEnd;
};

/// The index that a PARTITION argument means on this drive, or -1.
int partitionIndex(sysDVRDrive& drive, const std::string& argument) {
    unsigned long number = 0;
    const bool byNumber = parseNumber(argument, INT32_MAX, number);
    for (int index = 0; index < drive.numPartitions(); ++index) {
        if (byNumber ? static_cast<unsigned long>(index) == number
                     : argument == drive.getPartition(index)->path()) {
            return index;
        }
    }
    return -1;
}

std::string formatQuestion(sysDVRDrive& drive) {
    std::string partitions;
    for (int index = 0; index < drive.numPartitions() && index <= kDataPosition; ++index) {
        partitions += partitions.empty() ? "" : " and ";
        partitions += printable(drive.getPartition(index)->path());
    }
    return "ALL DATA on " + partitions + " of " + driveName(drive) + " will be lost.\nFormat?";
}

}  // namespace

bool checkPartition(const Words& arguments, std::string& error) {
    unsigned long number = 0;
    if (parseNumber(arguments[0], INT32_MAX, number) || arguments[0].rfind("/dev/", 0) == 0) {
        return true;
    }
    error = "bad partition " + quoted(arguments[0]) +
            ": an index from 0, or a device node such as /dev/sda1";
    return false;
}

Result runDriveFormat(Session& session, const Invocation& invocation) {
    sysDVRDrive& drive = *session.drive();
    if (statusOf(drive) == sysDVRDrive::eStStarted) {
        return Result::failed("the drive is mounted: 'drive stop' comes first");
    }
    if (drive.numPartitions() == 0) {
        return Result::failed("the drive has no partitions: 'drive partition' comes first");
    }
    if (!invocation.mOptions.mYes && !session.confirm(formatQuestion(drive))) {
        return Result::failed("not confirmed, nothing was changed");
    }
    if (!drive.initialize()) {
        return Result::failed(std::string("the drive refuses to be formatted (status ") +
                              statusName(statusOf(drive)) + ")");
    }
    return session.keep(std::make_unique<FormatWork>(drive), invocation);
}

Result runDriveStart(Session& session, const Invocation& invocation) {
    sysDVRDrive& drive = *session.drive();
    const sysDVRDrive::Status status = statusOf(drive);
    if (status == sysDVRDrive::eStNotFormatted) {
        return Result::failed("the drive is not formatted: 'drive format' comes first");
    }
    if (status == sysDVRDrive::eStStarted) {
        return Result::failed("the drive is started already");
    }
    if (!drive.start()) {
        return Result::failed(std::string("the drive can't be started (status ") +
                              statusName(status) + ")");
    }
    return session.keep(std::make_unique<StartWork>(drive), invocation);
}

Result runDriveCheck(Session& session, const Invocation& invocation) {
    sysDVRDrive& drive = *session.drive();
    const std::string& argument = invocation.mArguments[0];
    const int index = partitionIndex(drive, argument);
    if (index < 0) {
        return Result::failed("no partition " + quoted(argument) + ": the drive has " +
                              std::to_string(drive.numPartitions()) + "; 'drive info' shows them");
    }
    sysPartition& partition = *drive.getPartition(index);
    const std::string path = printable(partition.path());
    if (partition.isMounted()) {
        return Result::failed(path + " is mounted and can't be checked: unmount it first");
    }
    if (partition.fileSystemType() == sysPartition::eFsXfs) {
        return Result::failed(path + " holds an XFS file system, only ext2/ext3 can be checked");
    }
    return session.keep(std::make_unique<CheckWork>(partition, index), invocation);
}

Result runDriveWatch(Session& session, const Invocation& /*invocation*/) {
    if (session.working()) {
        return session.follow();
    }
    Result result;
    result.mText = statusText(*session.drive());
    result.mData = statusData(*session.drive());
    result.mData.add("changes", JsonArray());
    return result;
}

}  // namespace app
