// SPDX-License-Identifier: MIT
#include "System/drivemanager/partition.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "System/drivemanager/failure.h"
#include "System/drivemanager/filesystemsize.h"
#include "System/drivemanager/mounts.h"
#include "System/drivemanager/signature.h"
#include "System/drivemanager/superblock.h"
#include "System/drivemanager/tools/toolcommands.h"
#include "base/cancelguard.h"
#include "base/io/descriptor.h"
#include "base/lock.h"
#include "base/log/log.h"
#include "base/process/shellcommand.h"

namespace {

constexpr char kSource[] = "System/drivemanager/partition";

/// Partition type of Linux file systems. Other partitions are not read from the device.
constexpr int kTypeLinux = 0x83;

bool exists(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0;
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Returns true for names such as mmcblk0p1, whose node may have a name that ends in -part1
/// instead.
bool hasAlternativeName(const std::string& path) {
    const std::size_t length = path.size();
    return length > 3 && path[length - 2] == 'p' && isDigit(path[length - 1]);
}

std::string alternativeName(const std::string& path) {
    return path.substr(0, path.size() - 2) + "-part" + path.back();
}

const char* typeName(sysPartition::FSType fs) {
    switch (fs) {
        case sysPartition::eFsExt3:
            return "ext3";
        case sysPartition::eFsXfs:
            return "xfs";
        default:
            return nullptr;
    }
}

}  // namespace

sysPartition::sysPartition() = default;

sysPartition::~sysPartition() = default;

bool sysPartition::init(const char* path, unsigned long long capacity, int type) {
    const std::string device = path != nullptr ? path : "";
    if (exists(device)) {
        putPath(device);
    } else if (!hasAlternativeName(device)) {
        drivemanager::noteFailure(eFailOpen, device.c_str(), ENOENT);
        base::logNameAt(kSource, __LINE__, 1, " iDev=", device);
        return false;
    } else {
        const std::string alternative = alternativeName(device);
        if (!exists(alternative)) {
            drivemanager::noteFailure(eFailOpen, alternative.c_str(), ENOENT);
            base::logNameAt(kSource, __LINE__, 1, " newdev=", alternative);
            return false;
        }
        putPath(alternative);
    }

    mCapacity = capacity;
    mType = type;
    mFsType = eFsUnknown;
    if (mType == kTypeLinux) {
        const base::Descriptor file = base::openDescriptor(mPath.c_str(), O_RDONLY);
        if (!file.valid()) {
            drivemanager::noteFailure(eFailOpen, mPath.c_str(), errno);
            base::logNameAt(kSource, __LINE__, 1, " mPath=", mPath);
            return false;
        }
        recognise(file.get());
    }
    isMounted();
    return true;
}

void sysPartition::recognise(int descriptor) {
    // Check for ext first: a reformatted disk may still have an old XFS magic in its first sector,
    // which ext does not overwrite.
    if (drivemanager::readExtLabel(descriptor, mLabel)) {
        mFsType = eFsExt3;
    } else if (drivemanager::readXfsLabel(descriptor, mLabel)) {
        mFsType = eFsXfs;
    }
}

bool sysPartition::isMounted() {
    std::string directory;
    if (!drivemanager::findMounted(mPath, directory)) {
        return false;
    }
    putMountPoint(std::move(directory));
    return true;
}

bool sysPartition::mount(const char* dir, FSType fs, const char* options) {
    if (dir == nullptr) {
        drivemanager::noteFailure(eFailMount, mPath.c_str(), EINVAL);
        return false;
    }
    // Copy first: `dir` and `options` may point to texts of this object, such as mountpoint().
    // Nothing that the new mount point needs may fail after the command has run.
    std::string directory = dir;
    const std::string command = drivemanager::mountCommand(mPath, dir, typeName(fs), options);
    base::logMessage(1, "Trying to mount fs %s on %s\n", mPath.c_str(), directory.c_str());
    if (isMounted()) {
        if (mMountPoint == directory) {
            return true;
        }
        if (!unmount()) {
            return false;
        }
    }
    // A cancellation while the command runs could leave a mount that this object does not know
    // about.
    const base::CancelGuard guard;
    const int status = base::runShell(command);
    if (status != 0) {
        drivemanager::noteToolFailure(eFailMount, mPath.c_str(), status);
        base::logMessage(1, "Mount failed with code %d\n", status);
        std::perror("Mount Failure");
        return false;
    }
    putMountPoint(std::move(directory));
    return true;
}

bool sysPartition::unmount() {
    if (!isMounted()) {
        drivemanager::noteFailure(eFailNotMounted, mPath.c_str(), 0);
        base::logMessage(1, "File system is not mounted\n");
        return false;
    }
    return unmountFrom(mMountPoint);
}

bool sysPartition::unmountAll() {
    // Stops if another process keeps mounting the partition.
    constexpr int limit = 1000;
    for (int unmounts = 0; unmounts <= limit; ++unmounts) {
        KestrovaVector<std::string> directories;
        if (!listMounts(mPath.c_str(), &directories)) {
            drivemanager::noteFailure(eFailUnmount, mPath.c_str(), errno);
            return false;
        }
        if (directories.empty()) {
            return true;
        }
        // The latest mount first, because it may be on top of an earlier one.
        if (!unmountFrom(std::move(directories.back()))) {
            return false;
        }
    }
    drivemanager::noteFailure(eFailUnmount, mPath.c_str(), EBUSY);
    return false;
}

bool sysPartition::listMounts(const char* device, KestrovaVector<std::string>* directories) {
    return drivemanager::listMounts(device, *directories);
}

bool sysPartition::unmountFrom(std::string directory) {
    // Clear the mount point before the call: a measurement inside the mount makes it busy.
    std::string known = takeMountPoint();
    if (::umount(directory.c_str()) != 0) {
        const int error = errno;
        putMountPoint(std::move(known.empty() ? directory : known));
        drivemanager::noteFailure(eFailUnmount, mPath.c_str(), error);
        // perror() leaks its stream if the thread is cancelled in it.
        const base::CancelGuard guard;
        errno = error;
        std::perror("Umount failure");
        return false;
    }
    return true;
}

void sysPartition::putPath(const std::string& path) {
    if (mPath != path) {
        mPath = path;
    }
}

void sysPartition::putMountPoint(std::string directory) {
    const base::Lock lock(mMountPointLock);
    // Keep an equal string, so that pointers returned by mountpoint() stay valid.
    if (mMountPoint != directory) {
        mMountPoint.swap(directory);
    }
}

std::string sysPartition::takeMountPoint() {
    std::string directory;
    const base::Lock lock(mMountPointLock);
    mMountPoint.swap(directory);
    return directory;
}

unsigned long long sysPartition::fsCapacity() const {
    const base::Lock lock(mMountPointLock);
    const drivemanager::FilesystemSize size = drivemanager::measure(mMountPoint);
    return drivemanager::bytes(size, size.mBlocks);
}

unsigned long long sysPartition::fsFree() const {
    const base::Lock lock(mMountPointLock);
    const drivemanager::FilesystemSize size = drivemanager::measure(mMountPoint);
    return drivemanager::bytes(size, size.mFreeBlocks);
}

unsigned int sysPartition::fsBlockSize() const {
    const base::Lock lock(mMountPointLock);
    return static_cast<unsigned int>(drivemanager::measure(mMountPoint).mBlockSize);
}

unsigned long long sysPartition::fileSystemSize() const {
    Signature signature;
    return readSignature(mPath.c_str(), &signature) ? signature.mSize : 0;
}

bool sysPartition::readSignature(const char* device, Signature* signature) {
    *signature = Signature();
    const base::Descriptor file = base::openDescriptor(device, O_RDONLY);
    return file.valid() && drivemanager::findSignature(file.get(), *signature);
}

bool sysPartition::lastFailure(Failure* failure) {
    const Failure& last = drivemanager::lastNotedFailure();
    if (last.mStep == eFailNone) {
        return false;
    }
    *failure = last;
    return true;
}
