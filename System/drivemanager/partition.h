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

/// A partition, created and owned by the sysHardDrive that lists it.
///
/// Threads: one thread at a time may run operations; the owner ensures this (sysDVRDrive with its
/// operation lock). While an operation runs, other threads may call only the progress values and
/// the three measurements fsCapacity(), fsFree() and fsBlockSize(), which do not wait for it.
///
/// No operation throws anything but std::bad_alloc. Failures are reported by the result and, where
/// stated, by a message at level 1 or with perror().
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
        eFailIdentify = 2,    ///< the drive does not answer an identity request
        eFailCapacity = 3,    ///< the kernel does not report a size of the drive
        eFailMissing = 4,     ///< the drive has no such partition
        eFailNotMounted = 5,  ///< the partition is not mounted
        eFailUnmount = 6,     ///< the kernel refused to unmount, as it does while a file is open
        eFailFormat = 7,      ///< the formatter failed or could not be run
        eFailDirectory = 8,   ///< a mount directory could not be created
        eFailMount = 9,       ///< the mount command failed or could not be run
        eFailCheck = 10,      ///< the checker did not exit with status 0 or could not be run
        eFailThread = 11,     ///< a worker thread could not be created
        eFailMemory = 12,     ///< out of memory
    };

    /// Why an operation failed.
    struct Failure {
        /// the step that failed
        FailureStep mStep = eFailNone;
        /// errno of the system call that failed; 0 if no call failed
        int mErrno = 0;
        /// Raw wait status of the tool, as waitpid() and system() return it; 0 if no tool ran, -1
        /// if it could not be run or waited for (mErrno has the reason). The shell that runs
        /// "/bin/mount" exits with 127 if there is no such program.
        int mToolStatus = 0;
        /// Device node, or for eFailDirectory the directory, truncated to 255 bytes; "" if the
        /// failure concerns neither.
        char mPath[256] = "";
    };

    /// Contents of a device, recognised by their signature.
    struct Signature {
        /// "ext2", "ext3", "ext4", "xfs", "btrfs", "crypto_LUKS", "LVM2_member",
        /// "linux_raid_member", "swap", "iso9660", "ntfs", "exfat", "vfat" or "gpt", as blkid(8)
        /// names them; static text. Null if there is no known signature.
        const char* mpName = nullptr;
        /// Label without trailing blanks, as stored on the device, in an unspecified encoding. ""
        /// if there is none, and for "exfat", "gpt", "LVM2_member" and "ntfs", whose labels are not
        /// read.
        char mLabel[257] = "";
        /// Size in bytes stated in the superblock, for ext2 to ext4, XFS and btrfs; otherwise 0.
        unsigned long long mSize = 0;
    };

    /// No partition until init().
    sysPartition();
    /// Does not unmount.
    virtual ~sysPartition();
    sysPartition(const sysPartition&) = delete;
    sysPartition& operator=(const sysPartition&) = delete;

    /// Sets the partition and recognises its file system from the superblock on the device. Blocks
    /// while the device is read.
    /// @param path device node; if it does not exist and its name ends in 'p' and a digit, the name
    /// with "-part" instead of 'p' is tried
    /// @param capacity size in bytes
    /// @param type the partition table's type byte; only type 0x83 (Linux) is read from the device
    /// @return true, even if the file system is unknown or the superblock cannot be read; false if
    /// the node does not exist or cannot be opened, which is logged at level 1 with its name
    bool init(const char* path, unsigned long long capacity, int type);

    /// @return the device node that init() found; valid until the next init()
    const char* path() const { return mPath.c_str(); }
    /// @return the size in bytes that was passed to init()
    unsigned long long capacity() const { return mCapacity; }
    /// @return the partition table's type byte that was passed to init()
    int type() const { return mType; }
    /// @return the file system that init() recognised; formatting does not change it
    FSType fileSystemType() const { return mFsType; }
    /// @return the volume label that init() read, or null if it is empty; valid until the next
    /// init()
    const char* label() const { return mLabel.empty() ? nullptr : mLabel.c_str(); }
    /// @return the directory where init(), isMounted() or mount() last found the partition mounted;
    /// null before that and after unmount(); valid until the next operation
    const char* mountpoint() const { return mMountPoint.empty() ? nullptr : mMountPoint.c_str(); }

    /// Looks the device up in /proc/mounts. Quick, does not touch the device.
    /// @return true if the device is listed, which sets mountpoint() to the directory of its first
    /// entry; otherwise false, with mountpoint() unchanged
    bool isMounted();

    /// Mounts the partition by running "/bin/mount" through the shell, which interprets the texts
    /// unquoted. If it is mounted elsewhere, unmounts it first. Blocks until the mount is complete.
    /// @param dir an existing directory; null fails
    /// @param fs "-t ext3", "-t xfs" or, for eFsUnknown, no type
    /// @param options argument of -o; null or empty for no -o
    /// @return true if mounted, at once if it was already mounted on `dir`; false if it could not
    /// be unmounted (see unmount()) or mounted (logged at level 1, and perror "Mount Failure")
    bool mount(const char* dir, FSType fs, const char* options);
    /// Mounts it as XFS. See mount().
    /// @param dir an existing directory; null fails
    /// @param options argument of -o; null or empty for no -o
    /// @return true if mounted
    bool xfs_mount(const char* dir, const char* options) { return mount(dir, eFsXfs, options); }
    /// Mounts it as ext3. See mount().
    /// @param dir an existing directory; null fails
    /// @param options argument of -o; null or empty for no -o
    /// @return true if mounted
    bool ext3_mount(const char* dir, const char* options) { return mount(dir, eFsExt3, options); }

    /// Unmounts the partition from mountpoint(). Blocks until buffered data is written.
    /// @return false if it is not mounted (logged at level 1) or the kernel refuses (perror "Umount
    /// failure"), for example because a file is open
    bool unmount();
    /// Unmounts the partition from every directory, under every name of its device node, the latest
    /// mount first. Blocks until buffered data is written.
    /// @return true if it is no longer mounted, or never was; false if the kernel refuses (perror
    /// "Umount failure"), if it is mounted again meanwhile, or if /proc/mounts cannot be read
    bool unmountAll();
    /// Lists the mount directories of a device, in the order of /proc/mounts. An entry matches if
    /// it has the same name or if both names are nodes of the same block device. Quick, does not
    /// touch the device; any thread. Logs nothing. Throws only std::bad_alloc.
    /// @param device device node; not null
    /// @param[out] directories appended to, not cleared first; with the kernel's escapes decoded;
    /// not null
    /// @return false, with errno set, if /proc/mounts cannot be read
    static bool listMounts(const char* device, KestrovaVector<std::string>* directories);

    /// Measures the file system at mountpoint(). If another process has unmounted the partition,
    /// that is the file system that contains the directory.
    /// @return the size of the mounted file system in bytes; 0 if it is not known to be mounted,
    /// cannot be measured, or has a value that does not fit 32 bits, because the 32-bit statfs()
    /// then fails
    unsigned long long fsCapacity() const;
    /// @return the free bytes of the mounted file system, including the blocks reserved for root; 0
    /// on the failures of fsCapacity()
    unsigned long long fsFree() const;
    /// @return the block size of the mounted file system in bytes; 0 on the failures of
    /// fsCapacity()
    unsigned int fsBlockSize() const;

    /// Reads the size of the file system from the superblock on the device, mounted or not. If it
    /// is greater than capacity(), the partition has shrunk since it was formatted, and the kernel
    /// refuses to mount it. Blocks while the device is read. Any thread may call it, while any
    /// operation but init() runs. Logs nothing.
    /// @return bytes; 0 if the device cannot be read or holds none of ext2 to ext4, XFS and btrfs
    unsigned long long fileSystemSize() const;

    /// Looks for a known signature of a file system, volume manager or partition table on a device.
    /// Changes nothing. Blocks while the device is read; any thread. Logs nothing.
    /// @param device device node or image file
    /// @param[out] signature the signature found; not null. If a device holds several, one of them
    /// is returned; a file system that init() recognises has priority
    /// @return true if the device was read, even if it has no known signature; false, with errno
    /// set, if it cannot be opened or read
    static bool readSignature(const char* device, Signature* signature);

    /// Returns why the calling thread's last failed operation on any sysPartition failed: init(),
    /// mount(), unmount(), a format or a check. Like errno it is per thread, and success does not
    /// reset it. Never blocks, logs nothing.
    /// @param[out] failure the reason; not null; unchanged if false is returned
    /// @return false if no operation of this thread has failed yet
    static bool lastFailure(Failure* failure);

    /// Makes an ext3 file system: no blocks reserved for root, one inode per 2 MiB. Destroys
    /// existing data; does not check whether the partition is mounted. Blocks until the tool has
    /// exited. The tool runs at nice 10.
    /// @param label volume label, passed to the tool unchanged; ext3 stores 16 bytes; null fails
    /// @return true if "/sbin/mkfs.ext3" exits with status 0; a tool that cannot be executed is
    /// reported on standard error
    bool ext3_format(const char* label);
    /// Returns a progress value. Any thread may call it.
    /// @return the progress of the running or last ext3_format(), in thousandths of a per cent, 0
    /// to 100000; 100000 at the end, even if the tool failed, and 0 if fork() failed
    int ext3_format_progress() const { return mFormatProgress.load(std::memory_order_relaxed); }

    /// Makes an XFS file system. Destroys existing data; does not check whether the partition is
    /// mounted. Blocks until the tool has exited. The tool runs at nice 10. Its output is logged at
    /// level 1 as it arrives: the result of each read() is one message, followed by a byte 0xff.
    /// There is no progress value.
    /// @param label volume label, passed to the tool unchanged; XFS stores 12 bytes; null fails
    /// @return true if "/sbin/mkfs.xfs" exits with status 0; a tool that cannot be executed is
    /// reported on standard error
    bool xfs_format(const char* label);

    /// Checks and repairs an ext3 file system with "/sbin/fsck.ext3 -p". Blocks until the tool has
    /// exited. The tool runs at nice 10.
    /// @return true if the tool exits with status 0, and at once, without running it, if the
    /// partition is mounted; false otherwise, also for status 1 (errors corrected). No message
    /// gives the reason
    bool ext3_fscheck();
    /// Returns a progress value. Any thread may call it.
    /// @return the progress of the running or last ext3_fscheck(), in thousandths of a per cent, as
    /// ext3_format_progress(); each of the tool's five passes counts 20000. Within a pass of more
    /// than 42949 steps the value drops at times. The check of a mounted partition does not change
    /// it
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
    // Written by the operation's thread and read by any thread, without ordering between the two.
    std::atomic<std::int32_t> mCheckProgress{0};
    std::atomic<std::int32_t> mFormatProgress{0};
    // Held while mMountPoint is replaced and while a measurement uses it, so that measurements can
    // run during an operation and none is inside the file system when it is unmounted. The
    // operation's thread, the only writer, reads it without the lock.
    mutable base::Mutex mMountPointLock;
};

#endif
