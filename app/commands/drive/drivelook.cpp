// SPDX-License-Identifier: MIT
#include "app/commands/drive/drivelook.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "System/drivemanager/tools/toolcommands.h"
#include "app/commands/drive/toolrun.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

/// Lists the partitions without the identification of sysHardDrive::init(), which opens the drive
/// for writing. On a desktop, opening it for writing makes the device manager read the drive again.
class DriveTable : public sysHardDrive {
public:
    DriveTable() {
        mDevice = kDriveDevice;
        scanPartitions();
    }
};

PartitionLook lookAt(sysPartition& partition, int index) {
    PartitionLook look;
    look.mIndex = index;
    look.mPath = partition.path();
    look.mCapacity = partition.capacity();
    look.mType = partition.type();
    look.mFileSystem = partition.fileSystemType();
    look.mLabel = partition.label() != nullptr ? partition.label() : "";
    (void)sysPartition::listMounts(partition.path(), &look.mMountPoints);
    look.mFileSystemSize = partition.fileSystemSize();
    return look;
}

/// Returns why the partition table is not known; empty if it was read.
std::string tableFailure(const sysHardDrive& drive) {
    if (drive.tableState() == sysHardDrive::eTableRead) {
        return {};
    }
    const std::string intro = "the partition table can't be read: ";
    if (drive.tableState() == sysHardDrive::eTableToolMissing) {
        return intro + "/sbin/sfdisk can't be run: " + rootErrorText(drive.tableToolError()) +
               "; install it";
    }
    if (drive.tableState() == sysHardDrive::eTableUnread) {
        return intro + "no process for /sbin/sfdisk: " + rootErrorText(drive.tableToolError());
    }
    // Run the tool once more to capture its standard error.
    const ToolRun run = runTool(commandLine(drivemanager::listPartitionTable(kDriveDevice)));
    return intro + run.reason("/sbin/sfdisk -d") +
           "; if it is a tool of today, 'kestrova-box-tools enable' adapts it";
}

/// Checks one of the two partitions that recordings need.
std::string sizeProblem(const PartitionLook* partition) {
    if (partition == nullptr || !partition->isTooSmall()) {
        return {};
    }
    return printable(partition->mPath) + " holds a file system of " +
           sizeText(partition->mFileSystemSize) + ", larger than the partition of " +
           sizeText(partition->mCapacity) +
           ": the partition table was changed after the format; write the old table back, or "
           "format";
}

/// Recognises the two like the library: a later match replaces an earlier one.
void findRecordingPartitions(DriveLook& look) {
    for (const PartitionLook& partition : look.mPartitions) {
        if (partition.mFileSystem != sysPartition::eFsXfs) {
            continue;
        }
        if (partition.mLabel == "DVRStorage") {
            look.mStorage = partition.mIndex;
        } else if (partition.mLabel == "DVRData") {
            look.mData = partition.mIndex;
        }
    }
}

}  // namespace

bool PartitionLook::isMountedOn(const char* directory) const {
    return std::find(mMountPoints.begin(), mMountPoints.end(), directory) != mMountPoints.end();
}

const PartitionLook* DriveLook::partition(int index) const {
    return index < 0 ? nullptr : &mPartitions[static_cast<std::size_t>(index)];
}

bool PartitionLook::isClaimed() const {
    const int descriptor = ::open(mPath.c_str(), O_RDONLY | O_EXCL | O_NONBLOCK | O_CLOEXEC);
    if (descriptor >= 0) {
        (void)::close(descriptor);
    }
    return descriptor < 0 && errno == EBUSY;
}

sysDVRDrive::Status DriveLook::status() const {
    if (!mProblem.empty()) {
        return sysDVRDrive::eStError;
    }
    if (storage() == nullptr) {
        return sysDVRDrive::eStNotFormatted;
    }
    const bool started = storage()->isMountedOn(kStorageDirectory) &&
                         (data() == nullptr || data()->isMountedOn(kDataDirectory));
    return started ? sysDVRDrive::eStStarted : sysDVRDrive::eStReady;
}

Result identifyDrive(DriveIdentity& identity) {
    const std::string device = kDriveDevice;
    const int descriptor = ::open(kDriveDevice, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        return Result::failed("no recording drive: " + device + ": " + rootErrorText(errno));
    }
    char model[256];
    char serial[256];
    const bool known =
        get_drive_model(descriptor, model, sizeof(model), serial, sizeof(serial)) == 0;
    // The request number contains the size of size_t, but the result has 64 bits on every machine.
    unsigned long long capacity = 0;
    const bool sized = ::ioctl(descriptor, BLKGETSIZE64, &capacity) == 0 && capacity != 0;
    (void)::close(descriptor);
    if (!known || !sized) {
        return Result::failed("no recording drive: " + device + " does not report its " +
                              (known ? "size" : "identity"));
    }
    identity = {trimmed(*model != '\0' ? model : "Unknown Drive"), trimmed(serial), capacity};
    return {};
}

Space measureSpace(const std::string& directory) {
    struct statfs status = {};
    Space space;
    if (::statfs(directory.c_str(), &status) == 0) {
        const auto blockSize = static_cast<unsigned long long>(status.f_bsize);
        space.mTotal = blockSize * status.f_blocks;
        space.mFree = blockSize * status.f_bfree;
        space.mBlockSize = static_cast<unsigned>(blockSize);
    }
    return space;
}

Result lookAtDrive(DriveLook& look, bool table) {
    look = {};
    Result result = identifyDrive(look.mIdentity);
    if (!result.good() || !table) {
        return result;
    }
    DriveTable drive;
    look.mTableFailure = tableFailure(drive);
    for (int index = 0; index < drive.numPartitions(); ++index) {
        look.mPartitions.push_back(lookAt(*drive.getPartition(index), index));
    }
    findRecordingPartitions(look);
    look.mProblem = look.mTableFailure;
    for (const PartitionLook* const partition : {look.storage(), look.data()}) {
        if (look.mProblem.empty()) {
            look.mProblem = sizeProblem(partition);
        }
    }
    return result;
}

Result lookWhenQuiet(DriveLook& look) {
    constexpr int tries = 100;
    constexpr auto interval = std::chrono::milliseconds(100);
    for (int attempt = 0;; ++attempt) {
        Result result = lookAtDrive(look);
        const bool busy = std::any_of(
            look.mPartitions.begin(), look.mPartitions.end(), [](const PartitionLook& partition) {
                return partition.mMountPoints.empty() && partition.isClaimed();
            });
        if (!busy || attempt == tries) {
            return result;
        }
        std::this_thread::sleep_for(interval);
    }
}

}  // namespace app
