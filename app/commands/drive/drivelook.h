// SPDX-License-Identifier: MIT
//
// The recording drive as it can be seen without changing anything: its node is opened for reading
// only, nothing is unmounted, and no system object is needed.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_DRIVELOOK_H
#define KESTROVA_APP_COMMANDS_DRIVE_DRIVELOOK_H

#include <string>
#include <vector>

#include "System/drivemanager/dvrdrive.h"
#include "app/cli/result.h"

namespace app {

/// The node that the library takes as the recording drive.
constexpr char kDriveDevice[] = "/dev/sda";
/// Where the library mounts the two partitions.
constexpr char kStorageDirectory[] = "/dvr";
constexpr char kDataDirectory[] = "/dvr/data";

/// What identifies a drive to the person who is to decide about its data.
struct DriveIdentity {
    std::string mModel;                ///< without padding
    std::string mSerial;               ///< without padding; empty when the drive does not tell it
    unsigned long long mCapacity = 0;  ///< bytes
};

/// A partition of the drive.
struct PartitionLook {
    int mIndex = 0;
    std::string mPath;                 ///< device node
    unsigned long long mCapacity = 0;  ///< bytes
    int mType = 0;                     ///< the partition table's type byte
    sysPartition::FSType mFileSystem = sysPartition::eFsUnknown;
    std::string mLabel;                        ///< empty for none
    KestrovaVector<std::string> mMountPoints;  ///< empty when it is not mounted
    unsigned long long mFileSystemSize = 0;    ///< bytes, by the superblock; 0 when not known

    bool isMountedOn(const char* directory) const;
    /// The partition has become smaller since the format, and the kernel refuses to mount it.
    bool isTooSmall() const { return mFileSystemSize > mCapacity; }
    /// Another program has it for itself: a formatter, a checker, a volume manager, or as swap
    /// space. Opens it, so that a formatter that starts at this moment may fail: for the holder of
    /// the drive's lock only.
    bool isClaimed() const;
};

/// What there is to see of the drive at one moment.
struct DriveLook {
    DriveIdentity mIdentity;
    std::string mTableFailure;  ///< why the partition table could not be read; empty when it was
    std::string mProblem;  ///< why the drive can't be used as it is; empty when nothing is wrong
    std::vector<PartitionLook> mPartitions;  ///< in the order of the partition table
    int mStorage = -1;                       ///< index of the partition "DVRStorage", or -1
    int mData = -1;                          ///< index of the partition "DVRData", or -1

    const PartitionLook* storage() const { return partition(mStorage); }
    const PartitionLook* data() const { return partition(mData); }
    /// The status that the drive has when no process works on it.
    sysDVRDrive::Status status() const;
    /// The directory that recordings belong into: that of the file system whose free space
    /// sysDVRDrive::freeMB() tells.
    const char* recordingDirectory() const {
        return data() != nullptr ? kDataDirectory : kStorageDirectory;
    }

private:
    const PartitionLook* partition(int index) const;
};

/// Size of a mounted file system. All 0 when it cannot be measured.
struct Space {
    unsigned long long mTotal = 0;  ///< bytes
    unsigned long long mFree = 0;   ///< bytes, including those reserved for root
    unsigned mBlockSize = 0;        ///< bytes
};

Space measureSpace(const std::string& directory);

/// Looks at the drive. Fails when there is no recording drive. Blocks for "/sbin/sfdisk -d" and,
/// when the disk is in standby, until it has spun up. Without `table` runs no tool and reads no
/// partition: a partition that is open makes another process's attempt to write a new table fail.
Result lookAtDrive(DriveLook& look, bool table = true);

/// As lookAtDrive(), for the holder of the drive's lock: waits up to 10 s for a formatter, checker
/// or mount that an earlier holder has left behind, when it was killed.
Result lookWhenQuiet(DriveLook& look);

/// Reads identity and size only; runs no tool. Fails when there is no recording drive.
Result identifyDrive(DriveIdentity& identity);

}  // namespace app

#endif
