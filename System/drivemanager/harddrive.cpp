// SPDX-License-Identifier: MIT
#include "System/drivemanager/harddrive.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "System/drivemanager/partitiontable.h"
#include "base/descriptor.h"
#include "base/linereader.h"
#include "base/log.h"
#include "base/shell.h"
#include "base/tool.h"

namespace {

constexpr char kTableTool[] = "/sbin/sfdisk";

base::ToolCommand tableToolCommand(const char* const* arguments, base::ToolPipe pipe) {
    constexpr int cannotExecute = 20;
    return {arguments, pipe, false, "Error spawning sfdisk", cannotExecute};
}

}  // namespace

sysHardDrive::sysHardDrive() = default;

// A derived class has done its own part of shutting by now.
sysHardDrive::~sysHardDrive() {
    (void)sysHardDrive::shut();
}

bool sysHardDrive::init(const char* device) {
    constexpr char devices[] = "/dev/";
    if (device == nullptr || std::strncmp(device, devices, sizeof(devices) - 1) != 0) {
        return false;
    }
    if (!identify(device)) {
        return false;
    }
    mCapacity = static_cast<unsigned long long>(get_blk_capacity(device));
    if (mCapacity == 0) {
        return false;
    }
    mDevice = device;
    scanPartitions();

    constexpr unsigned long long gigabyte = 1000000000;
    constexpr unsigned long long megabyte = 1000000;
    base::logMessage(1, "HarddriveInit: %s\n", device);
    base::logMessage(1, "   Model: %s\n", mModel.c_str());
    base::logMessage(1, "   Capacity: %llu GB\n", mCapacity / gigabyte);
    base::logMessage(1, "   Partitions: %d\n", numPartitions());
    for (const sysPartition* const partition : mPartitions) {
        const char* const label = partition->label();
        base::logMessage(1, "     %s  %llu MB  type=%02X %s\n", partition->path(),
                         partition->capacity() / megabyte, static_cast<unsigned>(partition->type()),
                         label != nullptr ? label : "(null)");
    }
    return true;
}

bool sysHardDrive::identify(const char* device) {
    const base::Descriptor drive = base::openDescriptor(device, O_RDWR);
    char model[256];
    char serial[256];
    if (!drive.valid() ||
        get_drive_model(drive.get(), model, sizeof(model), serial, sizeof(serial)) < 0) {
        return false;
    }
    mModel = *model != '\0' ? model : "Unknown Drive";
    mSerial = *serial != '\0' ? serial : "N/A";
    return true;
}

bool sysHardDrive::shut() {
    delPartitions();
    return true;
}

sysPartition* sysHardDrive::getPartition(int index) {
    // As unsigned numbers, so that one comparison keeps a negative index out too.
    const auto position = static_cast<unsigned>(index);
    return position < mPartitions.size() ? mPartitions[position] : nullptr;
}

void sysHardDrive::addPartition(const char* path, unsigned long long capacity, int type) {
    auto partition = std::make_unique<sysPartition>();
    if (partition->init(path, capacity, type)) {
        mPartitions.push_back(partition.get());
        (void)partition.release();
    }
}

void sysHardDrive::delPartitions() {
    for (const sysPartition* const partition : mPartitions) {
        delete partition;
    }
    mPartitions.clear();
}

void sysHardDrive::scanPartitions() {
    delPartitions();
    const char* const arguments[] = {kTableTool, "-d", mDevice.c_str(), nullptr};
    base::Tool tool;
    if (!tool.openPipe()) {
        return;
    }
    const base::Tool::Start start =
        tool.start(tableToolCommand(arguments, base::ToolPipe::eStandardOutput));
    if (start == base::Tool::Start::eNoStream) {
        base::logMessage(1, "failed to open pipe to child\n");
    }
    if (start != base::Tool::Start::eStarted) {
        return;
    }
    char line[256];
    while (base::readLine(tool.stream(), line, sizeof(line))) {
        drivemanager::PartitionEntry entry;
        if (drivemanager::parsePartitionLine(line, entry)) {
            addPartition(entry.mName, entry.mCapacity, entry.mType);
        }
    }
    if (tool.finish() != 0) {
        base::logMessage(1, "waitpid failed\n");
        delPartitions();
    }
}

bool sysHardDrive::partitionCustom(int* sizes) {
    const char* const arguments[] = {kTableTool, "-q", "-L", "-uM", mDevice.c_str(), nullptr};
    base::Tool tool;
    if (!tool.openPipe() ||
        tool.start(tableToolCommand(arguments, base::ToolPipe::eStandardInput)) !=
            base::Tool::Start::eStarted) {
        return false;
    }
    (void)std::fputs(drivemanager::partitionScript(sizes).c_str(), tool.stream());
    const int status = tool.finish();
    scanPartitions();
    return status == 0;
}

bool sysHardDrive::partitionOneBig() {
    int sizes[drivemanager::kPrimaryPartitions] = {-1, 0, 0, 0};
    return partitionCustom(sizes);
}

bool sysHardDrive::runHdparm(const char* option) {
    const std::string command = std::string("/sbin/hdparm ") + option + " " + mDevice;
    return base::runShell(command) == 0;
}

bool sysHardDrive::spinDown() {
    base::logMessage(1, "Spinning down drive\n");
    ::sync();
    return runHdparm("-S24") && runHdparm("-y");
}

bool sysHardDrive::spinDownDelayed() {
    base::logMessage(1, "Setting delayed spin down\n");
    ::sync();
    return runHdparm("-S24");
}

bool sysHardDrive::spinUp() {
    {
        const base::Descriptor drive = base::openDescriptor(mDevice.c_str(), O_RDONLY);
        if (!drive.valid()) {
            return false;
        }
        char wake = 0;
        (void)base::readSome(drive.get(), &wake, sizeof(wake));
    }
    (void)runHdparm("-S0");
    return true;
}
