// SPDX-License-Identifier: MIT
/// @file
/// The recording drive: the disk "/dev/sda" with its storage and data partitions.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_DVRDRIVE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_DVRDRIVE_H

#include <pthread.h>

#include <cstdint>
#include <string>

#include "System/drivemanager/harddrive.h"
#include "base/export.h"
#include "base/threadsafety.h"

/// The recording drive of the box: two XFS partitions, "DVRStorage" (partition 0, mounted on "/dvr"
/// with project quotas) and "DVRData" (partition 1, mounted on "/dvr/data").
///
/// Formatting and mounting run on a worker thread while the caller polls getStatus(). There is at
/// most one worker; nobody joins it, it ends by itself. The directory "/dvr" has to be there;
/// "/dvr/data" is made in the mounted storage partition.
///
/// Threads: any thread may call any operation named in this class. init(), initialize(), start(),
/// stop() and shut() take turns: each blocks while another one, or the worker of initialize() or
/// start(), runs. getStatus(), setStatus(), blockSize(), freeMB(), totalMB(),
/// recordingDirectory(), partitionSpace() and lastFailure() answer whatever runs, after two statfs
/// at the most. What is inherited takes no part in this: call it while no
/// other operation runs, and enclose partitionCustom(), partitionOneBig() and scanPartitions() in
/// shut() and init(). shut() and deletion may follow an operation at once; deletion waits for a
/// worker.
///
/// Processes: init() unmounts what another process has mounted and records to. By convention every
/// process holds a sysResourceLock of eResRecordingDrive, exclusively, from before the first init()
/// (SystemInit() calls it) until after the last operation.
///
/// Failures are told by the result and by the status eStError; only allocation failure is thrown.
class KESTROVA_EXPORT sysDVRDrive : public sysHardDrive {
public:
    /// Where the drive stands. Operations are refused in states that they do not name.
    enum Status : int {
        eStNone = 0,          ///< not initialised, or shut
        eStError = 1,         ///< the last operation failed
        eStNotFormatted = 2,  ///< drive found, no "DVRStorage" partition
        eStFormatting = 3,    ///< format worker running
        eStReady = 4,         ///< formatted, not mounted
        eStStarting = 5,      ///< mount worker running
        eStStarted = 6,       ///< file systems mounted
    };

    /// One of the two partitions.
    enum Part : int {
        ePartStorage = 0,  ///< "DVRStorage", mounted on "/dvr"
        ePartData = 1,     ///< "DVRData", mounted on "/dvr/data"
    };

    /// Status eStNone; touches no disk.
    sysDVRDrive();
    /// Waits for a worker; unmounts nothing.
    ~sysDVRDrive() override;

    using sysHardDrive::init;
    /// Forgets the partitions, status eStNone. What is mounted stays mounted.
    /// @return true always
    bool shut() override;
    /// Identifies "/dev/sda", finds the two partitions by file system and label, and unmounts them.
    /// The status is then eStReady or, without a storage partition, eStNotFormatted: also when the
    /// partitions could not be listed or read, so it is no proof that nothing would be lost by a
    /// format. When the partition usage table (BlockdeviceConfig) names no settings partition, the
    /// drive's delayed standby is armed, as it is after a format and by stop(). Accepted in every
    /// state; the way out of eStError, and the way to know a new partition table or new labels.
    /// A partition is unmounted from every directory, under whatever name of its device node.
    /// @return false, with status eStError, when there is no such drive (as sysHardDrive::init()
    /// tells), or one of the two is mounted and busy or the mount table cannot be read (logged at
    /// level 1)
    virtual bool init();

    /// Starts formatting: partition 1 as "DVRData", then partition 0 as "DVRStorage", each
    /// unmounted from every directory first. All data of the two partitions are lost. The partition
    /// table is not written: a new drive is partitioned first. A partition fails that is missing,
    /// busy, or whose tool fails, as sysPartition::xfs_format() tells. The worker ends in eStReady
    /// when the storage partition was formatted, also after a failure on the data partition, else
    /// in eStError. After a failure on the data partition the status is eStError while the storage
    /// partition is still being formatted: stop(), which is refused in that state, returns when the
    /// worker has ended. Labels and types that init() read do not change.
    /// @return true when the worker runs, status eStFormatting; false from eStNone, eStFormatting,
    /// eStStarting and eStStarted, and when there can be no thread: the status stays eStFormatting
    /// then until init() or shut()
    bool initialize();
    /// Starts mounting, from eStReady: wakes the drive, then mounts storage and data. The worker
    /// ends in eStStarted, or in eStError, with a message at level 1, when either could not be
    /// mounted; what could be is still mounted then, and init() unmounts it.
    /// @return true when the worker runs, status eStStarting; false from other states, logged at
    /// level 1 with status and partition, and when there can be no thread, told by perror: the
    /// status stays eStStarting then until init() or shut()
    bool start();
    /// Unmounts both file systems, from eStStarted. Blocks until all is written.
    /// @return true with status eStReady; false from other states, which stay, and with status
    /// eStError when one was busy or no longer mounted, as sysPartition::unmount() tells; init()
    /// unmounts what is left
    bool stop();

    /// Tells status and progress, both of the same moment.
    /// @param[out] status may be null
    /// @param[out] progress of what runs, in per cent: 100 when nothing does, 0 while starting;
    /// while formatting 5, 30 (storage), 60 (data) or 90 (both) as the partitions are known, so
    /// that a drive without them goes 5, 60, 90, and one that had both stays at 90; may be null
    void getStatus(Status* status, int* progress);
    /// Stores a status; does nothing else.
    /// @param status the new one
    void setStatus(Status status);

    /// @return block size in bytes of the data partition if there is one, else of the storage
    /// partition; 0 while that is not mounted, and as sysPartition::fsCapacity()
    unsigned int blockSize();
    /// @return free space in MiB, rounded down, of the partition that blockSize() measures; 0 as
    /// there
    unsigned int freeMB();
    /// @return total space in MiB, rounded down, of the partition that blockSize() measures; 0 as
    /// there
    unsigned int totalMB();

    /// Returns the directory where recordings go: that of the file system which freeMB() measures.
    /// Does not block but for a size query of another thread; logs nothing.
    /// @return "/dvr/data" if the drive has a data partition, else "/dvr"; valid as long as the
    /// drive. It is on the root file system unless the status is eStStarted
    const char* recordingDirectory();
    /// Measures one partition, after at most two statfs. Logs nothing.
    /// @param part which partition
    /// @param[out] size total space in bytes; 0 as sysPartition::fsCapacity(); may be null
    /// @param[out] free free space in bytes, including what is reserved for root; may be null
    /// @return false, with both 0, if the drive has no such partition or it is not mounted
    bool partitionSpace(Part part, unsigned long long* size, unsigned long long* free);

    /// Returns why init(), initialize(), start() or stop(), or the worker of one of them, failed.
    /// The next of these operations that is not refused for the status resets it, so it remains
    /// readable in eStError. Of several failures of one operation the first is kept: a format that
    /// ends in eStReady although the data partition failed has one too. Never blocks for long, logs
    /// nothing.
    /// @param[out] failure step, device node, errno and tool status; not null; unchanged if false
    /// is returned
    /// @return false if the last of these operations has not failed
    bool lastFailure(sysPartition::Failure* failure) const;

    /// @return model text of the drive; valid until the next init(), and not to be asked for beside
    /// one
    const char* model() const { return mModel.c_str(); }

private:
    // Describes a partition of the drive: a further one is a further row and a further pointer.
    struct Row;
    KESTROVA_LOCAL static const Row kRows[];

    KESTROVA_LOCAL static void* initialize_thread_func_static(void* drive);
    KESTROVA_LOCAL static void* start_thread_func_static(void* drive);
    KESTROVA_LOCAL bool startWorker(void* (*entry)(void*)) KESTROVA_REQUIRES(mOpLock);
    KESTROVA_LOCAL void initialize_thread_func() KESTROVA_RELEASE(mOpLock);
    KESTROVA_LOCAL void start_thread_func() KESTROVA_RELEASE(mOpLock);
    KESTROVA_LOCAL void endWorker() KESTROVA_RELEASE(mOpLock);

    KESTROVA_LOCAL bool format(const Row& row) KESTROVA_REQUIRES(mOpLock);
    KESTROVA_LOCAL bool mount(const Row& row) KESTROVA_REQUIRES(mOpLock);
    KESTROVA_LOCAL bool mountAll() KESTROVA_REQUIRES(mOpLock);
    KESTROVA_LOCAL bool unmount(const Row& row) KESTROVA_REQUIRES(mOpLock);
    KESTROVA_LOCAL void forgetPartitions() KESTROVA_REQUIRES(mOpLock);
    KESTROVA_LOCAL void findPartitions() KESTROVA_REQUIRES(mOpLock);
    KESTROVA_LOCAL void spinDownWhenUnused();
    KESTROVA_LOCAL bool failed() const;
    KESTROVA_LOCAL bool failed(sysPartition::FailureStep step, const char* path, int error) const;

    // The only uses of the partition pointers. Unchecked inside: clang knows no lock of which one
    // or the other has to be held.
    KESTROVA_LOCAL sysPartition* partition(const Row& row) const
        KESTROVA_REQUIRES(mOpLock) KESTROVA_UNCHECKED_LOCKING;
    KESTROVA_LOCAL sysPartition* shownPartition(const Row& row) const
        KESTROVA_REQUIRES(mStatusLock) KESTROVA_UNCHECKED_LOCKING;
    KESTROVA_LOCAL void setPartition(const Row& row, sysPartition* partition)
        KESTROVA_REQUIRES(mOpLock) KESTROVA_REQUIRES(mStatusLock) KESTROVA_UNCHECKED_LOCKING;

    KESTROVA_LOCAL int formatProgress() const KESTROVA_REQUIRES(mStatusLock);
    KESTROVA_LOCAL const Row& measuredRow() const KESTROVA_REQUIRES(mStatusLock);
    KESTROVA_LOCAL const sysPartition* measuredPartition() const KESTROVA_REQUIRES(mStatusLock);

    Status mStatus KESTROVA_GUARDED_BY(mStatusLock) = eStNone;
    // How far the last start came: 0 never started, 1 accepted, 3 worker mounting, 4 worker done.
    std::int32_t mStartupState KESTROVA_GUARDED_BY(mOpLock) = 0;
    // These two point into mPartitions. They are written under both locks and read under either.
    sysPartition* mStoragePartition KESTROVA_GUARDED_BY(mOpLock)
        KESTROVA_GUARDED_BY(mStatusLock) = nullptr;
    sysPartition* mDataPartition KESTROVA_GUARDED_BY(mOpLock)
        KESTROVA_GUARDED_BY(mStatusLock) = nullptr;
    std::string mMountPoint = "/dvr";
    std::string mDataMountPoint = "/dvr/data";
    pthread_t mThread KESTROVA_GUARDED_BY(mOpLock) = 0;
    // Taken by the caller of initialize() and start() and released by their worker. A mutex must be
    // released by the thread that took it; a semaphore may be by any.
    base::Semaphore mOpLock;
    // Guards mStatus and, with mOpLock, the two partition pointers. Never held while mOpLock is
    // taken or a tool runs.
    base::Mutex mStatusLock;
};

#endif
