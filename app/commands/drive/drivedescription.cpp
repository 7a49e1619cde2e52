// SPDX-License-Identifier: MIT
#include "app/commands/drive/drivedescription.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "app/commands/drive/drivefailure.h"
#include "app/commands/resourcelock.h"
#include "app/session.h"
#include "app/ui/colour.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

const char* fileSystemName(sysPartition::FSType type) {
    switch (type) {
        case sysPartition::eFsExt3:
            return "ext3";
        case sysPartition::eFsXfs:
            return "xfs";
        case sysPartition::eFsUnknown:
            break;
    }
    return "unknown";
}

Colour statusColour(const std::string& status) {
    if (status == "ready" || status == "started") {
        return eGreen;
    }
    return status == "none" || status == "error" ? eRed : eYellow;
}

bool isWork(const std::string& status) {
    return status == "formatting" || status == "starting";
}

std::string joined(const std::vector<std::string>& directories) {
    std::string text;
    for (const std::string& directory : directories) {
        text += (text.empty() ? "" : ", ") + printable(directory);
    }
    return text;
}

std::string mebibytesText(unsigned long long bytes) {
    return std::to_string(bytes >> 20U) + " MiB";
}

/// Returns, for example, "Storage:   /dvr, 250 MiB free of 256 MiB".
std::string spaceText(const char* title, const PartitionLook* partition) {
    if (partition == nullptr) {
        return {};
    }
    std::string text = padded(title, 11);
    if (partition->mMountPoints.empty()) {
        return text + mebibytesText(partition->mCapacity) + ", not mounted\n";
    }
    const std::string& directory = partition->mMountPoints.front();
    const Space space = measureSpace(directory);
    return text + printable(directory) + ", " + mebibytesText(space.mFree) + " free of " +
           mebibytesText(space.mTotal) + "\n";
}

Json spaceData(const PartitionLook* partition) {
    Json data;
    if (partition == nullptr) {
        return data;
    }
    data.add("device", partition->mPath);
    if (partition->mMountPoints.empty()) {
        data.add("mountpoint", nullptr).add("size", partition->mCapacity).add("free", nullptr);
    } else {
        const std::string& directory = partition->mMountPoints.front();
        const Space space = measureSpace(directory);
        data.add("mountpoint", directory).add("size", space.mTotal).add("free", space.mFree);
    }
    return data;
}

/// Measures the file system that sysDVRDrive::freeMB() measures.
Space recordingSpace(const DriveLook& look) {
    const PartitionLook* const partition = look.data() != nullptr ? look.data() : look.storage();
    if (partition == nullptr || partition->mMountPoints.empty()) {
        return {};
    }
    return measureSpace(partition->mMountPoints.front());
}

}  // namespace

const char* statusName(sysDVRDrive::Status status) {
    switch (status) {
        case sysDVRDrive::eStNone:
            return "none";
        case sysDVRDrive::eStError:
            return "error";
        case sysDVRDrive::eStNotFormatted:
            return "not-formatted";
        case sysDVRDrive::eStFormatting:
            return "formatting";
        case sysDVRDrive::eStReady:
            return "ready";
        case sysDVRDrive::eStStarting:
            return "starting";
        case sysDVRDrive::eStStarted:
            return "started";
    }
    return "unknown";
}

sysDVRDrive::Status statusOf(sysDVRDrive& drive) {
    sysDVRDrive::Status status = sysDVRDrive::eStNone;
    drive.getStatus(&status, nullptr);
    return status;
}

bool isStatusName(const std::string& text) {
    for (int status = sysDVRDrive::eStNone; status <= sysDVRDrive::eStStarted; ++status) {
        if (text == statusName(static_cast<sysDVRDrive::Status>(status))) {
            return true;
        }
    }
    return false;
}

DriveState stateOfDrive(const Session& session) {
    DriveState state;
    // A user without permission to read the lock still sees the drive.
    if (!session.claimsDrive()) {
        (void)sysResourceLock::holder(sysResourceLock::eResRecordingDrive, state.mHolder);
    }
    state.mFound = lookAtDrive(state.mLook, state.mHolder.mState != "partitioning");
    state.mStatus = statusName(state.mLook.status());
    if (session.drive() != nullptr) {
        sysDVRDrive::Status status = sysDVRDrive::eStNone;
        session.drive()->getStatus(&status, &state.mProgress);
        state.mStatus = statusName(status);
    } else if (isStatusName(state.mHolder.mState)) {
        state.mStatus = state.mHolder.mState;
        state.mProgress = state.mHolder.mPercent;
    } else if (state.mHolder.mState == "partitioning") {
        state.mStatus = statusName(sysDVRDrive::eStNone);
    }
    return state;
}

std::string holderText(const sysResourceLock::Holder& holder) {
    const auto since = static_cast<std::time_t>(holder.mSince);
    std::tm parts = {};
    char time[32] = "";
    if (::localtime_r(&since, &parts) != nullptr) {
        (void)std::strftime(time, sizeof(time), " since %H:%M:%S", &parts);
    }
    return "process " + std::to_string(holder.mPid) + " (" + printable(holder.mCommand) + ")" +
           time;
}

std::string driveName(const DriveIdentity& identity) {
    return std::string(kDriveDevice) + " (model " + printable(identity.mModel) + ", " +
           sizeText(identity.mCapacity) + ")";
}

std::string statusText(const DriveState& state) {
    std::string text = "Status:    " + coloured(state.mStatus, statusColour(state.mStatus));
    // Without running work the progress is 100, which would look wrong after "not-formatted".
    if (isWork(state.mStatus)) {
        text += ", " + std::to_string(state.mProgress) + " %";
    }
    if (state.mStatus == "not-formatted") {
        text += state.mLook.mPartitions.empty() ? "; 'drive partition' comes next"
                                                : "; 'drive format' comes next";
    }
    text += "\n";
    if (!state.mLook.mProblem.empty()) {
        text += "Problem:   " + state.mLook.mProblem + "\n";
    }
    if (state.mHolder.mPid != 0) {
        text += "In use by: " + holderText(state.mHolder);
        if (!state.mHolder.mState.empty() && !isStatusName(state.mHolder.mState)) {
            text += ", " + printable(state.mHolder.mState) + " " +
                    std::to_string(state.mHolder.mPercent) + " %";
        }
        text += "\n";
    }
    text += spaceText("Storage:", state.mLook.storage()) + spaceText("Data:", state.mLook.data());
    if (state.mLook.status() == sysDVRDrive::eStStarted) {
        text += std::string("Record to: ") + state.mLook.recordingDirectory() + "\n";
    }
    return text;
}

Json statusData(const DriveState& state) {
    const DriveLook& look = state.mLook;
    const Space space = recordingSpace(look);
    Json data;
    data.add("status", state.mStatus).add("progress", state.mProgress);
    data.add("totalMiB", space.mTotal >> 20U).add("freeMiB", space.mFree >> 20U);
    data.add("blockSize", space.mBlockSize);
    data.add("storage", spaceData(look.storage())).add("data", spaceData(look.data()));
    data.add("recordings", look.storage() != nullptr ? look.recordingDirectory() : nullptr);
    data.add("problem", look.mProblem.empty() ? nullptr : look.mProblem.c_str());
    return data.add(holderData(state.mHolder));
}

std::string partitionsText(const DriveLook& look) {
    if (!look.mTableFailure.empty()) {
        return "Partitions: not known\n";
    }
    if (look.mPartitions.empty()) {
        return "Partitions: none\n";
    }
    std::string text = "Partitions:\n";
    for (const PartitionLook& partition : look.mPartitions) {
        char type[8];
        (void)std::snprintf(type, sizeof(type), "%02X", static_cast<unsigned>(partition.mType));
        text += "  " + std::to_string(partition.mIndex) + "  " +
                padded(printable(partition.mPath), 10) + "  " +
                padded(sizeText(partition.mCapacity), 9) + "  type " + type + "  " +
                padded(fileSystemName(partition.mFileSystem), 7) + "  " +
                padded(partition.mLabel.empty() ? "-" : printable(partition.mLabel), 12) + "  " +
                (partition.isTooSmall() ? "needs " + sizeText(partition.mFileSystemSize) +
                                              ", the partition is too small, "
                                        : "") +
                (partition.mMountPoints.empty() ? "not mounted"
                                                : "on " + joined(partition.mMountPoints)) +
                "\n";
    }
    return text;
}

Json partitionsData(const DriveLook& look) {
    Json partitions = Json::array();
    for (const PartitionLook& partition : look.mPartitions) {
        Json data;
        data.add("index", partition.mIndex).add("path", partition.mPath);
        data.add("capacity", partition.mCapacity).add("type", partition.mType);
        data.add("filesystem", fileSystemName(partition.mFileSystem));
        data.add("label", partition.mLabel.empty() ? nullptr : partition.mLabel.c_str());
        data.add("filesystemSize", partition.mFileSystemSize);
        data.add("mountpoint",
                 partition.mMountPoints.empty() ? nullptr : partition.mMountPoints.front().c_str());
        partitions.append(data);
    }
    return partitions;
}

std::string noDriveReason() {
    const std::string device = kDriveDevice;
    if (::access(kDriveDevice, R_OK | W_OK) != 0) {
        return "the drive can't be used: " + device + ": " + rootErrorText(errno);
    }
    sysPartition::Failure failure;
    if (sysPartition::lastFailure(&failure) && failure.mStep == sysPartition::eFailUnmount) {
        return "the drive is in use: " + driveFailureText(failure) + "; end what uses it";
    }
    return "the drive can't be used: " + device + " does not report its identity or size";
}

std::string failureReason(const sysDVRDrive& drive) {
    sysPartition::Failure failure;
    return drive.lastFailure(&failure) ? driveFailureText(failure) : std::string();
}

}  // namespace app
