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

/// First directory on which the device, under any of its names, is mounted; "" when it is not.
std::string mountedOn(const std::string& device) {
    KestrovaVector<std::string> directories;
    return sysPartition::listMounts(device.c_str(), &directories) && !directories.empty()
               ? directories.front()
               : "";
}

EnvironmentState unreadable(const std::string& reason) {
    return {EnvironmentState::eUnreadable, "the boot environment can't be read: " + reason};
}

std::string describe(const BootImage& image) {
    if (image.mProblems.empty()) {
        return "valid, " + std::to_string(image.mVariables) + " variables";
    }
    const BootImageRemark& first = image.mProblems.front();
    return first.mText + " (offset " + std::to_string(first.mOffset) + ")";
}

EnvironmentState checkFiles(const std::string& directory) {
    std::string reason;
    bool anyThere = false;
    for (const char* const name : {"boot_env", "boot_env.bkp"}) {
        std::string content;
        const int error = readFile(directory + "/" + name, kLargestBootImage + 1, content);
        const BootImage image = checkBootImage(content);
        if (error == 0 && image.mProblems.empty() && image.mVariables == 0) {
            return {EnvironmentState::eEmpty, "the boot environment is empty"};
        }
        anyThere = anyThere || error != ENOENT;
        reason += reason.empty() ? "" : "; ";
        reason += std::string(name) + ": " + (error == 0 ? describe(image) : std::strerror(error));
    }
    if (!anyThere) {
        return {EnvironmentState::eMissing,
                "there is no boot environment yet; 'vars set' makes one"};
    }
    return unreadable(reason);
}

}  // namespace

std::string missingPartition() {
    const char* const device = BlockdeviceConfig::GetInstance()->GetSoftwarePartitionMountDevice();
    struct stat status = {};
    if (::stat(device, &status) == 0) {
        return {};
    }
    const std::string reason = rootErrorText(errno);
    return !mountedOn(device).empty()
               ? ""
               : "there is no software partition: " + std::string(device) + ": " + reason;
}

EnvironmentState checkEnvironment() {
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
    EnvironmentState state = checkFiles(directory);
    (void)::umount(directory.c_str());
    return state;
}

}  // namespace app
