// SPDX-License-Identifier: MIT
//
// The command that checks a partition: ext2/ext3 with the library, XFS with the box's xfs_repair.
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <utility>

#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/drive/drivedescription.h"
#include "app/commands/drive/toolrun.h"
#include "app/session.h"
#include "app/ui/humantext.h"
#include "app/work.h"

namespace app {

namespace {

constexpr int kWhole = 100;

/// A check on its own thread.
class CheckWork : public Work {
public:
    explicit CheckWork(PartitionLook partition) : mPartition(std::move(partition)) {}

    const char* name() const override { return "check"; }
    bool ended() override {
        return mEnd.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }
    Progress progress() override {
        return ended() ? Progress{"checked", kWhole} : Progress{"checking", percent()};
    }
    Result finish() override {
        Result result = outcome(mEnd.get());
        result.mData.add("index", mPartition.mIndex).add("path", mPartition.mPath);
        return result;
    }

protected:
    virtual int percent() = 0;
    virtual Result outcome(bool good) = 0;

    std::string path() const { return printable(mPartition.mPath); }
    const PartitionLook& partition() const { return mPartition; }
    void begin(std::future<bool> end) { mEnd = std::move(end); }
    void waitForEnd() {
        if (mEnd.valid()) {
            mEnd.wait();
        }
    }

private:
    PartitionLook mPartition;
    std::future<bool> mEnd;
};

Result noErrors(const std::string& path) {
    Result result;
    result.mText = path + " has no errors.\n";
    return result;
}

class ExtCheck : public CheckWork {
public:
    explicit ExtCheck(const PartitionLook& partition) : CheckWork(partition) {
        (void)mExt.init(partition.mPath.c_str(), partition.mCapacity, partition.mType);
        begin(std::async(std::launch::async, [this] { return mExt.ext3_fscheck(); }));
    }
    ~ExtCheck() override { waitForEnd(); }

protected:
    int percent() override {
        constexpr int thousandths = 1000;
        return mExt.ext3_fscheck_progress() / thousandths;
    }
    Result outcome(bool good) override {
        return good ? noErrors(path())
                    : Result::failed(path() +
                                     " had errors, or could not be checked; a second check tells "
                                     "whether they were corrected");
    }

private:
    sysPartition mExt;
};

/// Runs xfs_repair, which announces each of its phases with "Phase N".
class XfsCheck : public CheckWork {
public:
    XfsCheck(const PartitionLook& partition, bool repair) : CheckWork(partition), mRepair(repair) {
        begin(std::async(std::launch::async, [this] { return run(); }));
    }
    ~XfsCheck() override { waitForEnd(); }

protected:
    int percent() override {
        constexpr int phases = 7;
        return (mPhase - 1) * kWhole / phases;
    }

    Result outcome(bool good) override {
        constexpr int damaged = 1;
        constexpr int dirtyLog = 2;
        if (good && mRepair) {
            Result result;
            result.mText = path() + " is checked, and what was wrong is repaired.\n";
            return result;
        }
        if (good) {
            return noErrors(path());
        }
        if (!mRepair && mRun.mStatus == damaged && mPhase > 1) {
            return Result::failed(path() + " has errors; 'drive check --repair' repairs them");
        }
        if (mRepair && mRun.mStatus == dirtyLog) {
            return Result::failed(path() +
                                  " has changes in its log that a mount would apply: 'drive start' "
                                  "and 'drive stop' first, then repair it");
        }
        return Result::failed(path() + " could not be checked: " + mRun.reason("xfs_repair"));
    }

private:
    bool run() {
        const std::string options = mRepair ? "" : "-n ";
        mRun = runTool("exec /sbin/xfs_repair " + options + partition().mPath,
                       [this](const std::string& piece) { takePhase(piece); });
        return mRun.good();
    }

    void takePhase(const std::string& piece) {
        const std::size_t found = piece.rfind("Phase ");
        const std::size_t digit = found + 6;
        if (found != std::string::npos && digit < piece.size() && piece[digit] >= '1' &&
            piece[digit] <= '7') {
            mPhase = piece[digit] - '0';
        }
    }

    bool mRepair;
    std::atomic<int> mPhase{1};
    ToolRun mRun;
};

/// Returns the partition that a PARTITION argument selects, or null.
const PartitionLook* findPartition(const DriveLook& look, const std::string& argument) {
    unsigned long number = 0;
    const bool byNumber = readDecimal(argument, INT32_MAX, number);
    for (const PartitionLook& partition : look.mPartitions) {
        if (byNumber ? static_cast<unsigned long>(partition.mIndex) == number
                     : argument == partition.mPath) {
            return &partition;
        }
    }
    return nullptr;
}

Result checkPartition(const Words& arguments) {
    unsigned long number = 0;
    if (readDecimal(arguments[0], INT32_MAX, number) || arguments[0].rfind("/dev/", 0) == 0) {
        return {};
    }
    return Result::misused("bad partition " + quoted(arguments[0]) +
                           ": an index from 0, or a device node such as /dev/sda1");
}

Result runDriveCheck(Session& session, const Invocation& invocation) {
    Result result = session.claimDrive(invocation);
    DriveLook look;
    if (result.good()) {
        result = lookWhenQuiet(look);
    }
    if (result.good() && !look.mTableFailure.empty()) {
        result = Result::failed(look.mTableFailure);
    }
    if (!result.good()) {
        return result;
    }
    const std::string& argument = invocation.mArguments[0];
    const PartitionLook* const partition = findPartition(look, argument);
    if (partition == nullptr) {
        return Result::failed("no partition " + quoted(argument) + ": the drive has " +
                              std::to_string(look.mPartitions.size()) +
                              "; 'drive info' shows them");
    }
    const std::string path = printable(partition->mPath);
    if (!partition->mMountPoints.empty()) {
        return Result::failed(path + " is mounted on " + printable(partition->mMountPoints[0]) +
                              " and can't be checked: unmount it first");
    }
    if (partition->mFileSystem == sysPartition::eFsXfs) {
        return session.keep(std::make_unique<XfsCheck>(*partition, invocation.mOptions.mRepair),
                            invocation);
    }
    return session.keep(std::make_unique<ExtCheck>(*partition), invocation);
}

}  // namespace

constexpr char kDriveCheckHelp[] = R"(Check a partition's file system.

PARTITION is an index from 0 or a device node, as 'drive info' shows them. A
mounted one is not checked. An ext2/ext3 file system is checked and repaired at
once. An XFS file system is only checked, and repaired with --repair. A check
that runs is not stopped by Ctrl-C.

Exit status:
  1  not checked, or it had errors, even if all are corrected now

Example:
  kestrova drive check --repair 1
  kestrova drive check /dev/sda2
)";
const Command kDriveCheckCommand = {
    "drive check", "PARTITION",   kDriveCheckHelp, eOptionRepair | eOptionWait,
    eNeedsDrive,   runDriveCheck, checkPartition};

}  // namespace app
