// SPDX-License-Identifier: MIT
#include "System/drivemanager/dvrdrive.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "System/BlockdevCfg.fmp.h"
#include "base/cancelguard.h"
#include "base/log.h"

namespace {

constexpr char kSource[] = "System/drivemanager/dvrdrive";
constexpr char kDevice[] = "/dev/sda";
constexpr char kStorageLabel[] = "DVRStorage";
constexpr char kDataLabel[] = "DVRData";
constexpr int kStoragePosition = 0;
constexpr int kDataPosition = 1;

// Decimal 777, which is octal 1411: the mode that the directory has had on every box.
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

/// True when the box keeps its settings on a disk, which therefore must not go to sleep.
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

/// Holds the operation lock for a scope, or until a worker has taken it over.
class sysDVRDrive::Operation {
public:
    explicit Operation(sysDVRDrive& drive) : mpDrive(&drive) { drive.takeOpLock(); }
    ~Operation() { end(); }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    /// Releases the lock now.
    void end() {
        if (mpDrive != nullptr) {
            std::exchange(mpDrive, nullptr)->releaseOpLock();
        }
    }

    /// Starts a worker, which releases the lock at its end. False when there can be no thread,
    /// errno tells why; the lock is still held then.
    bool handOver(void* (*entry)(void*)) {
        // The C library stores the handle before the thread runs, so the worker may clear it. From
        // then on the object is the worker's.
        const int error = pthread_create(&mpDrive->mThread, nullptr, entry, mpDrive);
        if (error != 0) {
            mpDrive->mThread = 0;
            errno = error;
            return false;
        }
        mpDrive = nullptr;
        return true;
    }

private:
    sysDVRDrive* mpDrive;
};

sysDVRDrive::sysDVRDrive() : mOpLock() {
    (void)sem_init(&mOpLock, 0, 1);
}

sysDVRDrive::~sysDVRDrive() {
    // A worker may still be on its way; its last act is to release the lock.
    const base::CancelGuard guard;
    takeOpLock();
}

void sysDVRDrive::takeOpLock() {
    while (sem_wait(&mOpLock) != 0 && errno == EINTR) {
    }
}

void sysDVRDrive::releaseOpLock() {
    (void)sem_post(&mOpLock);
}

void sysDVRDrive::setPartitions(sysPartition* storage, sysPartition* data) {
    const std::lock_guard<std::mutex> lock(mStatusLock);
    mStoragePartition = storage;
    mDataPartition = data;
}

void sysDVRDrive::setStatus(Status status) {
    const std::lock_guard<std::mutex> lock(mStatusLock);
    mStatus = status;
}

void sysDVRDrive::getStatus(Status* status, int* progress) {
    const std::lock_guard<std::mutex> lock(mStatusLock);
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
    if (mDataPartition == nullptr) {
        return mStoragePartition == nullptr ? 5 : 30;
    }
    return mStoragePartition == nullptr ? 60 : 90;
}

sysPartition* sysDVRDrive::measuredPartition() const {
    return mDataPartition != nullptr ? mDataPartition : mStoragePartition;
}

unsigned int sysDVRDrive::blockSize() {
    const std::lock_guard<std::mutex> lock(mStatusLock);
    const sysPartition* const partition = measuredPartition();
    return partition != nullptr ? partition->fsBlockSize() : 0;
}

unsigned int sysDVRDrive::freeMB() {
    const std::lock_guard<std::mutex> lock(mStatusLock);
    const sysPartition* const partition = measuredPartition();
    return partition != nullptr ? mebibytes(partition->fsFree()) : 0;
}

unsigned int sysDVRDrive::totalMB() {
    const std::lock_guard<std::mutex> lock(mStatusLock);
    const sysPartition* const partition = measuredPartition();
    return partition != nullptr ? mebibytes(partition->fsCapacity()) : 0;
}

bool sysDVRDrive::init() {
    Operation operation(*this);
    // Before the base rebuilds the partition objects: nobody measures one that is gone.
    setPartitions(nullptr, nullptr);
    if (!sysHardDrive::init(kDevice)) {
        setStatus(eStError);
        return false;
    }
    findPartitions();
    if (!unmountIfMounted(mDataPartition)) {
        setStatus(eStError);
        operation.end();
        base::logMessageAt(kSource, __LINE__, 1, "sysDVRDrive::init() failed\n");
        return false;
    }
    if (!unmountIfMounted(mStoragePartition)) {
        setStatus(eStError);
        operation.end();
        base::logMessageAt(kSource, __LINE__, 1, "sysDVRDrive::init() failed\n");
        return false;
    }
    spinDownWhenUnused();
    setStatus(mStoragePartition != nullptr ? eStReady : eStNotFormatted);
    return true;
}

void sysDVRDrive::findPartitions() {
    sysPartition* storage = nullptr;
    sysPartition* data = nullptr;
    for (sysPartition* const partition : mPartitions) {
        const char* const label = partition->label();
        if (partition->fileSystemType() != sysPartition::eFsXfs || label == nullptr) {
            continue;
        }
        if (std::strcmp(label, kStorageLabel) == 0) {
            storage = partition;
        } else if (std::strcmp(label, kDataLabel) == 0) {
            data = partition;
        }
    }
    setPartitions(storage, data);
}

bool sysDVRDrive::unmountIfMounted(sysPartition* partition) {
    return partition == nullptr || !partition->isMounted() || partition->unmount();
}

void sysDVRDrive::spinDownWhenUnused() {
    if (!boxHasSettingsPartition()) {
        (void)spinDownDelayed();
    }
}

bool sysDVRDrive::shut() {
    const Operation operation(*this);
    setPartitions(nullptr, nullptr);
    (void)sysHardDrive::shut();
    setStatus(eStNone);
    return true;
}

void sysDVRDrive::endWorker() {
    (void)pthread_detach(pthread_self());
    mThread = 0;
    releaseOpLock();  // from here on the object may be gone
}

bool sysDVRDrive::initialize() {
    Operation operation(*this);
    Status status = eStNone;
    getStatus(&status, nullptr);
    if (status != eStError && status != eStNotFormatted && status != eStReady) {
        return false;
    }
    setStatus(eStFormatting);
    // Without a thread the status stays as it is, on purpose: a box that has none left for a format
    // is not ready for anything else either, until init() or shut().
    return operation.handOver(initialize_thread_func_static);
}

void* sysDVRDrive::initialize_thread_func_static(void* drive) {
    static_cast<sysDVRDrive*>(drive)->initialize_thread_func();
    return nullptr;
}

void sysDVRDrive::initialize_thread_func() {
    try {
        if (!formatData()) {
            setStatus(eStError);
        }
        formatStorage();
    } catch (const std::bad_alloc&) {
        setStatus(eStError);
    }
    endWorker();
}

bool sysDVRDrive::formatData() {
    sysPartition* const data = getPartition(kDataPosition);
    if (data == nullptr || !unmountIfMounted(data)) {
        return false;
    }
    setPartitions(mStoragePartition, data);
    return data->xfs_format(kDataLabel);
}

void sysDVRDrive::formatStorage() {
    sysPartition* const storage = getPartition(kStoragePosition);
    if (storage == nullptr || !unmountIfMounted(storage)) {
        setStatus(eStError);
        return;
    }
    setPartitions(storage, mDataPartition);
    if (!storage->xfs_format(kStorageLabel)) {
        setStatus(eStError);
        return;
    }
    spinDownWhenUnused();
    // Also after a failure on the data partition: recordings need the storage partition only.
    setStatus(eStReady);
}

bool sysDVRDrive::start() {
    Operation operation(*this);
    Status status = eStNone;
    getStatus(&status, nullptr);
    const sysPartition* const storage = mStoragePartition;
    if (status == eStReady && storage != nullptr) {
        mStartupState = eSsAccepted;
        setStatus(eStStarting);
        if (operation.handOver(start_thread_func_static)) {
            return true;
        }
        std::perror("sysDVRDrive pthread_create");
        return false;
    }
    const std::int32_t startupState = mStartupState;
    operation.end();
    base::logMessageAt(kSource, __LINE__, 1, "Fail1 status(%d)(%p)\n", static_cast<int>(status),
                       static_cast<const void*>(storage));
    base::logMessageAt(kSource, __LINE__, 1, "mStartupState %d \n", startupState);
    return false;
}

void* sysDVRDrive::start_thread_func_static(void* drive) {
    static_cast<sysDVRDrive*>(drive)->start_thread_func();
    return nullptr;
}

void sysDVRDrive::start_thread_func() {
    try {
        (void)spinUp();
        mStartupState = eSsMounting;
        setStatus(mountAll() ? eStStarted : eStError);
    } catch (const std::bad_alloc&) {
        setStatus(eStError);
    }
    mStartupState = eSsDone;
    endWorker();
}

bool sysDVRDrive::mountAll() {
    const bool storageMounted = mStoragePartition->xfs_mount(mMountPoint.c_str(), "prjquota");
    if (!storageMounted) {
        base::logMessage(1, "FSMount (dvr) Failed\n");
    }
    if (mDataPartition == nullptr) {
        return storageMounted;
    }
    // Only now: the directory lies in the storage file system.
    if (!makeDirectory(mDataMountPoint)) {
        base::logMessage(1,
                         "Error: Dvr Data mount point does not exist and could not be created.\n");
        return false;
    }
    if (!mDataPartition->xfs_mount(mDataMountPoint.c_str(), "")) {
        base::logMessage(1, "FSMount (data) Failed\n");
        return false;
    }
    return storageMounted;
}

bool sysDVRDrive::stop() {
    const Operation operation(*this);
    Status status = eStNone;
    getStatus(&status, nullptr);
    if (mStoragePartition == nullptr || status != eStStarted) {
        return false;
    }
    bool unmounted = true;
    if (mDataPartition != nullptr && !mDataPartition->unmount()) {
        base::logMessage(2, "DVR Data unmount failure\n");
        unmounted = false;
    }
    if (!mStoragePartition->unmount()) {
        unmounted = false;
    }
    if (unmounted) {
        spinDownWhenUnused();
    }
    setStatus(unmounted ? eStReady : eStError);
    return unmounted;
}
