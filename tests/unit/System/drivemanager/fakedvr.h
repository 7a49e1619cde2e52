// SPDX-License-Identifier: MIT
//
// A recording drive for the tests: "/dev/sda" with two partitions, and the tools for it.
#ifndef KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_FAKEDVR_H
#define KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_FAKEDVR_H

#include <sys/mount.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "System/BlockdevCfg.fmp.h"
#include "System/drivemanager/dvrdrive.h"
#include "tests/support/outputlevel.h"
#include "tests/unit/System/drivemanager/fakedrive.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

namespace tests {

/// The box's table of block devices for a scope, optionally without a settings partition.
class DeviceTable {
public:
    explicit DeviceTable(bool hasSettings = true) {
        const OutputLevel level(0);
        BlockdeviceConfig* const table = BlockdeviceConfig::CreateInstance();
        if (!hasSettings) {
            (table->*(&Access::mBlockdevice)).clear();
        }
    }
    ~DeviceTable() { BlockdeviceConfig::DestroyInstance(); }
    DeviceTable(const DeviceTable&) = delete;
    DeviceTable& operator=(const DeviceTable&) = delete;

private:
    struct Access : BlockdeviceConfig {
        using BlockdeviceConfig::mBlockdevice;
    };
};

inline Role hdparm(const std::string& option) {
    return Role({"/sbin/hdparm", option, "/dev/sda"});
}

inline Role storageMaker() {
    return Role({"/sbin/mkfs.xfs", "-L", "DVRStorage", "-f", "-l", "lazy-count=0", "/dev/sda1"});
}

inline Role dataMaker() {
    return Role({"/sbin/mkfs.xfs", "-L", "DVRData", "-f", "-l", "lazy-count=0", "/dev/sda2"});
}

/// Without its last action, mountStorage(role).
inline Role storageMounter() {
    return Role({"/bin/mount", "-t", "xfs", "/dev/sda1", "/dvr", "-o", "prjquota"});
}

inline Role dataMounter(const std::string& device = "/dev/sda2") {
    return Role({"/bin/mount", "-t", "xfs", device, "/dvr/data"});
}

inline Role mountsStorage() {
    return storageMounter().mount("/dev/sda1", "/dvr");
}

inline Role mountsData() {
    return dataMounter().mount("/dev/sda2", "/dvr/data");
}

/// Makes a disk whose partitions have these XFS labels; an empty one is a partition without a file
/// system. Allows any number of listings.
inline void makeDisk(Sandbox& box, const std::vector<std::string>& labels) {
    answerAsDrive();
    std::string listing;
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const std::string name = "/dev/sda" + std::to_string(i + 1);
        writeFile(name, labels[i].empty() ? std::string(512, '\0') : xfsHeader(labels[i]));
        listing += tableLine(name, 1000, "83");
    }
    box.allow(tableTool().print(listing));
}

inline void makeDvrDisk(Sandbox& box) {
    makeDisk(box, {"DVRStorage", "DVRData"});
}

/// Allows the tools of start() and stop(), any number of times.
inline void allowMounting(Sandbox& box) {
    box.allow(hdparm("-S0"));
    box.allow(mountsStorage());
    box.allow(mountsData());
}

/// Mounts an empty file system with this device name.
inline void mountAs(const std::string& device, const std::string& directory) {
    (void)::mkdir(directory.c_str(), 0755);
    ASSERT_EQ(::mount(device.c_str(), directory.c_str(), "tmpfs", 0, nullptr), 0);
}

inline bool isListed(const std::string& device) {
    return readFile("/proc/self/mounts").find(device + " ") != std::string::npos;
}

inline sysDVRDrive::Status statusOf(sysDVRDrive& drive) {
    sysDVRDrive::Status status = sysDVRDrive::eStNone;
    drive.getStatus(&status, nullptr);
    return status;
}

inline int progressOf(sysDVRDrive& drive) {
    int progress = -1;
    drive.getStatus(nullptr, &progress);
    return progress;
}

/// Waits until a worker has set this status.
inline void awaitStatus(sysDVRDrive& drive, sysDVRDrive::Status status) {
    EXPECT_TRUE(eventually([&] { return statusOf(drive) == status; })) << statusOf(drive);
}

/// Returns how often a tool was run.
inline int runsOf(const Sandbox& box, const std::string& tool) {
    int count = 0;
    for (const ToolRun& run : box.runs()) {
        count += run.mArguments.at(0) == tool ? 1 : 0;
    }
    return count;
}

}  // namespace tests

#endif
