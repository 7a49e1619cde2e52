// SPDX-License-Identifier: MIT
//
// Queries the recording drive without changing anything: opens its node for reading only, unmounts
// nothing, and needs no system object.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_DRIVELOOK_H
#define KESTROVA_APP_COMMANDS_DRIVE_DRIVELOOK_H

#include <string>
#include <vector>

#include "System/drivemanager/dvrdrive.h"
#include "app/cli/result.h"

namespace app {

/// The node that the library uses as the recording drive.
constexpr char kDriveDevice[] = "/dev/sda";
/// The directories on which the library mounts the two partitions.
constexpr char kStorageDirectory[] = "/dvr";
constexpr char kDataDirectory[] = "/dvr/data";

/// Identifies a drive to the person who decides about its data.
struct DriveIdentity {
    std::string mModel;                ///< without padding
    std::string mSerial;               ///< without padding; empty if the drive does not report it
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
    KestrovaVector<std::string> mMountPoints;  ///< empty if it is not mounted
    unsigned long long mFileSystemSize = 0;    ///< bytes, from the superblock; 0 if unknown

    bool isMountedOn(const char* directory) const;
    /// The partition has shrunk since it was formatted, and the kernel refuses to mount it.
    bool isTooSmall() const { return mFileSystemSize > mCapacity; }
    /// Another program has exclusive use of it: a formatter, a checker, a volume manager, or the
    /// kernel as swap space. Only the holder of the drive's lock may call this: it opens the
    /// partition, so that a formatter that starts at this moment can fail.
    bool isClaimed() const;
};

/// The state of the drive at one moment.
struct DriveLook {
    DriveIdentity mIdentity;
    std::string mTableFailure;  ///< why the partition table could not be read; empty if it was read
    std::string mProblem;       ///< why the drive cannot be used; empty if there is no problem
    std::vector<PartitionLook> mPartitions;  ///< in the order of the partition table
    int mStorage = -1;                       ///< index of the partition "DVRStorage", or -1
    int mData = -1;                          ///< index of the partition "DVRData", or -1

    const PartitionLook* storage() const { return partition(mStorage); }
    const PartitionLook* data() const { return partition(mData); }
    /// The status of the drive when no process works on it.
    sysDVRDrive::Status status() const;
    /// The directory for recordings: the one whose free space sysDVRDrive::freeMB() returns.
    const char* recordingDirectory() const {
        return data() != nullptr ? kDataDirectory : kStorageDirectory;
    }

private:
    const PartitionLook* partition(int index) const;
};

/// Size of a mounted file system. All 0 if it cannot be measured.
struct Space {
    unsigned long long mTotal = 0;  ///< bytes
    unsigned long long mFree = 0;   ///< bytes, including the space reserved for root
    unsigned mBlockSize = 0;        ///< bytes
};

Space measureSpace(const std::string& directory);

/// Queries the drive. Fails if there is no recording drive. Blocks for "/sbin/sfdisk -d" and, if
/// the disk is in standby, until it has spun up. Without `table` it runs no tool and reads no
/// partition, because an open partition makes another process's attempt to write a new table fail.
Result lookAtDrive(DriveLook& look, bool table = true);

/// Like lookAtDrive(), for the holder of the drive's lock: waits up to 10 s for a formatter,
/// checker or mount that a killed holder has left running.
Result lookWhenQuiet(DriveLook& look);

/// Reads identity and size only; runs no tool. Fails if there is no recording drive.
Result identifyDrive(DriveIdentity& identity);

}  // namespace app

#endif
