// SPDX-License-Identifier: MIT
//
// One partition of a hard drive: its file system, its mount state, formatting and checking.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_PARTITION_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_PARTITION_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "base/export.h"

/// A partition, made and owned by the sysHardDrive that lists it.
///
/// Threads: one at a time may run operations; the owner sees to that (sysDVRDrive by its operation
/// lock). Beside a running operation any thread may call only the progress values and the three
/// measurements fsCapacity(), fsFree() and fsBlockSize(), which answer at once.
///
/// No operation throws anything but allocation failure. Failures are told by the result, and where
/// it says so by a message at level 1 or by perror.
class KESTROVA_EXPORT sysPartition {
public:
    enum FSType {
        eFsUnknown = 0,
        eFsExt3 = 1,  ///< ext2 or ext3
        eFsXfs = 2,
    };

    sysPartition();
    /// Does not unmount.
    virtual ~sysPartition();
    sysPartition(const sysPartition&) = delete;
    sysPartition& operator=(const sysPartition&) = delete;

    /// Takes over a partition and recognises its file system from the superblock on the device.
    /// `path` is the device node; when there is none of that name and the name ends in 'p' and a
    /// digit, the same name ending in "-part" and the digit is tried. `capacity` is in bytes;
    /// `type` is the partition table's type byte. Only type 0x83 (Linux) is read from the device.
    /// True also for a partition without a known file system. False when the node does not exist
    /// or cannot be opened, which is logged with its name. Blocks while the device is read.
    bool init(const char* path, unsigned long long capacity, int type);

    /// Device node, as init() found it. Valid as long as the object.
    const char* path() const { return mPath.c_str(); }
    /// Size in bytes as given to init().
    unsigned long long capacity() const { return mCapacity; }
    /// Partition table's type byte as given to init().
    int type() const { return mType; }
    /// What init() recognised. Formatting does not change it.
    FSType fileSystemType() const { return mFsType; }
    /// Volume label that init() read, or null when it is empty. Valid until the next init().
    const char* label() const { return mLabel.empty() ? nullptr : mLabel.c_str(); }
    /// Directory where it is known to be mounted, or null. Valid until the next operation.
    const char* mountpoint() const { return mMountPoint.empty() ? nullptr : mMountPoint.c_str(); }

    /// True when /proc/mounts lists the device; mountpoint() is then the directory of its first
    /// entry. False otherwise, with mountpoint() as it was. Quick, does not touch the device.
    bool isMounted();

    /// Mounts on the directory by running "/bin/mount" through the shell, with "-t ext3", "-t xfs"
    /// or no type, and with `options` behind -o unless they are null or empty. True at once when it
    /// is already mounted there; when it is mounted elsewhere it is unmounted first. The texts go
    /// to the shell as they are. False when that or the mount failed (logged, and perror "Mount
    /// Failure"). Blocks for as long as the mount takes.
    bool mount(const char* dir, FSType fs, const char* options);
    bool xfs_mount(const char* dir, const char* options) { return mount(dir, eFsXfs, options); }
    bool ext3_mount(const char* dir, const char* options) { return mount(dir, eFsExt3, options); }

    /// Unmounts it. False when it is not mounted (logged) or the kernel refuses (perror "Umount
    /// failure"), as it does while a file is open. Blocks until what is buffered is written.
    bool unmount();

    /// Total and free bytes of the mounted file system, the blocks reserved for root counted as
    /// free. 0 when it is not known to be mounted, cannot be measured, or has a figure that does
    /// not fit 32 bits, as the 32-bit statfs fails then.
    unsigned long long fsCapacity() const;
    unsigned long long fsFree() const;
    /// Block size of the mounted file system in bytes; 0 as above.
    unsigned int fsBlockSize() const;

    /// Makes an ext3 file system with this volume label: no blocks reserved for root, one inode per
    /// 2 MiB. True when "/sbin/mkfs.ext3" ends with status 0. Destroys what is there; does not test
    /// whether it is mounted. Blocks until the tool has ended, at nice 10.
    bool ext3_format(const char* label);
    /// Progress of the running or last ext3_format(), in thousandths of a per cent, 0 to 100000;
    /// it ends at 100000 also on failure. Any thread may ask.
    int ext3_format_progress() const { return mFormatProgress.load(std::memory_order_relaxed); }

    /// Makes an XFS file system with this label, over whatever is there. True when "/sbin/mkfs.xfs"
    /// ends with status 0; its output is logged at level 1. Otherwise as ext3_format(); there is no
    /// progress value.
    bool xfs_format(const char* label);

    /// Checks and repairs an ext3 file system with "/sbin/fsck.ext3 -p". True when the tool ends
    /// with status 0, or at once, with nothing run, when the partition is mounted. Status 1, errors
    /// corrected, is false too. Blocks until the tool has ended, at nice 10.
    bool ext3_fscheck();
    /// Progress of the running or last ext3_fscheck(), as ext3_format_progress().
    int ext3_fscheck_progress() const { return mCheckProgress.load(std::memory_order_relaxed); }

private:
    KESTROVA_LOCAL void recognise(int descriptor);
    KESTROVA_LOCAL void putMountPoint(std::string directory);
    KESTROVA_LOCAL std::string takeMountPoint();

    std::string mPath;
    std::string mMountPoint;
    std::string mLabel;
    unsigned long long mCapacity = 0;
    int mType = 0;
    FSType mFsType = eFsUnknown;
    // Written by the operation's thread, read by any: single words, no order between them.
    std::atomic<std::int32_t> mCheckProgress{0};
    std::atomic<std::int32_t> mFormatProgress{0};
    // Held while mMountPoint is replaced and while a measurement uses it, so that the measurements
    // can run beside an operation and none is inside the file system when it is unmounted.
    mutable std::mutex mMountPointLock;
};

#endif
