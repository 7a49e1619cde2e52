// SPDX-License-Identifier: MIT
#include "System/drivemanager/partition.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "System/drivemanager/filesystemsize.h"
#include "System/drivemanager/mounttable.h"
#include "System/drivemanager/superblock.h"
#include "base/descriptor.h"
#include "base/log.h"
#include "base/shell.h"

namespace {

constexpr char kSource[] = "System/drivemanager/partition";

/// Partition table's type byte of Linux file systems; nothing else is read from the device.
constexpr int kTypeLinux = 0x83;

bool exists(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0;
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// True for names such as mmcblk0p1, whose node may go by the name ending in -part1 instead.
bool hasAlternativeName(const std::string& path) {
    const std::size_t length = path.size();
    return length > 3 && path[length - 2] == 'p' && isDigit(path[length - 1]);
}

std::string alternativeName(const std::string& path) {
    return path.substr(0, path.size() - 2) + "-part" + path.back();
}

const char* typeArgument(sysPartition::FSType fs) {
    switch (fs) {
        case sysPartition::eFsExt3:
            return "-t ext3";
        case sysPartition::eFsXfs:
            return "-t xfs";
        default:
            return "";
    }
}

std::string mountCommand(const char* type, const std::string& device, const char* dir,
                         const char* options) {
    std::string command = std::string("/bin/mount ") + type + " " + device + " " + dir;
    if (options != nullptr && *options != '\0') {
        command += std::string(" -o ") + options;
    }
    return command;
}

}  // namespace

sysPartition::sysPartition() = default;

sysPartition::~sysPartition() = default;

bool sysPartition::init(const char* path, unsigned long long capacity, int type) {
    const std::string device = path != nullptr ? path : "";
    if (exists(device)) {
        mPath = device;
    } else if (!hasAlternativeName(device)) {
        base::logNameAt(kSource, __LINE__, 1, " iDev=", device);
        return false;
    } else {
        const std::string alternative = alternativeName(device);
        if (!exists(alternative)) {
            base::logNameAt(kSource, __LINE__, 1, " newdev=", alternative);
            return false;
        }
        mPath = alternative;
    }

    mCapacity = capacity;
    mType = type;
    mFsType = eFsUnknown;
    if (mType == kTypeLinux) {
        const base::Descriptor file = base::openDescriptor(mPath.c_str(), O_RDONLY);
        if (!file.valid()) {
            base::logNameAt(kSource, __LINE__, 1, " mPath=", mPath);
            return false;
        }
        recognise(file.get());
    }
    isMounted();
    return true;
}

void sysPartition::recognise(int descriptor) {
    // ext first: a disk may still carry the XFS magic of an earlier life in its first sector, which
    // ext leaves alone.
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
        return false;
    }
    base::logMessage(1, "Trying to mount fs %s on %s\n", mPath.c_str(), dir);
    if (isMounted()) {
        if (mMountPoint == dir) {
            return true;
        }
        if (!unmount()) {
            return false;
        }
    }
    const std::string command = mountCommand(typeArgument(fs), mPath, dir, options);
    const int status = base::runShell(command);
    if (status != 0) {
        base::logMessage(1, "Mount failed with code %d\n", status);
        std::perror("Mount Failure");
        return false;
    }
    putMountPoint(dir);
    return true;
}

bool sysPartition::unmount() {
    if (!isMounted()) {
        base::logMessage(1, "File system is not mounted\n");
        return false;
    }
    // Taken away before the call: a measurement that is inside the mount makes it busy.
    std::string directory = takeMountPoint();
    if (::umount(directory.c_str()) != 0) {
        std::perror("Umount failure");
        putMountPoint(std::move(directory));
        return false;
    }
    return true;
}

void sysPartition::putMountPoint(std::string directory) {
    const std::lock_guard<std::mutex> lock(mMountPointLock);
    mMountPoint.swap(directory);
}

std::string sysPartition::takeMountPoint() {
    std::string directory;
    const std::lock_guard<std::mutex> lock(mMountPointLock);
    mMountPoint.swap(directory);
    return directory;
}

unsigned long long sysPartition::fsCapacity() const {
    const std::lock_guard<std::mutex> lock(mMountPointLock);
    const drivemanager::FilesystemSize size = drivemanager::measure(mMountPoint);
    return drivemanager::bytes(size, size.mBlocks);
}

unsigned long long sysPartition::fsFree() const {
    const std::lock_guard<std::mutex> lock(mMountPointLock);
    const drivemanager::FilesystemSize size = drivemanager::measure(mMountPoint);
    return drivemanager::bytes(size, size.mFreeBlocks);
}

unsigned int sysPartition::fsBlockSize() const {
    const std::lock_guard<std::mutex> lock(mMountPointLock);
    return static_cast<unsigned int>(drivemanager::measure(mMountPoint).mBlockSize);
}
