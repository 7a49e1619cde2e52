// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/softwarepartition.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/mountoptions.h"
#include "base/cancelguard.h"
#include "base/io/mounttable.h"
#include "base/log/log.h"

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

/// Room for a line of the mount table.
constexpr std::size_t kLineSize = 16384;

/// Searches the mount table; `entry` points into `line`. A line with fewer than four fields ends
/// the search.
bool findSoftwarePartition(base::MountTable& mounts, const char* configuredDevice, char* line,
                           base::MountEntry& entry) {
    while (mounts.next(line, kLineSize, entry) && entry.mFields == 4) {
        if (sameDevice(entry.mDevice, configuredDevice)) {
            return true;
        }
    }
    return false;
}

MountState stateOf(const char* options) {
    if (bootvars::firstOptionIs(options, "ro")) {
        return eMsReadOnly;
    }
    if (bootvars::firstOptionIs(options, "rw")) {
        return eMsReadWrite;
    }
    base::reportFailedAssertionWithValues(
        kSource, __LINE__, "0", " opt=", options,
        ", d-opt=", static_cast<unsigned>(bootvars::firstOptionLength(options)));
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
    base::MountTable mounts;
    if (!mounts.opened()) {
        return false;
    }
    const Configured configured;
    char line[kLineSize];
    base::MountEntry entry;
    const bool found = findSoftwarePartition(mounts, configured.mDevice, line, entry);
    mounts.close();
    if (!found) {
        device = configured.mDevice;
        mountPoint = configured.mMountPoint;
        fsType = configured.mFsType;
        base::logMessageAt(kSource, __LINE__, 1, "mount %s %s %s\n", device.c_str(),
                           mountPoint.c_str(), fsType.c_str());
        changed = mountAs(device, mountPoint, fsType, mountFlags(iReqMountState),
                          "Error mounting update device");
        return changed;
    }

    state = stateOf(entry.mOptions);
    device = entry.mDevice;
    mountPoint = entry.mDirectory;
    fsType = entry.mType;
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
    // A restore that is cancelled half-way would leave the partition in the wrong mode, and it runs
    // in a destructor, which a cancellation must not unwind.
    const base::CancelGuard guard;
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
