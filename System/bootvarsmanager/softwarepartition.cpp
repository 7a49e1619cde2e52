// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/softwarepartition.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/mountline.h"
#include "base/linereader.h"
#include "base/log.h"

namespace {

constexpr char kSource[] = "System/bootvarsmanager/sysBootVarsManager";

/// What the partition table says about the software partition; all "" without a table.
struct Configured {
    const char* mDevice = "";
    const char* mMountPoint = "";
    const char* mFsType = "";

    Configured() {
        if (BlockdeviceConfig* const table = BlockdeviceConfig::GetInstance()) {
            mDevice = table->GetSoftwarePartitionMountDevice();
            mMountPoint = table->GetSoftwarePartitionMountPoint();
            mFsType = table->GetSoftwarePartitionFilesystem();
        }
    }
};

/// Both names lead to the same kind of node of the same device.
bool sameDevice(const char* one, const char* other) {
    struct stat first = {};
    struct stat second = {};
    return ::stat(one, &first) == 0 && ::stat(other, &second) == 0 &&
           first.st_rdev == second.st_rdev && first.st_mode == second.st_mode;
}

/// Searches the mount table. A line that is not a mount ends the search.
bool findSoftwarePartition(std::FILE* mounts, const char* configuredDevice, MountLine& fields) {
    constexpr std::size_t lineSize = 16384;
    char line[lineSize];
    while (base::readLine(mounts, line, sizeof(line)) && fields.parse(line)) {
        if (sameDevice(fields.mDevice, configuredDevice)) {
            return true;
        }
    }
    return false;
}

MountState stateOf(const MountLine& fields) {
    if (fields.firstOptionIs("ro")) {
        return eMsReadOnly;
    }
    if (fields.firstOptionIs("rw")) {
        return eMsReadWrite;
    }
    base::reportFailedAssertionWithValues(
        kSource, __LINE__, "0", " opt=", static_cast<const char*>(fields.mOptions),
        ", d-opt=", static_cast<unsigned>(fields.firstOptionLength()));
    return eMsNotMounted;
}

/// Programs are never run from the software partition.
unsigned long mountFlags(MountState state) {
    return state == eMsReadOnly ? MS_NOEXEC | MS_RDONLY : MS_NOEXEC;
}

bool mountAs(const std::string& device, const std::string& mountPoint, const std::string& fsType,
             unsigned long flags, const char* failure) {
    if (::mount(device.c_str(), mountPoint.c_str(), fsType.c_str(), flags, nullptr) != 0) {
        std::perror(failure);
        return false;
    }
    return true;
}

}  // namespace

bool mountSoftwarePartition(bool& changed, MountState& state, std::string& device,
                            std::string& mountPoint, std::string& fsType,
                            MountState iReqMountState) {
    if (iReqMountState == eMsNotMounted) {
        base::reportFailedAssertion(kSource, __LINE__, "iReqMountState!=eMsNotMounted");
    }
    changed = false;
    state = eMsNotMounted;
    base::logMessageAt(kSource, __LINE__, 1, "Mouting HDD mode:%d\n", iReqMountState);
    base::Stream mounts = base::openForReading("/proc/mounts");
    if (mounts == nullptr) {
        return false;
    }
    const Configured configured;
    const auto fields = std::make_unique<MountLine>();
    const bool found = findSoftwarePartition(mounts.get(), configured.mDevice, *fields);
    if (!found) {
        mounts.reset();
        device = configured.mDevice;
        mountPoint = configured.mMountPoint;
        fsType = configured.mFsType;
        base::logMessageAt(kSource, __LINE__, 1, "mount %s %s %s\n", device.c_str(),
                           mountPoint.c_str(), fsType.c_str());
        changed = mountAs(device, mountPoint, fsType, mountFlags(iReqMountState),
                          "Error mounting update device");
        return changed;
    }

    state = stateOf(*fields);
    device = fields->mDevice;
    mountPoint = fields->mMountPoint;
    fsType = fields->mFsType;
    mounts.reset();
    base::logMessageAt(kSource, __LINE__, 1, "is mouted %d %d \n", state, iReqMountState);
    if (state == iReqMountState || (state == eMsReadWrite && iReqMountState == eMsReadOnly)) {
        return true;
    }
    base::logMessageAt(kSource, __LINE__, 1, "remount %s %s %s\n", device.c_str(),
                       mountPoint.c_str(), fsType.c_str());
    changed = mountAs(device, mountPoint, fsType, MS_REMOUNT | mountFlags(iReqMountState),
                      "Error making software partition writable");
    return changed;
}

bool restoreMountState(MountState previous, const std::string& device,
                       const std::string& mountPoint, const std::string& fsType) {
    switch (previous) {
        case eMsNotMounted:
            base::logMessageAt(kSource, __LINE__, 1, "umount %s\n", mountPoint.c_str());
            if (::umount(mountPoint.c_str()) != 0) {
                std::perror("Error umount software partition readonly");
                return false;
            }
            break;
        case eMsReadOnly:
        case eMsReadWrite:
            base::logMessageAt(kSource, __LINE__, 1, "remount %s %s %s\n", device.c_str(),
                               mountPoint.c_str(), fsType.c_str());
            if (!mountAs(device, mountPoint, fsType, MS_REMOUNT | mountFlags(previous),
                         "Error making software partition readonly")) {
                return false;
            }
            break;
    }
    ::sync();
    return true;
}

SoftwarePartitionAccess::SoftwarePartitionAccess(MountState required)
    : mMounted(mountSoftwarePartition(mChanged, mState, mDevice, mMountPoint, mFsType, required)) {}

SoftwarePartitionAccess::~SoftwarePartitionAccess() {
    if (mChanged) {
        (void)restoreMountState(mState, mDevice, mMountPoint, mFsType);
    }
}
