// SPDX-License-Identifier: MIT
//
// Brings the software partition into the mode that an access needs, and back as it was found.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_SOFTWAREPARTITION_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_SOFTWAREPARTITION_H

#include <string>

/// How the software partition is mounted.
enum MountState {
    eMsNotMounted = 0,
    eMsReadOnly = 1,
    eMsReadWrite = 2,
};

/// Mounts or remounts the software partition unless it already serves the request; a read-write
/// mount serves a read-only one. It is found in /proc/mounts by device number and node type, so
/// every alias of the node counts. `changed` tells whether something was done, `state` what was
/// found before, the texts where it is mounted and as what. True when it is mounted as requested;
/// false, logged at level 1 and by perror, when it could not be. When `changed` is set the caller
/// calls restoreMountState() exactly once. No lock: the callers take turns.
bool mountSoftwarePartition(bool& changed, MountState& state, std::string& device,
                            std::string& mountPoint, std::string& fsType,
                            MountState iReqMountState);

/// Brings the software partition back into a state that mountSoftwarePartition() found, with the
/// texts that it gave. False, by perror, when the kernel refuses.
bool restoreMountState(MountState previous, const std::string& device,
                       const std::string& mountPoint, const std::string& fsType);

/// The software partition, mounted for a scope.
class SoftwarePartitionAccess {
public:
    explicit SoftwarePartitionAccess(MountState required);
    /// Restores what was found, if anything was changed.
    ~SoftwarePartitionAccess();
    SoftwarePartitionAccess(const SoftwarePartitionAccess&) = delete;
    SoftwarePartitionAccess& operator=(const SoftwarePartitionAccess&) = delete;

    /// True when the partition is mounted as required.
    bool mounted() const { return mMounted; }
    /// Where; valid while mounted.
    const std::string& mountPoint() const { return mMountPoint; }

private:
    bool mChanged = false;
    MountState mState = eMsNotMounted;
    std::string mDevice;
    std::string mMountPoint;
    std::string mFsType;
    bool mMounted;
};

#endif
