// SPDX-License-Identifier: MIT
#include "System/drivemanager/harddrive.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "System/drivemanager/failure.h"
#include "System/drivemanager/tools/partitiontable.h"
#include "System/drivemanager/tools/tableresults.h"
#include "System/drivemanager/tools/toolcommands.h"
#include "base/io/descriptor.h"
#include "base/io/linereader.h"
#include "base/log/log.h"
#include "base/process/shellcommand.h"

using drivemanager::Standby;
using drivemanager::TableResults;

namespace {

sysHardDrive::TableState stateOf(const base::ToolResult& result) {
    if (!result.mRan) {
        return sysHardDrive::eTableUnread;
    }
    if (!result.mExecuted) {
        return sysHardDrive::eTableToolMissing;
    }
    return result.succeeded() ? sysHardDrive::eTableRead : sysHardDrive::eTableToolFailed;
}

bool runHdparm(const std::string& device, Standby standby) {
    return base::runShell(drivemanager::standbyCommand(device, standby)) == 0;
}

}  // namespace

sysHardDrive::sysHardDrive() = default;

// Calls the base version: a derived destructor has already shut its own part.
sysHardDrive::~sysHardDrive() {
    (void)sysHardDrive::shut();
    drivemanager::dropTableResults(this);
}

bool sysHardDrive::init(const char* device) {
    constexpr char devices[] = "/dev/";
    if (device == nullptr || std::strncmp(device, devices, sizeof(devices) - 1) != 0) {
        drivemanager::noteFailure(sysPartition::eFailOpen, device != nullptr ? device : "", EINVAL);
        return false;
    }
    // Copied, because `device` may point to a text of this drive, which is replaced or freed below.
    const std::string name = device;
    if (!identify(name.c_str())) {
        return false;
    }
    mCapacity = static_cast<unsigned long long>(get_blk_capacity(name.c_str()));
    if (mCapacity == 0) {
        drivemanager::noteFailure(sysPartition::eFailCapacity, name.c_str(), errno);
        return false;
    }
    mDevice = name;
    scanPartitions();

    constexpr unsigned long long gigabyte = 1000000000;
    constexpr unsigned long long megabyte = 1000000;
    base::logMessage(1, "HarddriveInit: %s\n", name.c_str());
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
    if (!drive.valid()) {
        drivemanager::noteFailure(sysPartition::eFailOpen, device, errno);
        return false;
    }
    if (get_drive_model(drive.get(), model, sizeof(model), serial, sizeof(serial)) < 0) {
        drivemanager::noteFailure(sysPartition::eFailIdentify, device, errno);
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
    // The unsigned comparison also excludes a negative index.
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
    TableResults results = drivemanager::tableResults(this);
    results.mRead = base::ToolResult();
    drivemanager::storeTableResults(this, results);
    results.mRead =
        base::readTool(drivemanager::listPartitionTable(mDevice), [this](std::FILE* output) {
            char line[256];
            while (base::readLine(output, line, sizeof(line))) {
                drivemanager::PartitionEntry entry;
                if (drivemanager::parsePartitionLine(line, entry)) {
                    addPartition(entry.mName, entry.mCapacity, entry.mType);
                }
            }
        });
    drivemanager::storeTableResults(this, results);
    if (results.mRead.mRan && !results.mRead.succeeded()) {
        base::logMessage(1, "waitpid failed\n");
        delPartitions();
    }
}

bool sysHardDrive::partitionCustom(int* sizes) {
    TableResults results = drivemanager::tableResults(this);
    results.mWritten = base::ToolResult();
    drivemanager::storeTableResults(this, results);
    results.mWritten = base::feedTool(drivemanager::writePartitionTable(mDevice),
                                      drivemanager::partitionScript(sizes));
    drivemanager::storeTableResults(this, results);
    if (results.mWritten.mRan) {
        scanPartitions();
    }
    return results.mWritten.succeeded();
}

sysHardDrive::TableState sysHardDrive::tableState() const {
    return stateOf(drivemanager::tableResults(this).mRead);
}

int sysHardDrive::tableToolStatus() const {
    return drivemanager::tableResults(this).mRead.mStatus;
}

int sysHardDrive::tableToolError() const {
    return drivemanager::tableResults(this).mRead.mError;
}

int sysHardDrive::partitionToolStatus() const {
    return drivemanager::tableResults(this).mWritten.mStatus;
}

int sysHardDrive::partitionToolError() const {
    return drivemanager::tableResults(this).mWritten.mError;
}

bool sysHardDrive::partitionOneBig() {
    int sizes[drivemanager::kPrimaryPartitions] = {-1, 0, 0, 0};
    return partitionCustom(sizes);
}

bool sysHardDrive::spinDown() {
    base::logMessage(1, "Spinning down drive\n");
    ::sync();
    return runHdparm(mDevice, Standby::eAfterTwoMinutes) && runHdparm(mDevice, Standby::eNow);
}

bool sysHardDrive::spinDownDelayed() {
    base::logMessage(1, "Setting delayed spin down\n");
    ::sync();
    return runHdparm(mDevice, Standby::eAfterTwoMinutes);
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
    (void)runHdparm(mDevice, Standby::eNever);
    return true;
}
