// SPDX-License-Identifier: MIT
#include "app/commands/vars/environmentcheck.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "System/BlockdevCfg.fmp.h"
#include "System/drivemanager/partition.h"
#include "app/commands/vars/bootimage.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

/// Returns the first mount directory of the device, under any of its names; "" if it is not
/// mounted.
std::string mountedOn(const std::string& device) {
    KestrovaVector<std::string> directories;
    return sysPartition::listMounts(device.c_str(), &directories) && !directories.empty()
               ? directories.front()
               : "";
}

Result unreadable(const std::string& reason) {
    return Result::failed("the boot environment can't be read: " + reason);
}

std::string describe(const BootImage& image) {
    if (image.mProblems.empty()) {
        return "valid, " + std::to_string(image.mVariables) + " variables";
    }
    const BootImageRemark& first = image.mProblems.front();
    return first.mText + " (offset " + std::to_string(first.mOffset) + ")";
}

Result checkFiles(const std::string& directory) {
    std::string reason;
    bool anyThere = false;
    for (const char* const name : {"boot_env", "boot_env.bkp"}) {
        std::string content;
        const Result read =
            readContent(directory + "/" + name, kLargestBootImage + 1, nullptr, content);
        const BootImage image = checkBootImage(content);
        if (read.good() && image.mProblems.empty() && image.mVariables == 0) {
            return {};
        }
        anyThere = anyThere || read.mStatus != eAbsent;
        reason += reason.empty() ? "" : "; ";
        reason += std::string(name) + ": " + (read.good() ? describe(image) : read.mError);
    }
    if (!anyThere) {
        return Result::failed("there is no boot environment yet; 'vars set' makes one", eAbsent);
    }
    return unreadable(reason);
}

}  // namespace

Result checkSoftwarePartition() {
    const char* const device = BlockdeviceConfig::GetInstance()->GetSoftwarePartitionMountDevice();
    struct stat status = {};
    const std::string reason = ::stat(device, &status) == 0 ? "" : rootErrorText(errno);
    return reason.empty() || !mountedOn(device).empty()
               ? Result()
               : Result::failed("there is no software partition: " + std::string(device) + ": " +
                                reason);
}

Result checkEnvironment() {
    BlockdeviceConfig& table = *BlockdeviceConfig::GetInstance();
    const std::string device = table.GetSoftwarePartitionMountDevice();
    struct stat status = {};
    if (::stat(device.c_str(), &status) != 0) {
        return unreadable(device + ": " + rootErrorText(errno));
    }
    const std::string mounted = mountedOn(device);
    if (!mounted.empty()) {
        return checkFiles(mounted);
    }
    const std::string directory = table.GetSoftwarePartitionMountPoint();
    if (::mount(device.c_str(), directory.c_str(), table.GetSoftwarePartitionFilesystem(),
                MS_NOEXEC | MS_RDONLY, nullptr) != 0) {
        return unreadable(device + " can't be mounted on " + directory + ": " +
                          rootErrorText(errno));
    }
    Result state = checkFiles(directory);
    (void)::umount(directory.c_str());
    return state;
}

}  // namespace app
