// SPDX-License-Identifier: MIT
#include "System/drivemanager/dvrdrive.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>

#include "System/BlockdevCfg.fmp.h"
#include "System/drivemanager/failure.h"
#include "System/drivemanager/failuretable.h"
#include "base/cancelguard.h"
#include "base/lock.h"
#include "base/log/log.h"

/// One of the drive's partitions.
struct sysDVRDrive::Row {
    const char* mLabel;  ///< of the file system; init() finds the partition by it
    int mPosition;  ///< in the partition table; initialize() formats the partition at this position
    const char* mName;     ///< in messages
    const char* mOptions;  ///< of the mount, "" for none
    bool mNested;          ///< the directory is in the file system of the previous row
    std::string sysDVRDrive::*mDirectory;
    sysPartition* sysDVRDrive::*mPartition;
};

// In mount order; partitions are unmounted and formatted in reverse order. The first row is the
// storage partition, without which the drive is unusable.
const sysDVRDrive::Row sysDVRDrive::kRows[] = {
    {"DVRStorage", 0, "dvr", "prjquota", false, &sysDVRDrive::mMountPoint,
     &sysDVRDrive::mStoragePartition},
    {"DVRData", 1, "data", "", true, &sysDVRDrive::mDataMountPoint, &sysDVRDrive::mDataPartition},
};

namespace {

constexpr char kSource[] = "System/drivemanager/dvrdrive";
constexpr char kDevice[] = "/dev/sda";

// Decimal 777, which is octal 1411. Kept because every box in the field has a directory with this
// mode.
constexpr mode_t kDataDirectoryMode = 777;

enum StartupState : std::int32_t {
    eSsAccepted = 1,
    eSsMounting = 3,
    eSsDone = 4,
};

unsigned int mebibytes(unsigned long long bytes) {
    constexpr unsigned shift = 20;
    return static_cast<unsigned int>(bytes >> shift);
}

/// Returns whether the box keeps its settings on a disk, which must then not go to standby.
bool boxHasSettingsPartition() {
    BlockdeviceConfig* const table = BlockdeviceConfig::GetInstance();
    KestrovaVector<PartitionConfig*> settings;
    if (table != nullptr) {
        table->GetSettingsLinuxDevices(&settings);
    }
    return !settings.empty();
}

bool makeDirectory(const std::string& path) {
    return ::mkdir(path.c_str(), kDataDirectoryMode) == 0 || errno == EEXIST;
}

}  // namespace

sysDVRDrive::sysDVRDrive() : mOpLock() {
    drivemanager::addToFailureTable(this);
    (void)sem_init(&mOpLock, 0, 1);
}

sysDVRDrive::~sysDVRDrive() {
    // A worker may still run. Releasing the lock is its last access to the object.
    const base::CancelGuard guard;
    const base::SemaphoreLock operation(mOpLock);
    drivemanager::removeFromFailureTable(this);
}

sysPartition* sysDVRDrive::partition(const Row& row) const {
    return this->*row.mPartition;
}

sysPartition* sysDVRDrive::shownPartition(const Row& row) const {
    return this->*row.mPartition;
}

void sysDVRDrive::setPartition(const Row& row, sysPartition* partition) {
    this->*row.mPartition = partition;
}

void sysDVRDrive::setStatus(Status status) {
    const base::Lock lock(mStatusLock);
    mStatus = status;
}

void sysDVRDrive::getStatus(Status* status, int* progress) {
    const base::Lock lock(mStatusLock);
    if (status != nullptr) {
        *status = mStatus;
    }
    if (progress == nullptr) {
        return;
    }
    switch (mStatus) {
        case eStNone:
        case eStError:
        case eStNotFormatted:
        case eStReady:
        case eStStarted:
            *progress = 100;
            break;
        case eStStarting:
            *progress = 0;
            break;
        case eStFormatting:
            *progress = formatProgress();
            break;
    }
}

int sysDVRDrive::formatProgress() const {
    const bool storageKnown = shownPartition(kRows[ePartStorage]) != nullptr;
    if (shownPartition(kRows[ePartData]) == nullptr) {
        return storageKnown ? 30 : 5;
    }
    return storageKnown ? 90 : 60;
}

/// Returns the row of the file system for recordings: the last one that the drive has.
const sysDVRDrive::Row& sysDVRDrive::measuredRow() const {
    for (auto row = std::rbegin(kRows); row != std::rend(kRows); ++row) {
        if (shownPartition(*row) != nullptr) {
            return *row;
        }
    }
    return kRows[ePartStorage];
}

const sysPartition* sysDVRDrive::measuredPartition() const {
    return shownPartition(measuredRow());
}

unsigned int sysDVRDrive::blockSize() {
    const base::Lock lock(mStatusLock);
    const sysPartition* const partition = measuredPartition();
    return partition != nullptr ? partition->fsBlockSize() : 0;
}

unsigned int sysDVRDrive::freeMB() {
    const base::Lock lock(mStatusLock);
    const sysPartition* const partition = measuredPartition();
    return partition != nullptr ? mebibytes(partition->fsFree()) : 0;
}

unsigned int sysDVRDrive::totalMB() {
    const base::Lock lock(mStatusLock);
    const sysPartition* const partition = measuredPartition();
    return partition != nullptr ? mebibytes(partition->fsCapacity()) : 0;
}

const char* sysDVRDrive::recordingDirectory() {
    const base::Lock lock(mStatusLock);
    return (this->*measuredRow().mDirectory).c_str();
}

bool sysDVRDrive::partitionSpace(Part part, unsigned long long* size, unsigned long long* free) {
    const base::Lock lock(mStatusLock);
    const sysPartition* const partition =
        shownPartition(kRows[part == ePartStorage ? ePartStorage : ePartData]);
    const unsigned long long total = partition != nullptr ? partition->fsCapacity() : 0;
    if (size != nullptr) {
        *size = total;
    }
    if (free != nullptr) {
        *free = total != 0 ? partition->fsFree() : 0;
    }
    return total != 0;
}

bool sysDVRDrive::lastFailure(sysPartition::Failure* failure) const {
    const sysPartition::Failure stored = drivemanager::storedFailure(this);
    if (stored.mStep == sysPartition::eFailNone) {
        return false;
    }
    *failure = stored;
    return true;
}

/// Stores the failure that a partition or disk operation has just noted. Returns false.
bool sysDVRDrive::failed() const {
    drivemanager::storeFailure(this, drivemanager::lastNotedFailure());
    return false;
}

bool sysDVRDrive::failed(sysPartition::FailureStep step, const char* path, int error) const {
    drivemanager::noteFailure(step, path, error);
    return failed();
}

bool sysDVRDrive::init() {
    base::SemaphoreLock operation(mOpLock);
    drivemanager::clearFailure(this);
    // Clear the partition pointers before the base class rebuilds the objects, so that a size query
    // cannot reach a freed partition.
    forgetPartitions();
    if (!sysHardDrive::init(kDevice)) {
        setStatus(eStError);
        return failed();
    }
    findPartitions();
    for (auto row = std::rbegin(kRows); row != std::rend(kRows); ++row) {
        sysPartition* const found = partition(*row);
        if (found != nullptr && !found->unmountAll()) {
            (void)failed();
            setStatus(eStError);
            operation.unlock();
            base::logMessageAt(kSource, __LINE__, 1, "sysDVRDrive::init() failed\n");
            return false;
        }
    }
    spinDownWhenUnused();
    setStatus(partition(kRows[ePartStorage]) != nullptr ? eStReady : eStNotFormatted);
    return true;
}

void sysDVRDrive::forgetPartitions() {
    const base::Lock lock(mStatusLock);
    for (const Row& row : kRows) {
        setPartition(row, nullptr);
    }
}

void sysDVRDrive::findPartitions() {
    const base::Lock lock(mStatusLock);
    for (sysPartition* const listed : mPartitions) {
        const char* const label = listed->label();
        if (listed->fileSystemType() != sysPartition::eFsXfs || label == nullptr) {
            continue;
        }
        for (const Row& row : kRows) {
            if (std::strcmp(label, row.mLabel) == 0) {
                setPartition(row, listed);
            }
        }
    }
}

void sysDVRDrive::spinDownWhenUnused() {
    if (!boxHasSettingsPartition()) {
        (void)spinDownDelayed();
    }
}

bool sysDVRDrive::shut() {
    const base::SemaphoreLock operation(mOpLock);
    forgetPartitions();
    (void)sysHardDrive::shut();
    setStatus(eStNone);
    return true;
}

/// Starts a worker and hands the operation lock over to it. If no thread can be created, returns
/// false, with errno set and the lock still held.
bool sysDVRDrive::startWorker(void* (*entry)(void*)) {
    // The C library stores the handle before the thread runs, so the worker may clear it. The
    // worker owns the object after this call.
    const int error = pthread_create(&mThread, nullptr, entry, this);
    if (error != 0) {
        mThread = 0;
        errno = error;
    }
    return error == 0;
}

void sysDVRDrive::endWorker() {
    (void)pthread_detach(pthread_self());
    mThread = 0;
    base::unlockSemaphore(mOpLock);  // another thread may destroy the object now
}

bool sysDVRDrive::initialize() {
    base::SemaphoreLock operation(mOpLock);
    Status status = eStNone;
    getStatus(&status, nullptr);
    if (status != eStError && status != eStNotFormatted && status != eStReady) {
        return false;
    }
    drivemanager::clearFailure(this);
    setStatus(eStFormatting);
    if (!startWorker(initialize_thread_func_static)) {
        // The status stays eStFormatting until init() or shut() on purpose: a box that cannot
        // create a thread for a format cannot do anything else with the drive either.
        return failed(sysPartition::eFailThread, "", errno);
    }
    operation.handOver();
    return true;
}

// Unchecked, because the thread that started this one took the lock.
void* sysDVRDrive::initialize_thread_func_static(void* drive) KESTROVA_UNCHECKED_LOCKING {
    static_cast<sysDVRDrive*>(drive)->initialize_thread_func();
    return nullptr;
}

void sysDVRDrive::initialize_thread_func() {
    try {
        // The status of the storage partition, the last row in this order, overrides an earlier
        // failure, because recordings need only that partition.
        for (auto row = std::rbegin(kRows); row != std::rend(kRows); ++row) {
            if (!format(*row)) {
                setStatus(eStError);
            } else if (&*row == kRows) {
                spinDownWhenUnused();
                setStatus(eStReady);
            }
        }
    } catch (const std::bad_alloc&) {
        (void)failed(sysPartition::eFailMemory, "", ENOMEM);
        setStatus(eStError);
    }
    endWorker();
}

bool sysDVRDrive::format(const Row& row) {
    sysPartition* const listed = getPartition(row.mPosition);
    if (listed == nullptr) {
        return failed(sysPartition::eFailMissing, kDevice, 0);
    }
    if (!listed->unmountAll()) {
        return failed();
    }
    {
        const base::Lock lock(mStatusLock);
        setPartition(row, listed);
    }
    return listed->xfs_format(row.mLabel) || failed();
}

bool sysDVRDrive::start() {
    base::SemaphoreLock operation(mOpLock);
    Status status = eStNone;
    getStatus(&status, nullptr);
    const sysPartition* const storage = partition(kRows[ePartStorage]);
    if (status == eStReady && storage != nullptr) {
        drivemanager::clearFailure(this);
        mStartupState = eSsAccepted;
        setStatus(eStStarting);
        if (!startWorker(start_thread_func_static)) {
            (void)failed(sysPartition::eFailThread, "", errno);
            std::perror("sysDVRDrive pthread_create");
            return false;
        }
        operation.handOver();
        return true;
    }
    const std::int32_t startupState = mStartupState;
    operation.unlock();
    base::logMessageAt(kSource, __LINE__, 1, "Fail1 status(%d)(%p)\n", static_cast<int>(status),
                       static_cast<const void*>(storage));
    base::logMessageAt(kSource, __LINE__, 1, "mStartupState %d \n", startupState);
    return false;
}

// Unchecked, because the thread that started this one took the lock.
void* sysDVRDrive::start_thread_func_static(void* drive) KESTROVA_UNCHECKED_LOCKING {
    static_cast<sysDVRDrive*>(drive)->start_thread_func();
    return nullptr;
}

void sysDVRDrive::start_thread_func() {
    try {
        (void)spinUp();
        mStartupState = eSsMounting;
        setStatus(mountAll() ? eStStarted : eStError);
    } catch (const std::bad_alloc&) {
        (void)failed(sysPartition::eFailMemory, "", ENOMEM);
        setStatus(eStError);
    }
    mStartupState = eSsDone;
    endWorker();
}

/// Mounts every partition, even after a failure.
bool sysDVRDrive::mountAll() {
    bool allMounted = true;
    for (const Row& row : kRows) {
        if (partition(row) != nullptr && !mount(row)) {
            allMounted = false;
        }
    }
    return allMounted;
}

bool sysDVRDrive::mount(const Row& row) {
    const std::string& directory = this->*row.mDirectory;
    if (row.mNested && !makeDirectory(directory)) {
        (void)failed(sysPartition::eFailDirectory, directory.c_str(), errno);
        base::logMessage(1,
                         "Error: Dvr Data mount point does not exist and could not be created.\n");
        return false;
    }
    if (!partition(row)->xfs_mount(directory.c_str(), row.mOptions)) {
        (void)failed();
        base::logMessage(1, "FSMount (%s) Failed\n", row.mName);
        return false;
    }
    return true;
}

bool sysDVRDrive::stop() {
    const base::SemaphoreLock operation(mOpLock);
    Status status = eStNone;
    getStatus(&status, nullptr);
    if (partition(kRows[ePartStorage]) == nullptr || status != eStStarted) {
        return false;
    }
    drivemanager::clearFailure(this);
    bool allUnmounted = true;
    for (auto row = std::rbegin(kRows); row != std::rend(kRows); ++row) {
        if (partition(*row) != nullptr && !unmount(*row)) {
            allUnmounted = false;
        }
    }
    if (allUnmounted) {
        spinDownWhenUnused();
    }
    setStatus(allUnmounted ? eStReady : eStError);
    return allUnmounted;
}

bool sysDVRDrive::unmount(const Row& row) {
    if (partition(row)->unmount()) {
        return true;
    }
    (void)failed();
    if (row.mNested) {
        base::logMessage(2, "DVR Data unmount failure\n");
    }
    return false;
}
