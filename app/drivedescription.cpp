// SPDX-License-Identifier: MIT
#include "app/drivedescription.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "app/colour.h"
#include "app/text.h"

namespace app {

namespace {

const char* fileSystemName(sysPartition::FSType type) {
    switch (type) {
        case sysPartition::eFsExt3:
            return "ext3";
        case sysPartition::eFsXfs:
            return "xfs";
        case sysPartition::eFsUnknown:
            break;
    }
    return "unknown";
}

Colour statusColour(sysDVRDrive::Status status) {
    switch (status) {
        case sysDVRDrive::eStReady:
        case sysDVRDrive::eStStarted:
            return eGreen;
        case sysDVRDrive::eStNone:
        case sysDVRDrive::eStError:
            return eRed;
        default:
            return eYellow;
    }
}

std::string orDash(const char* text) {
    return text != nullptr ? printable(text) : "-";
}

}  // namespace

DriveIdentity driveIdentity(const sysDVRDrive& drive) {
    DriveIdentity identity;
    identity.mModel = trimmed(drive.model());
    identity.mCapacity = static_cast<unsigned long long>(get_blk_capacity(kDriveDevice));
    const int descriptor = ::open(kDriveDevice, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor >= 0) {
        char model[256];
        char serial[256];
        if (get_drive_model(descriptor, model, sizeof(model), serial, sizeof(serial)) == 0) {
            identity.mSerial = trimmed(serial);
        }
        (void)::close(descriptor);
    }
    return identity;
}

std::string driveName(const sysDVRDrive& drive) {
    const DriveIdentity identity = driveIdentity(drive);
    return std::string(kDriveDevice) + " (model " + printable(identity.mModel) + ", " +
           sizeText(identity.mCapacity) + ")";
}

const char* statusName(sysDVRDrive::Status status) {
    switch (status) {
        case sysDVRDrive::eStNone:
            return "none";
        case sysDVRDrive::eStError:
            return "error";
        case sysDVRDrive::eStNotFormatted:
            return "not-formatted";
        case sysDVRDrive::eStFormatting:
            return "formatting";
        case sysDVRDrive::eStReady:
            return "ready";
        case sysDVRDrive::eStStarting:
            return "starting";
        case sysDVRDrive::eStStarted:
            return "started";
    }
    return "unknown";
}

sysDVRDrive::Status statusOf(sysDVRDrive& drive) {
    sysDVRDrive::Status status = sysDVRDrive::eStNone;
    drive.getStatus(&status, nullptr);
    return status;
}

std::string statusText(sysDVRDrive& drive) {
    sysDVRDrive::Status status = sysDVRDrive::eStNone;
    int progress = 0;
    drive.getStatus(&status, &progress);
    std::string text = "Status:    " + coloured(statusName(status), statusColour(status));
    // At rest it is 100, which would look odd behind "not-formatted".
    if (status == sysDVRDrive::eStFormatting || status == sysDVRDrive::eStStarting) {
        text += ", " + std::to_string(progress) + " %";
    }
    if (status == sysDVRDrive::eStNotFormatted) {
        text += drive.numPartitions() == 0 ? "; 'drive partition' comes next"
                                           : "; 'drive format' comes next";
    }
    text += "\n";
    if (status == sysDVRDrive::eStStarted) {
        text += "Space:     " + std::to_string(drive.freeMB()) + " MiB free of " +
                std::to_string(drive.totalMB()) + " MiB, blocks of " +
                std::to_string(drive.blockSize()) + " bytes\n";
    }
    return text;
}

JsonObject statusData(sysDVRDrive& drive) {
    sysDVRDrive::Status status = sysDVRDrive::eStNone;
    int progress = 0;
    drive.getStatus(&status, &progress);
    JsonObject data;
    data.add("status", statusName(status)).add("progress", progress);
    data.add("totalMiB", drive.totalMB()).add("freeMiB", drive.freeMB());
    return data.add("blockSize", drive.blockSize());
}

std::string partitionsText(sysDVRDrive& drive) {
    if (drive.numPartitions() == 0) {
        return "Partitions: none\n";
    }
    std::string text = "Partitions:\n";
    for (int index = 0; index < drive.numPartitions(); ++index) {
        sysPartition& partition = *drive.getPartition(index);
        const bool mounted = partition.isMounted();
        char type[8];
        (void)std::snprintf(type, sizeof(type), "%02X", static_cast<unsigned>(partition.type()));
        text += "  " + std::to_string(index) + "  " + padded(printable(partition.path()), 10) +
                "  " + padded(sizeText(partition.capacity()), 9) + "  type " + type + "  " +
                padded(fileSystemName(partition.fileSystemType()), 7) + "  " +
                padded(orDash(partition.label()), 12) + "  " +
                (mounted ? "on " + orDash(partition.mountpoint()) : "not mounted") + "\n";
    }
    return text;
}

JsonArray partitionsData(sysDVRDrive& drive) {
    JsonArray partitions;
    for (int index = 0; index < drive.numPartitions(); ++index) {
        sysPartition& partition = *drive.getPartition(index);
        const bool mounted = partition.isMounted();
        JsonObject data;
        data.add("index", index).add("path", partition.path());
        data.add("capacity", partition.capacity()).add("type", partition.type());
        data.add("filesystem", fileSystemName(partition.fileSystemType()));
        data.add("label", partition.label());
        data.add("mountpoint", mounted ? partition.mountpoint() : nullptr);
        partitions.addJson(data.text());
    }
    return partitions;
}

std::string noDriveReason() {
    const std::string device = kDriveDevice;
    if (::access(kDriveDevice, R_OK | W_OK) != 0) {
        return "no recording drive: " + device + ": " + rootErrorText(errno);
    }
    return "no recording drive: " + device +
           " does not tell its identity or size, or one of its file systems is in use;"
           " -v tells more";
}

}  // namespace app
