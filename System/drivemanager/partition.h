// SPDX-License-Identifier: MIT
/// @file
/// One partition of a hard drive: its file system, its mount state, formatting and checking.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_PARTITION_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_PARTITION_H

#include <atomic>
#include <cstdint>
#include <string>

#include "base/export.h"
#include "base/threadsafety.h"
#include "base/vector.h"

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
    enum FSType : int {
        eFsUnknown = 0,  ///< none of these
        eFsExt3 = 1,     ///< ext2 or ext3
        eFsXfs = 2,      ///< XFS
    };

    /// The step at which an operation on a drive or a partition failed.
    enum FailureStep : int {
        eFailNone = 0,        ///< no failure
        eFailOpen = 1,        ///< a device node is missing or cannot be opened
        eFailIdentify = 2,    ///< the drive answers no identity request
        eFailCapacity = 3,    ///< the kernel reports no size of the drive
        eFailMissing = 4,     ///< the drive has no such partition
        eFailNotMounted = 5,  ///< the partition is not mounted
        eFailUnmount = 6,     ///< the kernel refused to unmount, as it does while a file is open
        eFailFormat = 7,      ///< the formatter failed or could not be run
        eFailDirectory = 8,   ///< a mount directory could not be made
        eFailMount = 9,       ///< the mount command failed or could not be run
        eFailCheck = 10,      ///< the checker did not end with status 0 or could not be run
        eFailThread = 11,     ///< there was no thread for a worker
        eFailMemory = 12,     ///< there was no memory
    };

    /// Why an operation failed.
    struct Failure {
        /// which step failed
        FailureStep mStep = eFailNone;
        /// errno of the system call that failed; 0 if no call failed
        int mErrno = 0;
        /// Raw wait status of the tool, as waitpid() and system() return it; 0 if no tool ran, -1
        /// if it could not be run or waited for (mErrno says why). The shell that runs "/bin/mount"
        /// exits with 127 if there is no such program.
        int mToolStatus = 0;
        /// Device node, or for eFailDirectory the directory, cut to its first 255 bytes; "" if the
        /// failure concerns none.
        char mPath[256] = "";
    };

    /// What a device holds, recognised by its signature.
    struct Signature {
        /// "ext2", "ext3", "ext4", "xfs", "btrfs", "crypto_LUKS", "LVM2_member",
        /// "linux_raid_member", "swap", "iso9660", "ntfs", "exfat", "vfat" or "gpt", as blkid(8)
        /// names them; static text. Null if there is no known signature.
        const char* mpName = nullptr;
        /// Label without trailing blanks, as the device holds it, in no particular encoding. ""
        /// for none, and for "exfat", "gpt", "LVM2_member" and "ntfs", whose labels are not read.
        char mLabel[257] = "";
        /// Size in bytes that the superblock states, for ext2 to ext4, XFS and btrfs; otherwise 0.
        unsigned long long mSize = 0;
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
    /// Unmounts it from every directory, under whatever name of its device node it was mounted, the
    /// latest mount first. Blocks until what is buffered is written.
    /// @return true if it is mounted nowhere, also if it never was; false if the kernel refuses
    /// (perror "Umount failure"), if it is mounted again meanwhile, or if /proc/mounts cannot be
    /// read
    bool unmountAll();
    /// Lists where a device is mounted, in the order of /proc/mounts. An entry counts if it has the
    /// same name or if both names are nodes of the same block device. Quick, does not touch the
    /// device; any thread. Logs nothing. Throws only allocation failure.
    /// @param device device node; not null
    /// @param[out] directories appended to, not cleared first; without the kernel's escapes; not
    /// null
    /// @return false, with errno, if /proc/mounts cannot be read
    static bool listMounts(const char* device, KestrovaVector<std::string>* directories);

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

    /// Reads the size of the file system from the superblock on the device, mounted or not. If it
    /// is greater than capacity(), the partition has become smaller since the format, and the
    /// kernel refuses to mount it. Blocks while the device is read; any thread, beside any
    /// operation but init(). Logs nothing.
    /// @return bytes; 0 if the device cannot be read or holds none of ext2 to ext4, XFS and btrfs
    unsigned long long fileSystemSize() const;

    /// Looks for a known signature of a file system, volume manager or partition table on a device.
    /// Changes nothing. Blocks while the device is read; any thread. Logs nothing.
    /// @param device device node or image file
    /// @param[out] signature what was found; not null. If a device holds several signatures, one of
    /// them, that of a file system that init() recognises first
    /// @return true if the device was read, also without a known signature; false, with errno, if
    /// it cannot be opened or read
    static bool readSignature(const char* device, Signature* signature);

    /// Returns why the last operation of the calling thread on any sysPartition failed: init(),
    /// mount(), unmount(), a format or a check. Like errno it is kept for each thread, and success
    /// does not reset it. Never blocks, logs nothing.
    /// @param[out] failure the reason; not null; unchanged if false is returned
    /// @return false if no operation of this thread has failed yet
    static bool lastFailure(Failure* failure);

    /// Makes an ext3 file system: no blocks reserved for root, one inode per 2 MiB. Destroys what
    /// is there; does not test whether it is mounted. Blocks until the tool has ended, at nice 10.
    /// @param label volume label, given to the tool as it is; ext3 has room for 16 bytes; null
    /// fails
    /// @return true when "/sbin/mkfs.ext3" ends with status 0; one that cannot be executed is told
    /// on standard error
    bool ext3_format(const char* label);
    /// Any thread may ask.
    /// @return progress of the running or last ext3_format(), in thousandths of a per cent, 0 to
    /// 100000; it ends at 100000 also when the tool failed, and stays 0 when there was no process
    /// for it
    int ext3_format_progress() const { return mFormatProgress.load(std::memory_order_relaxed); }

    /// Makes an XFS file system, over whatever is there; the tool's output is logged at level 1 as
    /// it comes, what one read returns as one message, with a byte 0xff at its end. Otherwise as
    /// ext3_format(); there is no progress value.
    /// @param label volume label, given to the tool as it is; XFS has room for 12 bytes; null fails
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
    KESTROVA_LOCAL bool unmountFrom(std::string directory);
    KESTROVA_LOCAL void putPath(const std::string& path);
    KESTROVA_LOCAL void putMountPoint(std::string directory) KESTROVA_EXCLUDES(mMountPointLock);
    KESTROVA_LOCAL std::string takeMountPoint() KESTROVA_EXCLUDES(mMountPointLock);

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
    // can run beside an operation and none is inside the file system when it is unmounted. The
    // thread of the operation, the only writer, reads it without the lock.
    mutable base::Mutex mMountPointLock;
};

#endif
