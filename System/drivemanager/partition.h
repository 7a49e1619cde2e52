// SPDX-License-Identifier: MIT
/// @file
/// One partition of a hard drive: its file system, its mount state, formatting and checking.
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
    /// File systems that are recognised by their superblocks.
    enum FSType {
        eFsUnknown = 0,  ///< none of these
        eFsExt3 = 1,     ///< ext2 or ext3
        eFsXfs = 2,      ///< XFS
    };

    /// No partition until init().
    sysPartition();
    /// Does not unmount.
    virtual ~sysPartition();
    sysPartition(const sysPartition&) = delete;
    sysPartition& operator=(const sysPartition&) = delete;

    /// Takes over a partition and recognises its file system from the superblock on the device.
    /// Blocks while the device is read.
    /// @param path device node; when there is none of that name and the name ends in 'p' and a
    /// digit, the same name ending in "-part" and the digit is tried
    /// @param capacity size in bytes
    /// @param type the partition table's type byte; only type 0x83 (Linux) is read from the device
    /// @return true also for a partition without a known file system, or whose superblock cannot be
    /// read; false when the node does not exist or cannot be opened, which is logged at level 1
    /// with its name
    bool init(const char* path, unsigned long long capacity, int type);

    /// @return device node, as init() found it; valid until the next init()
    const char* path() const { return mPath.c_str(); }
    /// @return size in bytes as given to init()
    unsigned long long capacity() const { return mCapacity; }
    /// @return partition table's type byte as given to init()
    int type() const { return mType; }
    /// @return what init() recognised; formatting does not change it
    FSType fileSystemType() const { return mFsType; }
    /// @return volume label that init() read, or null when it is empty; valid until the next init()
    const char* label() const { return mLabel.empty() ? nullptr : mLabel.c_str(); }
    /// @return directory where init(), isMounted() or mount() last found it mounted; null before
    /// that and after unmount(); valid until the next operation
    const char* mountpoint() const { return mMountPoint.empty() ? nullptr : mMountPoint.c_str(); }

    /// Looks the device up in /proc/mounts. Quick, does not touch the device.
    /// @return true when it is listed: mountpoint() is then the directory of its first entry; false
    /// otherwise, with mountpoint() as it was
    bool isMounted();

    /// Mounts it by running "/bin/mount" through the shell, which is given the texts as they are.
    /// When it is mounted elsewhere it is unmounted first. Blocks for as long as the mount takes.
    /// @param dir directory, which has to be there; null fails
    /// @param fs "-t ext3", "-t xfs" or, for eFsUnknown, no type
    /// @param options what comes behind -o; null or empty for no -o
    /// @return true when mounted, at once when it already was there; false when it could not be
    /// unmounted, as unmount() tells, or not be mounted (logged at level 1, and perror "Mount
    /// Failure")
    bool mount(const char* dir, FSType fs, const char* options);
    /// As mount(), as XFS.
    /// @param dir as there
    /// @param options as there
    /// @return as there
    bool xfs_mount(const char* dir, const char* options) { return mount(dir, eFsXfs, options); }
    /// As mount(), as ext3.
    /// @param dir as there
    /// @param options as there
    /// @return as there
    bool ext3_mount(const char* dir, const char* options) { return mount(dir, eFsExt3, options); }

    /// Unmounts it. Blocks until what is buffered is written.
    /// @return false when it is not mounted (logged at level 1) or the kernel refuses (perror
    /// "Umount failure"), as it does while a file is open
    bool unmount();

    /// Measures what is at mountpoint(); when somebody else has unmounted the partition, that is
    /// the file system below.
    /// @return size of the mounted file system in bytes; 0 when it is not known to be mounted,
    /// cannot be measured, or has a figure that does not fit 32 bits, as the 32-bit statfs fails
    /// then
    unsigned long long fsCapacity() const;
    /// @return free bytes of the mounted file system, the blocks reserved for root among them; 0 as
    /// fsCapacity()
    unsigned long long fsFree() const;
    /// @return block size of the mounted file system in bytes; 0 as fsCapacity()
    unsigned int fsBlockSize() const;

    /// Makes an ext3 file system: no blocks reserved for root, one inode per 2 MiB. Destroys what
    /// is there; does not test whether it is mounted. Blocks until the tool has ended, at nice 10.
    /// @param label volume label, given to the tool as it is; ext3 has room for 16 bytes; not null
    /// @return true when "/sbin/mkfs.ext3" ends with status 0; one that cannot be executed is told
    /// on standard error
    bool ext3_format(const char* label);
    /// Any thread may ask.
    /// @return progress of the running or last ext3_format(), in thousandths of a per cent, 0 to
    /// 100000; it ends at 100000 also when the tool failed, and stays 0 when there was no process
    /// for it
    int ext3_format_progress() const { return mFormatProgress.load(std::memory_order_relaxed); }

    /// Makes an XFS file system, over whatever is there; the tool's output is logged at level 1,
    /// character by character, with a byte 0xff at its end. Otherwise as ext3_format(); there is no
    /// progress value.
    /// @param label volume label, given to the tool as it is; XFS has room for 12 bytes; not null
    /// @return true when "/sbin/mkfs.xfs" ends with status 0
    bool xfs_format(const char* label);

    /// Checks and repairs an ext3 file system with "/sbin/fsck.ext3 -p". Blocks until the tool has
    /// ended, at nice 10.
    /// @return true when the tool ends with status 0, or at once, with nothing run, when the
    /// partition is mounted; status 1, errors corrected, is false too. No message tells why
    bool ext3_fscheck();
    /// Any thread may ask.
    /// @return progress of the running or last ext3_fscheck(), as ext3_format_progress(); each of
    /// the tool's five passes is worth 20000. Within a pass of more than 42949 steps it falls back
    /// now and then. A partition that was mounted leaves it as it was
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
