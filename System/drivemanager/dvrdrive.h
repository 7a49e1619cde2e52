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
/// most one worker; it is detached. The directory "/dvr" must exist; "/dvr/data" is created in the
/// mounted storage partition.
///
/// Threads: any thread may call any operation named in this class. init(), initialize(), start(),
/// stop() and shut() exclude each other: each blocks while another of them, or the worker of
/// initialize() or start(), runs. getStatus(), setStatus(), blockSize(), freeMB(), totalMB(),
/// recordingDirectory(), partitionSpace() and lastFailure() do not wait for these operations; they
/// block for two statfs() calls at most. Inherited operations take no lock: call them while no
/// other operation runs, and call partitionCustom(), partitionOneBig() and scanPartitions() between
/// shut() and init(). shut() and the destructor may follow an operation at once; the destructor
/// waits for a worker.
///
/// Processes: init() unmounts the drive even if another process has mounted it and records to it.
/// By convention every process holds a sysResourceLock of eResRecordingDrive, exclusively, from
/// before the first init() (SystemInit() calls it) until after the last operation.
///
/// Failures are reported by the result and the status eStError; the only exception is
/// std::bad_alloc.
class KESTROVA_EXPORT sysDVRDrive : public sysHardDrive {
public:
    /// State of the drive. An operation fails in a state that its description does not accept.
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

    /// Sets status eStNone; touches no disk.
    sysDVRDrive();
    /// Waits for a worker; unmounts nothing.
    ~sysDVRDrive() override;

    using sysHardDrive::init;
    /// Forgets the partitions and sets status eStNone. Mounted file systems stay mounted.
    /// @return always true
    bool shut() override;
    /// Identifies "/dev/sda", finds the two partitions by file system and label, and unmounts them.
    /// A partition is unmounted from every directory, under every name of its device node. The
    /// status becomes eStReady or, without a storage partition, eStNotFormatted. eStNotFormatted
    /// also means that the partitions could not be listed or read, so it does not prove that a
    /// format would lose no data. If the partition usage table (BlockdeviceConfig) has no settings
    /// partition, the drive's delayed standby is set, as after a format and by stop(). Accepted in
    /// every state: it leaves eStError, and it reads a new partition table or new labels.
    /// @return false, with status eStError, if there is no such drive (see sysHardDrive::init()),
    /// if one of the two partitions is mounted and busy, or if the mount table cannot be read
    /// (logged at level 1)
    virtual bool init();

    /// Starts formatting: partition 1 as "DVRData", then partition 0 as "DVRStorage", each
    /// unmounted from every directory first. All data of the two partitions is lost. The partition
    /// table is not written: partition a new drive first. Formatting a partition fails if it is
    /// missing or busy, or if its tool fails; see sysPartition::xfs_format(). The worker ends in
    /// eStReady if the storage partition was formatted, even if formatting the data partition
    /// failed, otherwise in eStError. After a failure on the data partition the status is eStError
    /// while the storage partition is still being formatted: stop(), which fails in that state,
    /// returns after the worker has exited. The labels and types that init() read do not change.
    /// @return true if the worker runs, with status eStFormatting; false from eStNone,
    /// eStFormatting, eStStarting and eStStarted, and if no thread can be created: the status then
    /// stays eStFormatting until init() or shut()
    bool initialize();
    /// Starts mounting, from eStReady: wakes the drive, then mounts storage and data. The worker
    /// ends in eStStarted or, if either could not be mounted, in eStError with a message at level
    /// 1. In that case the other may still be mounted, and init() unmounts it.
    /// @return true if the worker runs, with status eStStarting; false from other states, logged at
    /// level 1 with status and partition, and if no thread can be created, reported with perror():
    /// the status then stays eStStarting until init() or shut()
    bool start();
    /// Unmounts both file systems, from eStStarted. Blocks until all data is written.
    /// @return true, with status eStReady; false from other states, without changing them; false,
    /// with status eStError, if one was busy or no longer mounted (see sysPartition::unmount()).
    /// init() unmounts what is still mounted
    bool stop();

    /// Returns status and progress, both of the same moment.
    /// @param[out] status may be null
    /// @param[out] progress of the running operation, in per cent: 100 if none runs, 0 while
    /// starting. While formatting it depends on which partition objects exist: 5 (none), 30
    /// (storage), 60 (data) or 90 (both). A drive without partitions goes 5, 60, 90; a drive that
    /// had both stays at 90. May be null
    void getStatus(Status* status, int* progress);
    /// Sets the status and has no other effect.
    /// @param status the new status
    void setStatus(Status status);

    /// @return the block size in bytes of the data partition if there is one, otherwise of the
    /// storage partition; 0 if that partition is not mounted, and on the failures of
    /// sysPartition::fsCapacity()
    unsigned int blockSize();
    /// @return the free space in MiB, rounded down, of the partition that blockSize() measures; 0
    /// on the same failures as blockSize()
    unsigned int freeMB();
    /// @return the total space in MiB, rounded down, of the partition that blockSize() measures; 0
    /// on the same failures as blockSize()
    unsigned int totalMB();

    /// Returns the directory for recordings: the mount directory of the file system that freeMB()
    /// measures. Blocks only while another thread measures the drive; logs nothing.
    /// @return "/dvr/data" if the drive has a data partition, otherwise "/dvr"; valid until the
    /// drive is destroyed. Unless the status is eStStarted, this directory is on the root file
    /// system
    const char* recordingDirectory();
    /// Measures one partition with at most two statfs() calls. Logs nothing.
    /// @param part which partition
    /// @param[out] size total space in bytes; 0 on the failures of sysPartition::fsCapacity(); may
    /// be null
    /// @param[out] free free space in bytes, including the space reserved for root; may be null
    /// @return false, with both 0, if the drive has no such partition or it is not mounted
    bool partitionSpace(Part part, unsigned long long* size, unsigned long long* free);

    /// Returns why init(), initialize(), start() or stop(), or the worker of one of them, failed.
    /// The next of these operations that the status accepts resets it, so it remains readable in
    /// eStError. If one operation has several failures, the first is kept; a format that ends in
    /// eStReady although the data partition failed has one as well. Blocks only for a short time;
    /// logs nothing.
    /// @param[out] failure step, device node, errno and tool status; not null; unchanged if false
    /// is returned
    /// @return false if the last of these operations has not failed
    bool lastFailure(sysPartition::Failure* failure) const;

    /// @return the model text of the drive; valid until the next init(). Do not call it while
    /// init() runs
    const char* model() const { return mModel.c_str(); }

private:
    // Describes one partition of the drive. An additional partition needs a row and a pointer.
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

    // The only functions that use the partition pointers. Unchecked inside, because clang's
    // analysis cannot express "either of two locks".
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
    // Progress of the last start: 0 never started, 1 accepted, 3 worker mounting, 4 worker done.
    std::int32_t mStartupState KESTROVA_GUARDED_BY(mOpLock) = 0;
    // These two point into mPartitions. They are written under both locks and read under either.
    sysPartition* mStoragePartition KESTROVA_GUARDED_BY(mOpLock)
        KESTROVA_GUARDED_BY(mStatusLock) = nullptr;
    sysPartition* mDataPartition KESTROVA_GUARDED_BY(mOpLock)
        KESTROVA_GUARDED_BY(mStatusLock) = nullptr;
    std::string mMountPoint = "/dvr";
    std::string mDataMountPoint = "/dvr/data";
    pthread_t mThread KESTROVA_GUARDED_BY(mOpLock) = 0;
    // Taken by the caller of initialize() and start() and released by their worker. Only a
    // semaphore may be released by a thread other than the one that took it.
    base::Semaphore mOpLock;
    // Guards mStatus and, with mOpLock, the two partition pointers. Never held while mOpLock is
    // acquired or a tool runs.
    base::Mutex mStatusLock;
};

#endif
